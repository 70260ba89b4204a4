// A configuration file in sections, and fixed-point numbers where there is no floating-point unit.
#include <CVQConfigFileParser.h>
#include <CVQFix16.h>
#include <CVQString.h>
#include <CVQVersion.h>
#include <cstdio>
#include <cstdlib>

namespace {

enum ESection : unsigned short { GENERAL, SENSORS };

class CSettings final : public CVQConfigFileParser::ICallback {
public:
    bool processConfigFileEntry(unsigned short section, const char* line) override {
        if (section == SENSORS) {
            const CVQFix16 volts(std::atof(line));
            mSum += volts;
            std::printf("sensor: %s -> raw %d\n", line, volts.getRaw());
        } else {
            std::printf("general: %s\n", line);
        }
        return true;  // go on
    }
    double sum() const { return mSum.toDouble(); }

private:
    CVQFix16 mSum;
};

}  // namespace

int main(int argc, char** argv) {
    const CVQVersion version(1, 4, 2);
    std::printf("version %d.%d.%d\n", static_cast<int>(version.getMajor()), static_cast<int>(version.getMinor()),
                static_cast<int>(version.getRevision()));
    CSettings settings;
    CVQConfigFileParser parser;
    parser.addSectionCallback("general", GENERAL, &settings);
    parser.addSectionCallback("sensors", SENSORS, &settings);
    if (argc != 2 || !parser.parse(argv[1])) {
        std::printf("usage: guide_util FILE\n");
        return 1;
    }
    std::printf("sum: %g V\n", settings.sum());
}
