// TVQFormatString: a formatted text in an array of fixed size, for messages that must not allocate.
//   Units    N bytes, the terminating zero byte included.
//   Errors   a text that does not fit is cut, perhaps within a character. A null or refused format gives the empty
//            text.
//   Threads  one thread at a time.
#pragma once

#include <VQExport.h>

#include <cstdarg>

namespace VQFormatStringHelper {

/// VQOperatingSystem::vsnprintf.
VQ_EXPORT int doVsnprintf(char* buffer, int size, const char* format, std::va_list arguments) VQ_PRINTF(3, 0);

}  // namespace VQFormatStringHelper

template <unsigned N>
class TVQFormatString {
public:
    static_assert(N > 0 && N <= 0x7FFFFFFF, "a place for the terminating zero byte; an int's range");

    explicit TVQFormatString(const char* format, ...) VQ_PRINTF(2, 3) {
        int result = -1;
        if (format != nullptr) {
            std::va_list arguments;
            va_start(arguments, format);
            result = VQFormatStringHelper::doVsnprintf(mText, static_cast<int>(N), format, arguments);
            va_end(arguments);
        }
        mText[result < 0 ? 0 : N - 1] = '\0';
    }

    const char* c_str() const noexcept { return mText; }
    operator const char*() const noexcept { return mText; }

private:
    char mText[N];
};
