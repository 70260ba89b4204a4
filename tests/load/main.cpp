// load: strings, buffers, locks, semaphores, barriers, conditions, channels, timers and segments at once, in four
// processes of eight threads each, under a storm of signals, while workers are killed and started again at random.
//   Result   0 when no message was lost or doubled, nothing leaked, memory stayed constant, nobody hung and nobody
//            said anything on standard error.
#include "Supervisor.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

int usage(int status) {
    std::fprintf(status == 0 ? stdout : stderr,
                 "usage: load [SECONDS] [--seed NUMBER] [--fault NAME]\n"
                 "       load --self-test\n\n"
                 "  SECONDS      how long (120)\n"
                 "  --seed       of what is killed when (1)\n"
                 "  --fault      make a fault on purpose; the load then fails\n"
                 "  --self-test  make each fault, and see that it is found\n\nfaults:");
    for (int fault = 1; fault < load::FAULTS; ++fault) {
        std::fprintf(status == 0 ? stdout : stderr, " %s", load::faultName(static_cast<load::EFault>(fault)));
    }
    std::fprintf(status == 0 ? stdout : stderr, "\n");
    return status;
}

bool readNumber(const char* word, unsigned& number) {
    char* end = nullptr;
    const unsigned long value = std::strtoul(word, &end, 10);
    number = static_cast<unsigned>(value);
    return end != word && *end == '\0' && value > 0 && value <= 1000000;
}

bool readFault(const char* word, load::EFault& fault) {
    for (int i = 0; i < load::FAULTS; ++i) {
        if (std::strcmp(word, load::faultName(static_cast<load::EFault>(i))) == 0) {
            fault = static_cast<load::EFault>(i);
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 6 && std::strcmp(argv[2], "--process") == 0) {
        return load::runProcess(std::atoi(argv[3]), std::atoi(argv[4]), static_cast<unsigned>(std::atoi(argv[5])));
    }
    load::SOptions options;
    for (int i = 1; i < argc; ++i) {
        const char* const word = argv[i];
        const char* const next = i + 1 < argc ? argv[i + 1] : "";
        if (std::strcmp(word, "--help") == 0 || std::strcmp(word, "-h") == 0) {
            return usage(0);
        }
        if (std::strcmp(word, "--self-test") == 0) {
            return load::runSelfTest();
        }
        const bool isSeed = std::strcmp(word, "--seed") == 0 && readNumber(next, options.seed);
        const bool isFault = std::strcmp(word, "--fault") == 0 && readFault(next, options.fault);
        if (isSeed || isFault) {
            ++i;
        } else if (!readNumber(word, options.seconds)) {
            return usage(2);
        }
    }
    return load::runLoad(options);
}
