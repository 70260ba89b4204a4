// Color: whether a tool writes in colour.
#pragma once

#include <cstdlib>
#include <optional>
#include <string_view>

namespace tools {

enum class Color { AUTO, ALWAYS, NEVER };

inline std::optional<Color> parseColor(std::string_view word) {
    if (word == "auto")
        return Color::AUTO;
    if (word == "always")
        return Color::ALWAYS;
    if (word == "never")
        return Color::NEVER;
    return std::nullopt;
}

/// AUTO is colour on a terminal, unless NO_COLOR is set to anything but nothing.
inline bool wantsColor(Color color, bool isTerminal) {
    if (color != Color::AUTO)
        return color == Color::ALWAYS;
    const char* const refusal = std::getenv("NO_COLOR");
    return isTerminal && (refusal == nullptr || *refusal == '\0');
}

}  // namespace tools
