// viewer: shows a recording as a table with small plots and, if asked to, as a page for a browser.
//
// Read it from here: the CHistory reads the recording back and makes courses of its samples; Terminal and Page draw
// them.
#include "shared/CArguments.h"
#include "viewer/CHistory.h"
#include "viewer/Numbers.h"
#include "viewer/Page.h"
#include "viewer/Terminal.h"

#include <CVQFileHandle.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr char kHelp[] =
    R"(Usage: viewer [option...] FOLDER|FILE

Shows what was recorded into a folder, or what is in one file of it. When a
part of it is damaged or cut short, the rest is shown.

  --html=FILE   writes a page for a browser as well
  --width=N     columns to use, 60 to 400; by default those of the terminal
  @FILE         more options, each on a line in the section [COMMANDLINE]
  -h, --help    this text

Exit status: 0 when the recording is whole, 1 when blocks of it are damaged,
cut short, missing or there twice, and when it cannot be shown; 2 for a wrong
command line.
)";

constexpr unsigned kNarrowest = 60;
constexpr unsigned kWidest = 400;

unsigned getTerminalWidth() {
    winsize size{};
    const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
    return isKnown ? std::clamp<unsigned>(size.ws_col, kNarrowest, 160) : 100;
}

bool isColourUnwanted() {
    const char* const wish = std::getenv("NO_COLOR");
    return wish != nullptr && *wish != '\0';
}

int fail(const char* what, const char* why) {
    std::fprintf(stderr, "viewer: %s%s\n", what, why);
    return 1;
}

bool writePage(const CVQPath& path, const CHistory& history) {
    constexpr int kTimeoutMs = 5000;
    CVQOTextStream page(1 << 16);
    appendPage(page, history);
    CVQFileHandle file(path, O_WRONLY | O_CREAT | O_TRUNC);
    return file.isOpen() && file.writeN(page.c_str(), static_cast<unsigned>(page.getLength()), kTimeoutMs);
}

/// Tells why the recording is not whole. The exit status.
int judge(const CHistory& history) {
    int status = 0;
    for (const CVQString& damage : history.getDamages()) {
        status = fail("damaged: ", damage.c_str());
    }
    if (history.getMissingCount() != 0) {
        status = fail("missing: ", counted(history.getMissingCount(), "block").c_str());
    }
    if (history.getDoubledCount() != 0) {
        status = fail("damaged: ", "some blocks are there twice");
    }
    return status;
}

int show(const CHistory& history, const SLook& look, const char* page) {
    if (page != nullptr && !writePage(page, history)) {
        const char* const reason = std::strerror(errno);
        return fail((CVQString(page) + ": ").c_str(), reason);
    }
    CVQOTextStream report(4096);
    appendReport(report, history, look);
    if (std::fputs(report.c_str(), stdout) == EOF || std::fflush(stdout) != 0) {
        return fail("cannot write the table: ", std::strerror(errno));
    }
    return judge(history);
}

}  // namespace

int main() {
    const CArguments arguments("viewer", kHelp, {{"html", true}, {"width", true}}, 1, 1);
    SLook look;
    look.width = arguments.getNumber("width", kNarrowest, kWidest, getTerminalWidth());
    look.hasColour = isatty(STDOUT_FILENO) == 1 && !isColourUnwanted();
    CHistory history;
    CVQString problem;
    if (!history.load(arguments.getOperands()[0], problem)) {
        return fail(problem.c_str(), "");
    }
    return show(history, look, arguments.getText("html"));
}
