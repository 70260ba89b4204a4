#include "shared/SSample.h"

#include <algorithm>

namespace {

bool isVisible(unsigned char byte) {
    return byte > ' ' && byte != 0x7F;
}

/// The form that CVQString's own operator reads; but a length is looked at before memory is asked for.
bool readText(const CVQByteStream& stream, CVQString& text) {
    unsigned length = 0;
    stream >> length;
    if (length > SSample::kLongestText) {
        return false;
    }
    char bytes[SSample::kLongestText];
    stream.read(bytes, length);
    text = CVQString(bytes, length);
    return text.getByteLength() == length && isSampleText(text);
}

}  // namespace

bool isSampleText(const CVQString& text) {
    const char* const begin = text.c_str();
    const char* const end = begin + text.getByteLength();
    return begin != end && text.getByteLength() <= SSample::kLongestText && std::all_of(begin, end, isVisible);
}

IVQOStream& operator<<(IVQOStream& stream, const SSample& sample) {
    stream << sample.time << sample.series << sample.unit;
    stream.write(&sample.kind, sizeof(sample.kind));
    return stream << static_cast<unsigned long long>(sample.thousandths);
}

bool readSample(const CVQByteStream& stream, SSample& sample) {
    stream >> sample.time;
    if (!readText(stream, sample.series) || !readText(stream, sample.unit)) {
        return false;
    }
    unsigned long long value = 0;
    stream >> sample.kind >> value;
    sample.thousandths = static_cast<long long>(value);
    return !stream.isEndOfData() && (sample.kind == SSample::GAUGE || sample.kind == SSample::COUNTER);
}
