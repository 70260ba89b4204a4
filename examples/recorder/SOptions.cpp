#include "SOptions.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>

namespace {

constexpr char kHelp[] =
    R"(Usage: recorder [option...] [file]

Makes a record of every line of a text: a sequence number, the time and the
text itself. The records go, serialised and in blocks, through a pipe to a
second process, which reads them back and checks them. A table tells how that
went. Lines that are not UTF-8 are cut where they go wrong; the system log
tells each time (see it with 'slogview -- recorder file').

  file                a text; "-" is standard input; by default a large text
                      that this machine has: its kernel's symbols, its words
      --block BYTES   size of a block, 262144 by default
      --spoil N       make every Nth line invalid, to see that it is noticed
      --memtrace=0|1  trace the heap (the library's own switch), by default 1
  -h, --help          this text
)";

enum ELongOption { OPTION_BLOCK = 256, OPTION_SPOIL, OPTION_OF_LIBRARY };

constexpr option kOptions[] = {
    {"block", required_argument, nullptr, OPTION_BLOCK},
    {"spoil", required_argument, nullptr, OPTION_SPOIL},
    {"memtrace", required_argument, nullptr, OPTION_OF_LIBRARY},
    {"nobreak", no_argument, nullptr, OPTION_OF_LIBRARY},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

[[noreturn]] void refuse(const std::string& problem) {
    std::fprintf(stderr, "recorder: %s\nTry 'recorder --help'.\n", problem.c_str());
    std::exit(2);
}

unsigned number(const char* name, const char* word, unsigned long largest) {
    char* end = nullptr;
    errno = 0;
    const unsigned long value = *word >= '0' && *word <= '9' ? std::strtoul(word, &end, 10) : 0;
    if (value == 0 || *end != '\0' || errno != 0 || value > largest)
        refuse(std::string(name) + " takes a number from 1 to " + std::to_string(largest) + ", not '" + word + "'");
    return static_cast<unsigned>(value);
}

}  // namespace

SOptions parseOptions(int argc, char* argv[]) {
    constexpr unsigned long kLargestBlock = 64 << 20;
    constexpr unsigned long kLargestInterval = 1000000000;
    SOptions options;
    for (int found; (found = getopt_long(argc, argv, "h", kOptions, nullptr)) != -1;) {
        switch (found) {
        case OPTION_BLOCK:
            options.blockSize = number("--block", optarg, kLargestBlock);
            break;
        case OPTION_SPOIL:
            options.spoilEvery = number("--spoil", optarg, kLargestInterval);
            break;
        case OPTION_OF_LIBRARY:  // the library has read it already
            break;
        case 'h':
            std::fputs(kHelp, stdout);
            std::exit(0);
        default:
            std::fputs("Try 'recorder --help'.\n", stderr);
            std::exit(2);
        }
    }
    if (argc - optind > 1)
        refuse("one file at a time");
    if (optind < argc)
        options.path = argv[optind];
    if (optind < argc && options.path.empty())
        refuse("a file without a name");
    return options;
}
