// sampler: reads devices of the system on their periods and sends what it read, in blocks, to a recorder.
//
// Read it from here: a CProbe is a timer that reads its device and makes samples; a CBlockBuilder gathers them; the
// blocks go through a CBlockQueue to the CSender, which does not give up one before the recorder has it.
#include "sampler/CProgress.h"
#include "shared/CArguments.h"
#include "shared/StopSignals.h"

#include <VQFileOperations.h>
#include <VQOperatingSystem.h>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr char kHelp[] =
    R"(Usage: sampler [option...] CONFIG FOLDER

Reads what the file CONFIG names and sends it to the recorder that serves
FOLDER. While there is none the samples wait. Ctrl-C ends it.

  --seconds=N       ends after so many seconds
  --block=BYTES     size of a block, 256 to 1048576; by default 16384
  --age=MS          a block is sent when it is that old, by default 250
  --deadline=MS     how long to wait for the recorder's answer before the block
                    is sent again, by default 1000
  --waiting=N       how many blocks may wait, by default 256
  --tell            a line for each block that was accepted
  @FILE             more options, each on a line in the section [COMMANDLINE]
  -h, --help        this text

CONFIG has two sections; a # begins a comment:

  [devices]
  # path            period, ms   file that stands behind it
  /dev/live/memory  100          /proc/meminfo

  [series]
  # name       device            row        field  kind   scale  unit
  memory.free  /dev/live/memory  MemFree    1      gauge  1024   B

A series is the number in a field (0 is the first) of the rows of that name,
times the scale; the row * is all rows, of which the sum is taken. A counter
is shown as what it adds in a second, a gauge as it is.
)";

SSamplerOptions readOptions(const CArguments& arguments) {
    SSamplerOptions options;
    options.folder = arguments.getOperands()[1];
    options.blockSize = arguments.getNumber("block", CBlockBuilder::kSmallestBlock, 1 << 20, 16384);
    options.blockAgeMs = arguments.getNumber("age", 1, CSamplerConfig::kLongestPeriodMs, 250);
    options.deadlineMs = arguments.getNumber("deadline", 1, 60000, 1000);
    options.waitingBlocks = arguments.getNumber("waiting", 1, 65536, 256);
    options.tellsEach = arguments.isSet("tell");
    return options;
}

int fail(const CVQString& problem) {
    std::fprintf(stderr, "sampler: %s\n", problem.c_str());
    return 1;
}

/// Returns when it is time to end.
void watch(CSampler& sampler, unsigned seconds) {
    constexpr int kGlanceMs = 100;
    const CProgress progress(seconds);
    const unsigned long long begin = VQOperatingSystem::getMonotonicTime();
    unsigned long long elapsedMs = 0;
    while ((seconds == 0 || elapsedMs < seconds * 1000ULL) && !StopSignals::wait(kGlanceMs)) {
        elapsedMs = VQOperatingSystem::timeDiffMonotonic(begin) / 1000000;
        progress.show(elapsedMs, sampler.getCounts());
    }
}

}  // namespace

int main() {
    const CArguments arguments(
        "sampler", kHelp,
        {{"seconds", true}, {"block", true}, {"age", true}, {"deadline", true}, {"waiting", true}, {"tell", false}},
        2, 2);
    const SSamplerOptions options = readOptions(arguments);
    const unsigned seconds = arguments.getNumber("seconds", 1, 1000000, 0);
    CSamplerConfig config;
    if (!config.load(arguments.getOperands()[0])) {
        return fail(arguments.getOperands()[0] + ": " + config.getProblem());
    }
    if (!VQFileOperations::makeDirRecursive(options.folder, 0777) && errno != EEXIST) {
        const char* const reason = std::strerror(errno);
        return fail(options.folder.getString() + ": " + reason);
    }
    StopSignals::block();  // not before: what is read above may make one wait
    CSampler sampler(config, options);
    CVQString problem;
    if (!sampler.start(problem)) {
        return fail(problem);
    }
    watch(sampler, seconds);
    sampler.stop();
    const CSampler::SCounts counts = sampler.getCounts();
    std::printf("%u samples taken, %u accepted in %u blocks\n", counts.samples, counts.acceptedSamples,
                counts.acceptedBlocks);
    if (counts.acceptedSamples != counts.samples) {
        problem.format("%u samples were not accepted", counts.samples - counts.acceptedSamples);
        return fail(problem);
    }
    return 0;
}
