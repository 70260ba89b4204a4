#include "Options.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>

namespace btview {
namespace {

constexpr char kHelp[] =
    R"(Usage: btview [option...] FILE...

Shows the backtraces in files that assertions left (PID123.ass): for each return
address the function, the source file and the line, and the object that it lies
in. FILE may be "-" for standard input.

The objects are looked for under the names in the file's map. They must be those
that ran, as the map tells their code's place and length; those with debug
information tell lines, stripped ones the nearest name that they export.

  -d, --dir DIR         look for objects in DIR first, below it by their whole
                        path (as in a target's file system) and in it by their
                        name alone; several may be given
      --load FILE@DISP  the object FILE lay in memory DISP (hexadecimal) above its
                        own addresses, whatever the map says; several may be
                        given. The map is read as this library's host on Linux
                        writes it; of Neutrino's own the layout is not known
      --addr2line PROG  ask PROG, which takes addr2line's options; default: for
                        ARM arm-linux-gnueabihf-addr2line, else addr2line, and
                        llvm-addr2line where these are not there
  -l, --last            the last backtrace of each file only
      --color WHEN      auto (on a terminal, unless NO_COLOR is set), always, never
  -h, --help            this text

Exit status: 0 when all was found, 1 when something was not, 2 for a wrong
command line.
)";

enum LongOption { LOAD = 256, ADDR2LINE, COLOR };

constexpr option kOptions[] = {
    {"dir", required_argument, nullptr, 'd'},
    {"last", no_argument, nullptr, 'l'},
    {"load", required_argument, nullptr, LOAD},
    {"addr2line", required_argument, nullptr, ADDR2LINE},
    {"color", required_argument, nullptr, COLOR},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

[[noreturn]] void refuse(const std::string& problem) {
    std::fprintf(stderr, "btview: %s\nTry 'btview --help'.\n", problem.c_str());
    std::exit(2);
}

LoadedFile loadedFile(const std::string& word) {
    const std::size_t mark = word.rfind('@');
    const std::string digits = mark == std::string::npos ? "" : word.substr(mark + 1);
    const std::size_t prefix = digits.compare(0, 2, "0x") == 0 ? 2 : 0;
    LoadedFile file{word.substr(0, mark), 0};
    const char* const last = digits.data() + digits.size();
    const auto [end, error] = std::from_chars(digits.data() + prefix, last, file.displacement, 16);
    if (file.name.empty() || error != std::errc() || end != last)
        refuse("--load takes FILE@DISPLACEMENT, not '" + word + "'");
    return file;
}

}  // namespace

Options parseOptions(int argc, char* argv[]) {
    Options options;
    for (int found; (found = getopt_long(argc, argv, "d:lh", kOptions, nullptr)) != -1;) {
        switch (found) {
        case 'd':
            options.folders.emplace_back(optarg);
            break;
        case 'l':
            options.lastOnly = true;
            break;
        case LOAD:
            options.loaded.push_back(loadedFile(optarg));
            break;
        case ADDR2LINE:
            options.addr2line = optarg;
            break;
        case COLOR: {
            const auto color = tools::parseColor(optarg);
            if (!color)
                refuse(std::string("--color takes auto, always or never, not '") + optarg + "'");
            options.color = *color;
            break;
        }
        case 'h':
            std::fputs(kHelp, stdout);
            std::exit(0);
        default:
            std::fputs("Try 'btview --help'.\n", stderr);
            std::exit(2);
        }
    }
    options.files.assign(argv + optind, argv + argc);
    if (options.files.empty())
        refuse("which file?");
    return options;
}

}  // namespace btview
