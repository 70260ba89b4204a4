// VQSyslog::logMsg beside syslog().
#include "LogSocket.h"

#include <VQSyslog.h>

namespace {

MARLIX_BENCH("VQSyslog_LogMsg", "ours", 30) {
    const std::string path = "/tmp/marlix-bench-" + std::to_string(getpid());
    bench::LogSocket logger(path);
    bench::check(logger.isBound(), "bind");
    setenv("NTO_SLOG", path.c_str(), 1);
    const auto log = [] { VQSyslog::logMsg(0, VQSyslog::INFO, bench::kLogFormat, 7, 12u); };
    log();
    bench::check(logger.holds(bench::kLogText, logger.take()), "logMsg");
    for (auto _ : state) {
        log();
        benchmark::DoNotOptimize(logger.take());
    }
}

}  // namespace
