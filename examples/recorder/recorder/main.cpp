// recorder: takes blocks of samples from samplers and keeps them in files. What it has answered for is there, once,
// whoever is killed when.
//
// Read it from here: a CReceiver takes a block out of shared memory and checks it; the CJournal appends it to the
// recording, unless it is there already; then the sampler is answered.
#include "recorder/CReceiver.h"
#include "shared/CArguments.h"
#include "shared/CServiceFile.h"
#include "shared/Message.h"
#include "shared/StopSignals.h"

#include <CVQThreadCtrl.h>
#include <VQFileOperations.h>
#include <VQOperatingSystem.h>
#include <VQSyslog.h>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr char kHelp[] =
    R"(Usage: recorder [option...] FOLDER

Records what samplers send into files in FOLDER, which is made if need be.
Ctrl-C ends it. 'viewer FOLDER' shows the recording.

  --file-size=BYTES  a file of that size is followed by a new one; by default
                     1048576
  --files=N          so many files are kept, by default 16; older ones go
  --sync             a block counts as recorded when it has reached the disk
  @FILE              more options, each on a line in the section [COMMANDLINE]
  -h, --help         this text
)";

/// Ends the receiver when the process is asked to end.
class CStopper final : public CVQThreadCtrl::IRunnable {
public:
    explicit CStopper(const CReceiver& receiver) : mReceiver(receiver) {}
    void run() override {
        StopSignals::wait(-1);
        mReceiver.stop();
    }

private:
    const CReceiver& mReceiver;
};

void tell(const CVQPath& folder, const char* what) {
    std::fprintf(stderr, "recorder: %s: %s\n", folder.getString().c_str(), what);
}

int fail(const CVQPath& folder, const char* what) {
    tell(folder, what);
    return 1;
}

int record(const CVQPath& folder, const CJournal::SLimits& limits) {
    CServiceFile file;
    if (!file.own(folder / Message::kRecorderFile)) {
        const bool isTaken = errno == EAGAIN || errno == EACCES;
        return fail(folder, isTaken ? "another recorder records into this folder" : std::strerror(errno));
    }
    CJournal journal(folder, limits);
    if (!journal.open()) {
        return fail(folder, std::strerror(errno));
    }
    for (const CVQString& damage : journal.getDamages()) {
        VQSyslog::logMsg(0, VQSyslog::ERROR, "recorder: %s", damage.c_str());
        tell(folder, damage.c_str());
    }
    CReceiver receiver(journal);
    if (!receiver.open()) {
        return fail(folder, std::strerror(errno));
    }
    CVQString line;
    line.format("%d %d\n", VQOperatingSystem::getCurrentPID(), receiver.getChannel());
    if (!file.write(line)) {
        return fail(folder, std::strerror(errno));
    }
    CStopper stopper(receiver);
    const int thread = CVQThreadCtrl::startThread(stopper);
    if (thread == 0) {
        return fail(folder, std::strerror(errno));
    }
    std::printf("recording into %s\n", folder.getString().c_str());
    std::fflush(stdout);
    if (!receiver.run()) {
        return fail(folder, std::strerror(errno));
    }
    CVQThreadCtrl::join(thread);
    const CReceiver::SCounts& counts = receiver.getCounts();
    std::printf("%u blocks recorded, %u came again, %u refused\n", counts.recorded, counts.known, counts.refused);
    return 0;
}

}  // namespace

int main() {
    StopSignals::block();
    const CArguments arguments("recorder", kHelp, {{"file-size", true}, {"files", true}, {"sync", false}}, 1, 1);
    CJournal::SLimits limits;
    limits.fileSize = arguments.getNumber("file-size", 1, 1 << 28, limits.fileSize);
    limits.files = arguments.getNumber("files", 1, 10000, limits.files);
    limits.isSynced = arguments.isSet("sync");
    const CVQPath folder(arguments.getOperands()[0]);
    if (!VQFileOperations::makeDirRecursive(folder, 0777) && errno != EEXIST) {
        return fail(folder, std::strerror(errno));
    }
    return record(folder, limits);
}
