// ErrorText: the platform's words for an error number, in every line that shows one.
#pragma once

#include <cstring>

/// Never null: "unknown" where the platform has no text.
inline const char* errorText(int error) {
    const char* const text = std::strerror(error);
    return text != nullptr ? text : "unknown";
}
