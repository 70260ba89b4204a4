#include "CProgress.h"

#include "Numbers.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>

namespace {

constexpr std::chrono::milliseconds kPatience{200};
constexpr std::chrono::milliseconds kInterval{100};
constexpr unsigned long long kBarWidth = 30;

std::string bar(unsigned long long bytes, unsigned long long size) {
    const unsigned long long part = std::min(bytes, size);
    const auto filled = static_cast<std::size_t>(part * kBarWidth / size);
    std::string text = "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "]";
    return text + ' ' + std::to_string(part * 100 / size) + " %  ";
}

}  // namespace

CProgress::CProgress(unsigned long long size)
    : mSize(size), mIsTerminal(isatty(STDERR_FILENO) == 1), mNext(Clock::now() + kPatience) {
}

void CProgress::show(unsigned long long bytes, unsigned long long lines) {
    const auto now = Clock::now();
    if (now < mNext)
        return;
    mNext = now + kInterval;
    mIsShown = true;
    std::fprintf(stderr, "\r\033[K%s%s, %s lines", mSize != 0 ? bar(bytes, mSize).c_str() : "",
                 withUnit(bytes).c_str(), grouped(lines).c_str());
}

void CProgress::clear() {
    if (mIsShown)
        std::fputs("\r\033[K", stderr);
    mIsShown = false;
}
