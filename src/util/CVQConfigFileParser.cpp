#include <CVQConfigFileParser.h>

#include <CVQFileHandle.h>
#include <TVQErrnoSafeFunction.h>
#include <VQAlgorithm.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr std::size_t kPieceMax = 1023;  // bytes of a line that are handled at a time, its end included
constexpr std::size_t kBufferSize = 8192;

/// Reads a file line by line into a buffer, where the lines may be changed.
class CVQLineReader {
public:
    explicit CVQLineReader(int descriptor) : mDescriptor(descriptor) {}

    /// The next line, or the next piece of one that is too long, zero-terminated and without its end; null at the end
    /// of the file and after a read error, which also drops the line that it cut off.
    char* next() {
        mBuffer[mBegin] = mCovered;
        for (;;) {
            const char* const line = mBuffer + mBegin;
            const std::size_t bytes = std::min(mEnd - mBegin, kPieceMax);
            if (const void* const lineEnd = std::memchr(line, '\n', bytes); lineEnd != nullptr) {
                return take(static_cast<std::size_t>(static_cast<const char*>(lineEnd) - line), 1);
            }
            if (bytes == kPieceMax || (mAtEnd && bytes != 0)) {
                return take(bytes, 0);
            }
            if (mAtEnd) {
                return nullptr;
            }
            fill();
        }
    }

private:
    char* take(std::size_t bytes, std::size_t endBytes) {
        char* const line = mBuffer + mBegin;
        mBegin += bytes + endBytes;
        mCovered = mBuffer[mBegin];  // where a piece ends without a line end, its terminator covers the next one
        line[bytes] = '\0';
        return line;
    }

    void fill() {
        std::memmove(mBuffer, mBuffer + mBegin, mEnd - mBegin);
        mEnd -= mBegin;
        mBegin = 0;
        const ssize_t bytes = TVQErrnoSafeFunction(&::read)(mDescriptor, mBuffer + mEnd, kBufferSize - mEnd);
        mAtEnd = bytes <= 0;
        mEnd = bytes < 0 ? 0 : mEnd + static_cast<std::size_t>(bytes);
        mBuffer[mEnd] = '\0';
    }

    const int mDescriptor;
    bool mAtEnd = false;
    char mCovered = '\0';
    std::size_t mBegin = 0;
    std::size_t mEnd = 0;
    char mBuffer[kBufferSize + 1];
};

/// Takes the backslashes before "#" out of `line`. Returns where its content ends: at its comment or its end.
char* removeEscapes(char* line) {
    char* end = line + std::strlen(line);  // Kept: config-zero-byte.
    char* mark = std::strchr(line, '#');
    while (mark != nullptr) {
        if (mark == line || mark[-1] != '\\') {
            return mark;
        }
        std::memmove(mark - 1, mark, static_cast<std::size_t>(end - mark) + 1);
        --end;
        // Kept: config-after-escape. `mark` stands on the character behind the "#" that moved.
        mark = mark < end ? std::strchr(mark + 1, '#') : nullptr;
    }
    return end;
}

/// Leaves of `line` what a callback is to see.
void strip(char* line) {
    char* end = removeEscapes(line);
    // Kept: config-trim-bytes. Bytes from 0x80 on are negative.
    while (end != line && static_cast<signed char>(end[-1]) <= ' ') {
        --end;
    }
    *end = '\0';
}

}  // namespace

bool CVQConfigFileParser::addSectionCallback(const CVQString& name, unsigned short sectionId, ICallback* callback) {
    return mSections.insert(name, SSectionInfo{sectionId, callback});
}

const CVQConfigFileParser::SSectionInfo* CVQConfigFileParser::findSection(const char* name) const {
    // The name is compared as bytes: as a string it would be reported, and cut, where it is no valid text.
    using SEntry = decltype(mSections)::SEntry;
    const auto isBefore = [](const SEntry& entry, const char* sought) {
        return std::strcmp(entry.key.c_str(), sought) < 0;
    };
    const SEntry* const found = VQAlgorithm::lowerBound(mSections.begin(), mSections.end(), name, isBefore);
    const std::size_t bytes = std::strlen(name);
    const bool isThere = found != mSections.end() && found->key.getByteLength() == bytes &&
                         std::memcmp(found->key.c_str(), name, bytes) == 0;
    return isThere ? &found->value : nullptr;
}

bool CVQConfigFileParser::parse(const CVQString& fileName) {
    const CVQFileHandle file(fileName, O_RDONLY | O_CLOEXEC);
    if (!file.isOpen()) {
        return false;
    }
    CVQLineReader reader(file.getDescriptor());
    SSectionInfo section{0, nullptr};  // a copy: a callback may register further sections
    while (char* const line = reader.next()) {
        strip(line);
        if (*line == '[') {
            char* const nameEnd = std::strchr(line, ']');
            const SSectionInfo* found = nullptr;
            if (nameEnd != nullptr) {
                *nameEnd = '\0';
                found = findSection(line + 1);
            }
            section = found != nullptr ? *found : SSectionInfo{0, nullptr};
        } else if (*line != '\0' && section.callback != nullptr &&
                   !section.callback->processConfigFileEntry(section.sectionId, line)) {
            break;
        }
    }
    return true;
}
