#include "Screen.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <poll.h>
#include <unistd.h>

namespace slogview {
namespace {

constexpr std::size_t kTimeWidth = 14;
constexpr std::size_t kSeverityWidth = 10;
constexpr std::size_t kCodeWidth = 10;
constexpr std::size_t kIdWidth = 9;
constexpr std::size_t kEnough = 1 << 16;  // bytes to gather before they are written

constexpr char kClearLine[] = "\r\033[K";
constexpr char kPlain[] = "\033[m";
constexpr char kFaint[] = "\033[2m";

const char* colorOf(int severity) {
    if (severity < 0 || severity > 7)
        return "\033[35m";
    constexpr const char* kColors[] = {"\033[1;37;41m", "\033[1;31m", "\033[31m", "\033[33m",
                                       "\033[36m",      "\033[32m",   kFaint,     kFaint};
    return kColors[severity];
}

}  // namespace

Screen::Screen(int descriptor, Color color, bool shared)
    : mDescriptor(descriptor), mIsTerminal(isatty(descriptor) == 1),
      mHasColor(tools::wantsColor(color, mIsTerminal)), mClearsLine(shared && mIsTerminal) {
}

void Screen::show(const LogEntry& entry) {
    const auto& header = entry.header;
    if (mIsTerminal && !mHasHead) {
        mPending += mClearsLine ? kClearLine : "";
        mPending += mHasColor ? kFaint : "";
        mPending += "time          severity  code        process   thread  text";
        mPending += mHasColor ? kPlain : "";
        mPending += '\n';
        mHasHead = true;
    }
    if (mClearsLine)
        mPending += kClearLine;
    std::string code = std::to_string(host::slogMajor(header));
    if (host::slogMinor(header) != 0)
        code += '/' + std::to_string(host::slogMinor(header));
    appendTime(header.timeNs);
    appendSeverity(header.severity);
    appendColumn(code, kCodeWidth);
    for (const int id : {header.pid, header.tid}) {
        const std::string digits = std::to_string(id);
        mPending.append(kIdWidth - std::min(kIdWidth, digits.size()), ' ');
        mPending += digits;
    }
    mPending += "  " + printable(entry) + '\n';
    if (mPending.size() >= kEnough)
        flush();
}

bool Screen::flush() {
    std::size_t written = 0;
    while (written < mPending.size()) {
        const ssize_t taken = write(mDescriptor, mPending.data() + written, mPending.size() - written);
        if (taken >= 0) {
            written += static_cast<std::size_t>(taken);
        } else if (errno == EAGAIN) {  // a terminal that the program made non-blocking
            pollfd room{mDescriptor, POLLOUT, 0};
            poll(&room, 1, -1);
        } else if (errno != EINTR) {
            mPending.clear();
            return false;
        }
    }
    mPending.clear();
    return true;
}

void Screen::appendTime(unsigned long long nanoseconds) {
    const auto seconds = static_cast<std::time_t>(nanoseconds / 1000000000);
    char text[32] = "--:--:--.---";
    std::tm local{};
    if (localtime_r(&seconds, &local) != nullptr)
        std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03u", local.tm_hour, local.tm_min, local.tm_sec,
                      static_cast<unsigned>(nanoseconds / 1000000 % 1000));
    appendColumn(text, kTimeWidth);
}

void Screen::appendColumn(const std::string& text, std::size_t width) {
    mPending += text;
    mPending.append(text.size() < width ? width - text.size() : 1, ' ');
}

void Screen::appendSeverity(int severity) {
    if (!mHasColor)
        return appendColumn(severityName(severity), kSeverityWidth);
    const std::string name = severityName(severity);
    mPending += colorOf(severity) + name + kPlain;
    mPending.append(name.size() < kSeverityWidth ? kSeverityWidth - name.size() : 1, ' ');
}

}  // namespace slogview
