// A record's way through bytes: written with <<, checked with a CRC, read with >>, and what happens when bytes lack.
#include <CVQByteStream.h>
#include <CVQCRC.h>
#include <CVQString.h>
#include <cstdio>

namespace {

struct SSample {
    unsigned number = 0;
    CVQString sensor;
    unsigned millivolts = 0;
};

IVQOStream& operator<<(IVQOStream& stream, const SSample& sample) {
    return stream << sample.number << sample.sensor << sample.millivolts;
}

const IVQIStream& operator>>(const IVQIStream& stream, SSample& sample) {
    return stream >> sample.number >> sample.sensor >> sample.millivolts;
}

}  // namespace

int main() {
    CVQByteStream out;
    out << SSample{7, "gas", 250};
    CVQString bytes;
    out.dump(bytes);

    CVQCRC crc(CVQCRC::CRC32);
    crc.addBytes(out.getData(), out.getLength());
    std::printf("%u bytes: %s\nCRC-32 %08X\n", out.getLength(), bytes.c_str(), crc.getCRC());

    SSample sample;
    out >> sample;
    std::printf("%u: %s, %u mV\n", sample.number, sample.sensor.c_str(), sample.millivolts);

    const CVQByteStream cut(out.getMemoryBuffer(), 10);  // the text ends after 2 of its 3 bytes
    cut >> sample;
    std::printf("cut: text \"%s\", end of data: %s\n", sample.sensor.c_str(), cut.isEndOfData() ? "yes" : "no");
}
