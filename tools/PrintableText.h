// PrintableText: anybody's bytes as one line that a terminal shows and does not obey.
#pragma once

#include <string>
#include <string_view>

namespace tools {

/// Valid UTF-8 as it is, escape sequences in place of control characters, of characters that reorder a line, and of
/// bytes that are no text.
std::string printableText(std::string_view text);

}  // namespace tools
