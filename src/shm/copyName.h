// copyName: an object's own copy of the name that it was given, to be released with delete[].
#pragma once

#include <cstring>

inline char* copyName(const char* name) {
    const std::size_t size = std::strlen(name) + 1;
    return static_cast<char*>(std::memcpy(new char[size], name, size));
}
