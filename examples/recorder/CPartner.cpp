#include "CPartner.h"

#include "Interrupt.h"
#include "recording.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct SPipe {
    int read;
    int write;
};

SPipe makePipe() {
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error(std::string("cannot make a pipe: ") + std::strerror(errno));
    return {ends[0], ends[1]};
}

[[noreturn]] void runPartner(CPipeIStream& blocks, CPipeOStream& report) {
    Interrupt::ignore();  // it lives as long as there are records to come
    const STotals totals = readRecords(blocks);
    report << totals;
    if (report.isBroken())
        std::fprintf(stderr, "recorder: the writing process died; %s\n", totals.problem.c_str());
    _exit(totals.problem.isEmpty() && !report.isBroken() ? 0 : 1);
}

std::string describe(int status) {
    if (WIFSIGNALED(status))
        return "it was ended by signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) +
               ')';
    return "it ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

CPartner::CPartner() {
    const SPipe blocks = makePipe();
    const SPipe report = makePipe();
    mProcess = fork();
    if (mProcess < 0)
        throw std::runtime_error(std::string("cannot start the reading process: ") + std::strerror(errno));
    if (mProcess == 0) {
        close(blocks.write);
        close(report.read);
        CPipeIStream incoming(blocks.read);
        CPipeOStream outgoing(report.write);
        runPartner(incoming, outgoing);
    }
    close(blocks.read);
    close(report.write);
    mBlocks.emplace(blocks.write);
    mReport.emplace(report.read);
}

CPartner::~CPartner() {
    mBlocks->close();
    if (mProcess > 0)
        wait();
}

STotals CPartner::finish() {
    STotals totals;
    *mReport >> totals;
    mBlocks->close();
    const int status = wait();
    if (mReport->isBroken())
        throw std::runtime_error("the reading process died: " + describe(status));
    if (!totals.problem.isEmpty())
        throw std::runtime_error(std::string("the reading process stopped: ") + totals.problem.c_str());
    return totals;
}

int CPartner::wait() {
    int status = 0;
    while (waitpid(mProcess, &status, 0) < 0 && errno == EINTR) {
    }
    mProcess = -1;
    return status;
}
