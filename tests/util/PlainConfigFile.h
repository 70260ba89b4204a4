// PlainConfigFile: the rules of a configuration file once more, step by step on the C library's lines: what the parser
// is compared with on any input.
#pragma once

#include <CVQConfigFileParser.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace plain {

/// What callbacks got: section and line.
using Lines = std::vector<std::pair<unsigned, std::string>>;

/// The lines of the registered sections; parsing stops after `most` of them.
inline Lines linesOf(const char* fileName, const std::map<std::string, unsigned>& sections, std::size_t most) {
    Lines lines;
    std::FILE* const file = std::fopen(fileName, "re");
    const unsigned* section = nullptr;
    char line[1024];
    while (file != nullptr && !std::feof(file) && !std::ferror(file)) {
        if (std::fgets(line, sizeof line, file) == nullptr)
            continue;
        std::size_t mark = 0;
        std::size_t end = std::strlen(line);
        for (;;) {
            while (mark < end && line[mark] != '#')
                ++mark;
            if (mark >= end)
                break;
            if (mark == 0 || line[mark - 1] != '\\') {
                end = mark;
                break;
            }
            for (std::size_t i = mark - 1; i < end; ++i)
                line[i] = line[i + 1];  // the terminator comes along
            --end;
            ++mark;  // two behind the "#", which is now one further in front
        }
        while (end > 0 && static_cast<signed char>(line[end - 1]) <= 32)
            --end;
        line[end] = '\0';
        if (end == 0)
            continue;
        if (line[0] == '[') {
            section = nullptr;
            const char* const close = std::strchr(line, ']');
            if (close != nullptr) {
                const auto found = sections.find(std::string(line + 1, std::size_t(close - line - 1)));
                section = found != sections.end() ? &found->second : nullptr;
            }
        } else if (section != nullptr) {
            lines.emplace_back(*section, line);
            if (lines.size() == most)
                break;
        }
    }
    if (file != nullptr)
        std::fclose(file);
    return lines;
}

/// Collects what the parser hands over, and stops it after `most` lines.
class Collector final : public CVQConfigFileParser::ICallback {
public:
    explicit Collector(std::size_t most = ~std::size_t(0)) : mMost(most) {}

    bool processConfigFileEntry(unsigned short sectionId, const char* line) override {
        lines.emplace_back(sectionId, line);
        return lines.size() < mMost;
    }

    Lines lines;

private:
    std::size_t mMost;
};

}  // namespace plain
