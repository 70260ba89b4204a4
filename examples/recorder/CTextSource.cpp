#include "CTextSource.h"

#include "Interrupt.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::size_t kFirstBuffer = 1 << 17;
constexpr std::size_t kLookedAt = 1 << 16;  // bytes at the beginning that tell a text from other data
constexpr std::size_t kLongestLine = 1 << 30;
constexpr const char* kUsualTexts[] = {"/proc/kallsyms", "/usr/share/dict/words",
                                       "/usr/share/common-licenses/GPL-3"};

[[noreturn]] void fail(const std::string& name, int error) {
    throw std::runtime_error(name + ": " + std::strerror(error));
}

bool isControl(unsigned char byte) {
    return byte < 0x20 && (byte < '\b' || byte > '\r') && byte != '\033';
}

}  // namespace

CTextSource::CTextSource(const std::string& path) : mBuffer(kFirstBuffer) {
    if (path.empty())
        openDefault();
    else
        open(path);
}

CTextSource::~CTextSource() {
    if (mDescriptor > STDIN_FILENO)
        close(mDescriptor);
}

void CTextSource::open(const std::string& path) {
    mName = path == "-" ? "standard input" : path;
    mDescriptor = path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status {};
    if (mDescriptor < 0 || fstat(mDescriptor, &status) != 0)
        fail(mName, errno);
    if (S_ISDIR(status.st_mode))
        fail(mName, EISDIR);
    if (S_ISREG(status.st_mode))
        mSize = static_cast<unsigned long long>(status.st_size);
}

void CTextSource::openDefault() {
    for (const char* path : kUsualTexts) {
        if (access(path, R_OK) == 0)
            return open(path);
    }
    throw std::runtime_error("this machine has none of the usual texts; name a file");
}

bool CTextSource::getNextLine(SLine& line) {
    char* end = nullptr;
    for (;;) {
        if (mScanned < mEnd)
            end = static_cast<char*>(std::memchr(mBuffer.data() + mScanned, '\n', mEnd - mScanned));
        if (end != nullptr)
            break;
        mScanned = mEnd;
        if (fill())
            continue;
        if (mBegin == mEnd || Interrupt::hasCome())
            return false;  // a line that the interrupt cut in two is none
        break;
    }
    const bool isEnded = end != nullptr;
    char* const text = mBuffer.data() + mBegin;
    std::size_t length = isEnded ? static_cast<std::size_t>(end - text) : mEnd - mBegin;
    mBegin += length + (isEnded ? 1 : 0);
    mScanned = mBegin;
    if (isEnded && length > 0 && text[length - 1] == '\r')
        --length;
    ++mLines;
    line = {text, length};
    return true;
}

/// Reads on. False at the end of the text, or after an interrupt.
bool CTextSource::fill() {
    const CStopwatch::CScope waiting(mWaiting);
    makeRoom();
    for (;;) {
        if (!Interrupt::waitForInput(mDescriptor))
            return false;
        const ssize_t got = read(mDescriptor, mBuffer.data() + mEnd, mBuffer.size() - mEnd);
        if (got < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (got < 0)
            fail(mName, errno);
        const auto count = static_cast<std::size_t>(got);
        if (mBytesRead < kLookedAt)
            checkIsText(mBuffer.data() + mEnd, std::min<std::size_t>(count, kLookedAt - mBytesRead));
        mEnd += count;
        mBytesRead += count;
        return count > 0;
    }
}

void CTextSource::makeRoom() {
    if (mBegin > 0) {
        std::memmove(mBuffer.data(), mBuffer.data() + mBegin, mEnd - mBegin);
        mEnd -= mBegin;
        mScanned -= mBegin;
        mBegin = 0;
    }
    if (mEnd < mBuffer.size())
        return;
    if (mBuffer.size() >= kLongestLine)
        throw std::runtime_error(mName + ": line " + std::to_string(mLines + 1) + " is longer than a gibibyte");
    mBuffer.resize(2 * mBuffer.size());
}

/// A text has no zero bytes, and hardly any control characters.
void CTextSource::checkIsText(const char* bytes, std::size_t count) {
    constexpr unsigned long long kTooFewToTell = 64;
    const unsigned long long looked = mBytesRead + count;
    mControls += static_cast<unsigned long long>(std::count_if(bytes, bytes + count, isControl));
    const bool hasZeros = std::memchr(bytes, '\0', count) != nullptr;
    if (hasZeros || (looked > kTooFewToTell && mControls * 20 > looked))
        throw std::runtime_error(mName + ": this is no text, it holds binary data");
}
