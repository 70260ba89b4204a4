/* The headers as C programs see them: here they compile, and the calls link. */
#include <alloca.h>
#include <atomic.h>
#include <backtrace.h>
#include <devctl.h>
#include <errno.h>
#include <process.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/neutrino.h>
#include <sys/slog.h>
#include <sys/slogcodes.h>
#include <sys/statvfs.h>
#include <sys/syspage.h>
#include <sys/trace.h>
#include <sys/wait.h>
#include <unistd.h>

int headersInC(void);

/* 0, or the number of the first step that went wrong. */
int headersInC(void) {
    static struct _sync mutex;
    pthread_mutexattr_t attributes;
    bt_addr_t address = 0;
    volatile unsigned counter = 1;
    struct sigevent event;
    struct _itimer setting = {0, 0};
    int timer;
    struct statvfs fileSystem;
    const uint64_t zero = 0;
    struct sched_param parameters;

    if (sizeof(struct _sync) != 8)
        return 1;
    if (SyncMutexLock_r(&mutex) != EOK || SyncMutexUnlock_r(&mutex) != EOK)
        return 2;
    pthread_mutexattr_init(&attributes);
    if (pthread_mutexattr_setrecursive(&attributes, PTHREAD_RECURSIVE_ENABLE) != EOK)
        return 3;
    pthread_mutexattr_destroy(&attributes);
    SIGEV_UNBLOCK_INIT(&event);
    if (TimerTimeout(CLOCK_MONOTONIC, 0, &event, &zero, NULL) != 0)
        return 4;
    if (bt_get_backtrace(&bt_acc_self, &address, 1) != 1 || address == 0)
        return 5;
    if (atomic_add_value(&counter, 1) != 1 || atomic_sub_value(&counter, 2) != 2)
        return 6;
    if (_argc < 1 || _argv == NULL)
        return 7;
    if (slogf(_SLOG_SETCODE(_SLOGC_TEST, 1), _SLOG_DEBUG2, "from %s", "C") != 0)
        return 8;
    if (TraceEvent(0) != -1 || errno != ENOTSUP)
        return 9;
    if (statvfs("/", &fileSystem) != 0 || fileSystem.f_basetype[0] == '\0')
        return 10;
    {
        const int chid = ChannelCreate(_NTO_CHF_FIXED_PRIORITY);
        const int coid = ConnectAttach(0, 0, chid, _NTO_SIDE_CHANNEL, _NTO_COF_CLOEXEC);
        struct _pulse pulse;
        struct _msg_info info;
        if (MsgSendPulse(coid, 10, _PULSE_CODE_MINAVAIL, 7) != 0 ||
            MsgReceive(chid, &pulse, sizeof pulse, &info) != 0 || pulse.value.sival_int != 7)
            return 11;
        SIGEV_PULSE_INIT(&event, coid, 10, _PULSE_CODE_MINAVAIL, &info);
        timer = TimerCreate(CLOCK_MONOTONIC, &event);
        setting.nsec = 1;
        if (timer < 0 || TimerSettime(timer, 0, &setting, NULL) != 0 ||
            MsgReceivePulse(chid, &pulse, sizeof pulse, NULL) != 0 || pulse.value.sival_ptr != &info ||
            TimerDestroy(timer) != 0)
            return 16;
        if (ConnectDetach(coid) != 0 || ChannelDestroy(chid) != 0)
            return 12;
    }
    if (__stackavail() == 0 || SYSPAGE_ENTRY(qtime)->nsec == 0 || delay(0) != 0)
        return 13;
    if (waitpid(-1, NULL, WEXITED) != -1 || errno != ECHILD)
        return 14;
    if (ThreadJoin_r(0, NULL) != ESRCH || SchedGet(0, 0, &parameters) == -1 || parameters.sched_priority != 10)
        return 15;
    return 0;
}
