#include "SOptions.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

/// The value behind "--name=" or, for a plain "--name", the next word. Null for any other option.
const char* valueOf(const char* name, int& index, char* argv[]) {
    const char* const word = argv[index];
    const std::size_t length = std::strlen(name);
    if (std::strncmp(word, name, length) != 0)
        return nullptr;
    if (word[length] == '=')
        return word + length + 1;
    if (word[length] != '\0')
        return nullptr;
    if (argv[index + 1] == nullptr)
        refuse(std::string(name) + " takes a value");
    return argv[++index];
}

bool isForLibrary(const char* word) {
    return std::strncmp(word, "--memtrace=", 11) == 0 || std::strcmp(word, "--nobreak") == 0;
}

bool isOption(const char* word) {
    return word[0] == '-' && word[1] != '\0';
}

}  // namespace

SOptions parseOptions(int argc, char* argv[]) {
    constexpr unsigned long kLargestBlock = 64 << 20;
    constexpr unsigned long kLargestInterval = 1000000000;
    SOptions options;
    bool hasFile = false;
    bool isAllFiles = false;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (isAllFiles || !isOption(argv[i])) {
            if (word.empty())
                refuse("a file without a name");
            if (hasFile)
                refuse("one file at a time");
            options.path = word;
            hasFile = true;
        } else if (word == "-h" || word == "--help") {
            std::fputs(kHelp, stdout);
            std::exit(0);
        } else if (word == "--") {
            isAllFiles = true;
        } else if (const char* const block = valueOf("--block", i, argv)) {
            options.blockSize = number("--block", block, kLargestBlock);
        } else if (const char* const interval = valueOf("--spoil", i, argv)) {
            options.spoilEvery = number("--spoil", interval, kLargestInterval);
        } else if (!isForLibrary(argv[i])) {
            refuse("unknown option '" + word + "'");
        }
    }
    return options;
}
