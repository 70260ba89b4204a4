#include "Options.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>

namespace slogview {
namespace {

constexpr char kHelp[] =
    R"(Usage: slogview [option...]
       slogview [option...] [--] program [argument...]

Shows, live, what programs write to the system log. A program writes to this
viewer when its variable NTO_SLOG names the viewer's socket. Given a program,
slogview starts it that way, shows its log on standard error, ends with it and
passes on its exit status.

  -s, --socket PATH     own this socket; default: $NTO_SLOG, else "slog" in
                        $XDG_RUNTIME_DIR, else /tmp/slog-UID; with a program
                        a socket of its own

Show only records that pass all of these:
      --severity LEVEL  as severe as LEVEL or worse: shutdown, critical, error,
                        warning, notice, info, debug1, debug2, or 0 to 7
      --pid PID         from this process; several may be given
      --code CODE[/SUB] with this code (and sub code)
      --text TEXT       with TEXT in the text; several must all be there

End after:
      --count N         N records were shown
      --for SECONDS     this time, such as 2.5

Output:
      --color WHEN      auto (on a terminal, unless NO_COLOR is set), always, never
  -q, --quiet           records only: no words about socket and totals
  -h, --help            this text

Exit status: without a program 0; with one the program's, or 128 and the number
of the signal that ended it, 127 when it is not there, 126 when it cannot be
started otherwise. 1 when it cannot listen, 2 for a wrong command line.
)";

enum LongOption { SEVERITY = 256, PID, CODE, TEXT, COUNT, FOR, COLOR };

constexpr option kOptions[] = {
    {"socket", required_argument, nullptr, 's'},
    {"severity", required_argument, nullptr, SEVERITY},
    {"pid", required_argument, nullptr, PID},
    {"code", required_argument, nullptr, CODE},
    {"text", required_argument, nullptr, TEXT},
    {"count", required_argument, nullptr, COUNT},
    {"for", required_argument, nullptr, FOR},
    {"color", required_argument, nullptr, COLOR},
    {"quiet", no_argument, nullptr, 'q'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

[[noreturn]] void refuse(const std::string& problem) {
    std::fprintf(stderr, "slogview: %s\nTry 'slogview --help'.\n", problem.c_str());
    std::exit(2);
}

std::optional<unsigned long> parseNumber(const std::string& word, unsigned long largest) {
    if (word.empty() || !std::all_of(word.begin(), word.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return std::nullopt;
    errno = 0;
    const unsigned long number = std::strtoul(word.c_str(), nullptr, 10);
    if (errno != 0 || number > largest)
        return std::nullopt;
    return number;
}

unsigned long number(const char* name, const char* word, unsigned long smallest, unsigned long largest) {
    const auto parsed = parseNumber(word, largest);
    if (!parsed || *parsed < smallest)
        refuse(std::string(name) + " takes a number from " + std::to_string(smallest) + " to " +
               std::to_string(largest) + ", not '" + word + "'");
    return *parsed;
}

int severity(const char* word) {
    const auto parsed = parseSeverity(word);
    if (!parsed)
        refuse(std::string("no severity is called '") + word + "'");
    return *parsed;
}

void setCode(Filter& filter, const std::string& word) {
    const std::size_t slash = word.find('/');
    const auto code = parseNumber(word.substr(0, slash), 0xFFFFF);
    if (!code)
        refuse("--code takes CODE or CODE/SUB, not '" + word + "'");
    filter.code = static_cast<unsigned>(*code);
    if (slash == std::string::npos)
        return;
    const auto subCode = parseNumber(word.substr(slash + 1), 0xFFF);
    if (!subCode)
        refuse("--code takes CODE or CODE/SUB, not '" + word + "'");
    filter.subCode = static_cast<unsigned>(*subCode);
}

std::chrono::milliseconds duration(const char* word) {
    constexpr double kLongestSeconds = 1e9;
    char* end = nullptr;
    const double seconds = std::strtod(word, &end);
    if (end == word || *end != '\0' || !(seconds > 0) || seconds > kLongestSeconds)
        refuse(std::string("--for takes a number of seconds above 0, not '") + word + "'");
    return std::chrono::milliseconds(std::max(1LL, std::llround(seconds * 1000)));
}

Color color(const std::string& word) {
    const auto parsed = tools::parseColor(word);
    if (!parsed)
        refuse("--color takes auto, always or never, not '" + word + "'");
    return *parsed;
}

}  // namespace

bool Filter::passes(const LogEntry& entry) const {
    const auto& header = entry.header;
    return header.severity <= leastSeverity &&
           (processes.empty() || std::find(processes.begin(), processes.end(), header.pid) != processes.end()) &&
           (!code || *code == host::slogMajor(header)) && (!subCode || *subCode == host::slogMinor(header)) &&
           std::all_of(texts.begin(), texts.end(),
                       [&](const std::string& text) { return entry.payload.find(text) != std::string_view::npos; });
}

Options parseOptions(int argc, char* argv[]) {
    constexpr unsigned long kLargestCount = 1000000000;
    constexpr unsigned long kLargestPid = 1 << 30;
    Options options;
    // "+": the first word that is no option is the program, and what follows belongs to it.
    for (int found; (found = getopt_long(argc, argv, "+s:qh", kOptions, nullptr)) != -1;) {
        switch (found) {
        case 's':
            options.socketPath = optarg;
            if (options.socketPath.empty())
                refuse("--socket takes a path");
            break;
        case SEVERITY:
            options.filter.leastSeverity = severity(optarg);
            break;
        case PID:
            options.filter.processes.push_back(static_cast<pid_t>(number("--pid", optarg, 1, kLargestPid)));
            break;
        case CODE:
            setCode(options.filter, optarg);
            break;
        case TEXT:
            options.filter.texts.emplace_back(optarg);
            break;
        case COUNT:
            options.count = number("--count", optarg, 1, kLargestCount);
            break;
        case FOR:
            options.duration = duration(optarg);
            break;
        case COLOR:
            options.color = color(optarg);
            break;
        case 'q':
            options.quiet = true;
            break;
        case 'h':
            std::fputs(kHelp, stdout);
            std::exit(0);
        default:
            std::fputs("Try 'slogview --help'.\n", stderr);
            std::exit(2);
        }
    }
    if (optind < argc)
        options.command.assign(argv + optind, argv + argc + 1);  // with the null pointer behind the last
    if (options.hasCommand() && (options.count || options.duration))
        refuse("--count and --for do not go with a program, which itself says when to end");
    return options;
}

}  // namespace slogview
