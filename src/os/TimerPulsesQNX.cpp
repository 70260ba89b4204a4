#include <os/TimerPulses.h>

#include <VQError.h>
#include <VQOperatingSystem.h>

#include <cerrno>
#include <sys/neutrino.h>

namespace {

constexpr int kPulseCode = 0;
constexpr int kPulsePriority = 63;

}  // namespace

int VQTimerPulses::createChannel() {
    // The priority stays the receiving thread's own, whatever that of the pulses.
    return ChannelCreate(_NTO_CHF_FIXED_PRIORITY | _NTO_CHF_UNBLOCK);
}

int VQTimerPulses::connect(int channel) {
    return ConnectAttach(0, 0, channel, _NTO_SIDE_CHANNEL, _NTO_COF_CLOEXEC);
}

int VQTimerPulses::createTimer(int connection, void* value) {
    struct sigevent event = {};
    event.sigev_notify = SIGEV_PULSE;
    event.sigev_coid = connection;
    event.sigev_code = kPulseCode;
    event.sigev_priority = kPulsePriority;
    event.sigev_value.sival_ptr = value;
    return TimerCreate(CLOCK_MONOTONIC, &event);
}

bool VQTimerPulses::receive(int channel, int timeoutMs, _pulse& pulse) {
    if (timeoutMs > 0 && !setKernelTimer(static_cast<unsigned>(timeoutMs) * kNsPerMs, _NTO_TIMEOUT_RECEIVE)) {
        VQError::fatalError(0, "Setting timeout failed");
    }
    if (MsgReceivePulse(channel, &pulse, sizeof pulse, nullptr) != -1) {
        return true;
    }
    if (errno != ETIMEDOUT && errno != EINTR) {
        VQError::fatalError(0, "MsgReceivePulse failed");
    }
    return false;
}
