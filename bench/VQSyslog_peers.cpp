// syslog() of the C library, with a log socket of its own.
#include "LogSocket.h"

#include <sched.h>
#include <sys/mount.h>
#include <syslog.h>

namespace {

// syslog() always writes to /dev/log, so that path is ours in a mount namespace that only this process sees.
bool haveOwnDevLog() {
    static const bool have = (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
                             mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                             mount("none", "/dev", "tmpfs", 0, nullptr) == 0;
    return have;
}

MARLIX_BENCH("VQSyslog_LogMsg", "syslog", 30) {
    if (!haveOwnDevLog()) {
        state.SkipWithError("needs the right to mount, for a /dev/log of its own");
        return;
    }
    bench::LogSocket logger("/dev/log");
    bench::check(logger.isBound(), "bind");
    openlog("bench", LOG_PID, LOG_USER);
    const auto log = [] { syslog(LOG_INFO, bench::kLogFormat, 7, 12u); };
    log();
    bench::check(logger.holds(bench::kLogText, logger.take()), "syslog");
    for (auto _ : state) {
        log();
        benchmark::DoNotOptimize(logger.take());
    }
    closelog();
}

MARLIX_BENCH("VQSyslog_LogMsg", "floor: send and receive of the text", 30) {
    int ends[2];
    bench::check(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) == 0, "socketpair");
    char line[256];
    const std::size_t length = std::strlen(bench::kLogText);
    for (auto _ : state) {
        benchmark::DoNotOptimize(send(ends[0], bench::kLogText, length, 0));
        benchmark::DoNotOptimize(recv(ends[1], line, sizeof line, MSG_DONTWAIT));
    }
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
