// PathOf: the path that a text of bytes names.
#pragma once

#include <CVQPath.h>

#include <string>

inline CVQPath pathOf(const std::string& text) {
    return CVQString(text.c_str(), text.size());
}
