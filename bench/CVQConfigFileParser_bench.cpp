// CVQConfigFileParser beside the parsers in CVQConfigFileParser_peers.cpp. These hand over or store keys and values, so
// here the callback parts them.
#include "Bench.h"
#include "CVQConfigFileParser_workload.h"

#include <CVQConfigFileParser.h>

namespace {

std::string_view withoutBlanks(std::string_view text) {
    while (!text.empty() && text.front() == ' ')
        text.remove_prefix(1);
    while (!text.empty() && text.back() == ' ')
        text.remove_suffix(1);
    return text;
}

class Settings final : public CVQConfigFileParser::ICallback {
public:
    bool processConfigFileEntry(unsigned short, const char* line) override {
        const std::string_view text(line);
        const std::size_t equals = text.find('=');
        if (equals != std::string_view::npos) {
            count += withoutBlanks(text.substr(0, equals)).empty() ? 0 : 1;
            valueBytes += withoutBlanks(text.substr(equals + 1)).size();
        }
        return true;
    }

    std::size_t count = 0;
    std::size_t valueBytes = 0;
};

MARLIX_BENCH("CVQConfigFileParser_Parse", "ours", 100000) {
    const bench::ConfigFile file(std::size_t(state.range(0)));
    Settings settings;
    CVQConfigFileParser parser;
    for (std::size_t i = 0; i < file.sections(); ++i)
        parser.addSectionCallback(file.nameOf(i).c_str(), static_cast<unsigned short>(i), &settings);
    bench::check(parser.parse(file.path()), "a file that can be read");
    file.expect(settings.count, settings.valueBytes);
    for (auto _ : state)
        benchmark::DoNotOptimize(parser.parse(file.path()));
}

}  // namespace
