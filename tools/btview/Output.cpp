#include "Output.h"

#include "tools/PrintableText.h"

#include <cstdio>

namespace btview {
namespace {

constexpr char kBold[] = "\033[1m";
constexpr char kFaint[] = "\033[2m";
constexpr char kFunction[] = "\033[33m";
constexpr char kFile[] = "\033[32m";
constexpr char kPlain[] = "\033[m";

class Painter {
public:
    explicit Painter(bool hasColor) : mHasColor(hasColor) {}

    std::string operator()(const char* color, const std::string& text) const {
        return mHasColor && !text.empty() ? color + text + kPlain : text;
    }

private:
    bool mHasColor;
};

/// Very early in a process its program has no name yet.
std::string leafOf(const std::string& path) {
    return path.empty() ? "the program" : tools::printableText(path.substr(path.rfind('/') + 1));
}

std::string lineOf(const std::string& head, const Place& place, const std::string& tail, const Painter& paint) {
    std::string line = head;
    line += place.function.empty() ? "??" : paint(kFunction, tools::printableText(place.function));
    if (!place.file.empty()) {
        std::string where = tools::printableText(place.file);
        where += place.line != 0 ? ':' + std::to_string(place.line) : "";
        line += " at " + paint(kFile, where);
    }
    return line + tail + '\n';
}

}  // namespace

std::string format(const Backtrace& backtrace, const std::vector<Frame>& frames, bool hasColor) {
    const Painter paint(hasColor);
    std::string text = paint(kBold, tools::printableText(backtrace.message)) + '\n';
    text += paint(kFaint, tools::printableText(backtrace.identification)) + '\n';
    int number = 0;
    for (const Frame& frame : frames) {
        char head[64];
        std::snprintf(head, sizeof head, "#%-3d", number++);
        char address[32];
        std::snprintf(address, sizeof address, "%0*llX", 2 * backtrace.wordSize,
                      static_cast<unsigned long long>(frame.address));
        const std::string from =
            frame.object != nullptr ? " in " + leafOf(frame.object->name) : " in no object of the map";
        for (std::size_t i = 0; i < frame.places.size(); ++i) {
            const bool isInlined = i + 1 < frame.places.size();
            text += lineOf(head + paint(kFaint, address) + ' ', frame.places[i],
                           isInlined ? paint(kFaint, " inlined") : paint(kFaint, from), paint);
        }
    }
    return text;
}

}  // namespace btview
