// CVQConfigFileParser_workload: the file that every parser gets, and what there is to find in it.
#pragma once

#include "Bench.h"

#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <unistd.h>

namespace bench {

/// A file of sections, keys with values, comment lines and empty lines, removed at the end.
class ConfigFile {
public:
    explicit ConfigFile(std::size_t lines) {
        const int descriptor = mkstemp(mPath);
        check(descriptor >= 0, "a temporary file");
        close(descriptor);
        std::ofstream file(mPath);
        for (std::size_t line = 0; line < lines; ++line) {
            if (line % kLinesPerSection == 0) {
                file << '[' << nameOf(line / kLinesPerSection) << "]\n";
            } else if (line % 10 == 5) {
                file << "# what the settings below are for, and who asked for them\n";
            } else if (line % 10 == 6) {
                file << '\n';
            } else {
                const std::string value = "some value " + std::to_string(line * 7919 % 100003);
                file << "setting." << line % kLinesPerSection << " = " << value << '\n';
                ++mSettings;
                mValueBytes += value.size();
            }
        }
        mSections = (lines + kLinesPerSection - 1) / kLinesPerSection;
        check(file.flush().good(), "a written file");
    }
    ~ConfigFile() { unlink(mPath); }
    ConfigFile(const ConfigFile&) = delete;
    ConfigFile& operator=(const ConfigFile&) = delete;

    static std::string nameOf(std::size_t section) { return "section " + std::to_string(section); }

    const char* path() const { return mPath; }
    std::size_t sections() const { return mSections; }

    /// Checks what a parser counted.
    void expect(std::size_t settings, std::size_t valueBytes) const {
        check(settings == mSettings && valueBytes == mValueBytes, "all settings of the file");
    }

private:
    static constexpr std::size_t kLinesPerSection = 1000;

    char mPath[32] = "/tmp/marlix-bench-XXXXXX";
    std::size_t mSections = 0;
    std::size_t mSettings = 0;
    std::size_t mValueBytes = 0;
};

}  // namespace bench
