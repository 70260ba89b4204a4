// PlainPath: the rules of CVQPath once more, one character at a time, on texts of bytes.
#pragma once

#include <cstddef>
#include <string>

namespace plain {

inline std::string canonical(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character != '/' || result.empty() || result.back() != '/')
            result += character;
    }
    if (result.size() > 1 && result.back() == '/')
        result.pop_back();
    return result;
}

/// Where the last component of a text that is not empty begins, or the separator before it.
inline std::size_t lastComponent(const std::string& text) {
    std::size_t i = text.size() - 1;
    for (; i > 0 && text[i] == '/'; --i) {
    }
    for (; i > 0 && text[i] != '/'; --i) {
    }
    return i;
}

inline std::string leafOf(const std::string& text) {
    std::size_t i = lastComponent(text);
    for (; i < text.size() && text[i] == '/'; ++i) {
    }
    return text.substr(i);
}

inline std::string branchOf(const std::string& text) {
    const std::size_t i = lastComponent(text);
    return i == 0 && text[0] == '/' ? "/" : text.substr(0, i);
}

/// Both have no zero byte.
inline std::string joined(const std::string& left, const std::string& right) {
    const std::string both = left + '/' + right;
    return both.size() < 1024 ? both : "";
}

}  // namespace plain
