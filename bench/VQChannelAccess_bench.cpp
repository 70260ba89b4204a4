// Messages and pulses beside what one would build instead, in VQChannelAccess_peers.cpp.
#include "VQChannelAccess_workload.h"

#include <VQChannelAccess.h>
#include <memory>
#include <sys/neutrino.h>

namespace {

using namespace bench;

constexpr int kNoLimit = -1;
constexpr int kLimitMs = 60000;

/// Replies until a pulse comes.
void serve(int chid, int timeoutMs) {
    std::vector<char> request(kLongestRequest);
    _msg_info info;
    int id;
    while ((id = VQChannelAccess::receiveMessageOrPulse(chid, request.data(), kLongestRequest, timeoutMs, &info)) >
           0) {
        char reply[kReplyBytes];
        answer(request.data(), static_cast<std::size_t>(info.msglen), reply);
        MsgReply(id, 0, reply, sizeof reply);
    }
}

/// Round trips over a connection.
auto exchangeOver(const benchmark::State& state, int coid, int timeoutMs) {
    return [coid, timeoutMs, bytes = static_cast<std::size_t>(state.range(0))](char* request, char* reply) {
        const iovec sent = {request, bytes}, room = {reply, kReplyBytes};
        check(VQChannelAccess::sendv(coid, &sent, 1, &room, 1, timeoutMs) == 0, "send");
    };
}

struct OwnChannel {
    const int chid = ChannelCreate(0);
    const int coid = ConnectAttach(0, 0, chid, _NTO_SIDE_CHANNEL, 0);
    OwnChannel() { check(chid > 0 && coid != -1, "a channel"); }
    ~OwnChannel() {
        ConnectDetach(coid);
        ChannelDestroy(chid);
    }
};

void betweenThreads(benchmark::State& state, int processors, int timeoutMs) {
    const OwnChannel own;
    timeThreads(
        state, processors, [&] { serve(own.chid, timeoutMs); }, exchangeOver(state, own.coid, timeoutMs),
        [&] { MsgSendPulse(own.coid, 1, 0, 0); });
}

MARLIX_BENCH_MANUAL("VQChannelAccess_ThreadsOneCpu", "ours", 64, 4096, 65536, 1048576) {
    betweenThreads(state, 1, kNoLimit);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ThreadsOneCpuTimed", "ours", 64, 4096, 65536) {
    betweenThreads(state, 1, kLimitMs);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ThreadsTwoCpus", "ours", 64, 4096, 65536) {
    betweenThreads(state, 2, kNoLimit);
}

void offer(const Pipe& ready, int timeoutMs) {
    const int chid = ChannelCreate(0);
    ready.put(chid);
    serve(chid, timeoutMs);
}

int attachTo(pid_t server, int chid) {
    int coid = -1;
    check(VQChannelAccess::attach(coid, chid, server, 0), "attach");
    return coid;
}

void betweenProcesses(benchmark::State& state, int processors, int timeoutMs) {
    timeProcesses(
        state, processors, [=](const Pipe& ready) { offer(ready, timeoutMs); },
        [&](pid_t server, int chid) { return exchangeOver(state, attachTo(server, chid), timeoutMs); });
}

MARLIX_BENCH_MANUAL("VQChannelAccess_ProcessesOneCpu", "ours", 64, 4096, 65536, 1048576) {
    betweenProcesses(state, 1, kNoLimit);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ProcessesOneCpuTimed", "ours", 64, 4096, 65536, 1048576) {
    betweenProcesses(state, 1, kLimitMs);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_ProcessesTwoCpus", "ours", 64, 4096, 65536) {
    betweenProcesses(state, 2, kNoLimit);
}

void pulses(benchmark::State& state, int processors) {
    const OwnChannel own;
    timePulses(
        state, processors, [&](int i) { check(MsgSendPulse(own.coid, 10, 0, i) == 0, "send a pulse"); },
        [&] {
            _pulse pulse;
            VQChannelAccess::receivePulse(own.chid, &pulse, sizeof pulse, kNoLimit);
            return pulse.value.sival_int;
        });
}
MARLIX_BENCH_MANUAL("VQChannelAccess_PulseOneCpu", "ours", 16) {
    pulses(state, 1);
}
MARLIX_BENCH_MANUAL("VQChannelAccess_PulseTwoCpus", "ours", 16) {
    pulses(state, 2);
}

MARLIX_BENCH_FEW("VQChannelAccess_EndOfPeer", "ours", 1, 64, 256) {
    timeEndOfPeer(
        state,
        [](const Pipe& ready) {
            ready.put(ChannelCreate(0));
            pause();
        },
        [](pid_t server, int chid, auto begin) {
            const int coid = attachTo(server, chid);
            begin();
            check(VQChannelAccess::send(coid, nullptr, 0, nullptr, 0) == -1 && errno == ESRCH,
                  "the end is noticed");
        });
}

void beside(benchmark::State& state, bool isBusy) {
    const Placement placement(1);
    const PinnedHere pinned(placement.client);
    const OwnChannel own;
    std::thread server([&] { serve(own.chid, kNoLimit); });
    {
        auto exchange = exchangeOver(state, own.coid, kNoLimit);
        RoundTrips<decltype(exchange)> trips(static_cast<std::size_t>(state.range(0)), exchange);
        std::unique_ptr<BusyProcess> busy;
        if (isBusy)
            busy = std::make_unique<BusyProcess>(placement.client);
        for (auto _ : state)
            state.SetIterationTime(trips.typical());
    }
    MsgSendPulse(own.coid, 1, 0, 0);
    server.join();
}
MARLIX_BENCH_FEW("VQChannelAccess_BesideBusy", "ours", 64) {
    beside(state, true);
}
MARLIX_BENCH_FEW("VQChannelAccess_BesideBusy", "ours without the busy process", 64) {
    beside(state, false);
}

double processorTimeOf(pid_t process) {
    clockid_t clock;
    timespec used;
    check(clock_getcpuclockid(process, &clock) == 0 && clock_gettime(clock, &used) == 0, "a processor-time clock");
    return static_cast<double>(used.tv_sec) + 1e-9 * static_cast<double>(used.tv_nsec);
}

// What two processes use in a second of waiting for each other, the watching threads included.
MARLIX_BENCH_FEW("VQChannelAccess_Idle", "ours", 1) {
    const Pipe ready, waits;
    const Process server([&] {
        const int chid = ChannelCreate(0);
        ready.put(chid);
        std::vector<char> request(64);
        VQChannelAccess::receive(chid, request.data(), 64, kNoLimit, nullptr);
        pause();
    });
    const int chid = ready.take<int>();
    const Process client([&] {
        const int coid = attachTo(server.pid(), chid);
        waits.put('w');
        VQChannelAccess::send(coid, "never answered", 15, nullptr, 0);
    });
    waits.take<char>();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    for (auto _ : state) {
        const auto begin = Clock::now();
        const double before = processorTimeOf(server.pid()) + processorTimeOf(client.pid());
        std::this_thread::sleep_for(std::chrono::milliseconds(1100));
        const double used = processorTimeOf(server.pid()) + processorTimeOf(client.pid()) - before;
        state.SetIterationTime(used / secondsSince(begin));
    }
}

}  // namespace
