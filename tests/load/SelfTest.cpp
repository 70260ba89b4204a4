// The load must be able to fail: each fault is made on purpose, once, and must be found and named.
#include "Supervisor.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace load {
namespace {

struct SFault {
    const char* name;
    const char* words;  // of the violation
};

const SFault kFaults[FAULTS] = {{"none", "0 violations"},
                                {"lose-request", " lost"},
                                {"double-request", "1 doubled"},
                                {"wrong-reply", "got the reply to"},
                                {"lose-pulse", "pulses sent"},
                                {"double-pulse", "pulses sent"},
                                {"leak-heap", "bytes of heap were"},
                                {"leak-descriptor", "descriptors were"},
                                {"leak-segment", "segments"},
                                {"leak-thread", "threads were"},
                                {"grow", "memory grows"},
                                {"hang", "hangs"},
                                {"assert", "on standard error"},
                                {"die", "ended by itself"}};

bool isFound(EFault fault) {
    char program[4096];
    const long length = readlink("/proc/self/exe", program, sizeof(program) - 1);
    program[length > 0 ? length : 0] = '\0';
    const std::string command = std::string("'") + program + "' " + (fault == GROW ? "5" : "3") + " --fault " +
                                kFaults[fault].name + " 2>&1";
    FILE* const output = popen(command.c_str(), "r");
    std::string violations;
    char line[512];
    while (output != nullptr && std::fgets(line, sizeof(line), output) != nullptr) {
        if (std::string(line).find("violation") != std::string::npos || std::string(line, 9) == "VIOLATION") {
            violations += line;
        }
    }
    const int status = output != nullptr ? pclose(output) : -1;
    const bool isRight = WIFEXITED(status) && WEXITSTATUS(status) == (fault == NO_FAULT ? 0 : 1) &&
                         violations.find(kFaults[fault].words) != std::string::npos;
    std::printf("%-16s %s\n", kFaults[fault].name, isRight ? "as it should be" : "NOT as it should be");
    if (!isRight) {
        std::printf("%s", violations.c_str());
    }
    std::fflush(stdout);
    return isRight;
}

}  // namespace

const char* faultName(EFault fault) {
    return kFaults[fault].name;
}

int runSelfTest() {
    int wrong = 0;
    for (int fault = NO_FAULT; fault < FAULTS; ++fault) {
        wrong += isFound(static_cast<EFault>(fault)) ? 0 : 1;
    }
    std::printf("load: %d of %d faults made on purpose were found\n", FAULTS - wrong - 1, FAULTS - 1);
    return wrong == 0 ? 0 : 1;
}

}  // namespace load
