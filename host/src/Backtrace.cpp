#include <backtrace.h>

#include "Backtrace.h"
#include "Errno.h"
#include "FutexLock.h"
#include "SignalsBlocked.h"
#include "ThreadState.h"
#include "Unsupported.h"

#include <errno.h>
#include <link.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <unwind.h>

bt_accessor_t bt_acc_self = {BT_SELF, 0};

namespace host {
namespace {

constexpr int kLineMax = 149;

struct Walk {
    bt_addr_t* addresses;
    int capacity;
    int seen;
};

_Unwind_Reason_Code store(_Unwind_Context* frame, void* argument) {
    Walk& walk = *static_cast<Walk*>(argument);
    const bt_addr_t address = _Unwind_GetIP(frame);
    if (walk.seen - 1 >= walk.capacity || address == 0)
        return _URC_END_OF_STACK;
    if (walk.seen > 0)  // the first is bt_get_backtrace itself
        walk.addresses[walk.seen - 1] = address;
    ++walk.seen;
    return _URC_NO_REASON;
}

// The linker's lock over its list of objects, which older unwinders take as well, stays locked in a child that is
// forked during another thread's walk, and nothing can unlock it there. So a fork waits for the walk.
FutexLock sWalk;

/// A walk waits for a fork, and a fork for a walk, but not for ever: either may have interrupted its own thread in what
/// the other one waits for, the heap or the linker's list.
bool lockWalk() {
    return sWalk.lock({nowNs(CLOCK_MONOTONIC) + kNsPerSecond});
}

/// Around a walk. Signals wait for its end: a handler that walks as well would wait for its own thread, here or in the
/// linker.
class WalkGuard {
public:
    WalkGuard() : mHasLock(lockWalk()) {}
    ~WalkGuard() {
        if (mHasLock)
            sWalk.unlock();
    }
    WalkGuard(const WalkGuard&) = delete;
    WalkGuard& operator=(const WalkGuard&) = delete;

private:
    const SignalsBlocked mSignals;
    const bool mHasLock;
};

// Of the thread that forks.
__thread sigset_t sMaskBefore __attribute__((tls_model("initial-exec")));
__thread bool sHasWalk __attribute__((tls_model("initial-exec"))) = false;

// A fork that began before the last of the handlers below was registered does not run that in its child.
__thread bool sRunsAllHandlers __attribute__((tls_model("initial-exec"))) = false;

void noteAllHandlers() {
    sRunsAllHandlers = true;
}

void lockBeforeFork() {
    if (!sRunsAllHandlers)
        return;
    sMaskBefore = blockSignals();
    sHasWalk = lockWalk();
}

void unlockAfterFork() {
    if (!sRunsAllHandlers)
        return;
    if (sHasWalk)
        sWalk.unlock();
    pthread_sigmask(SIG_SETMASK, &sMaskBefore, nullptr);
}

void forgetWalkInChild() {
    if (!sRunsAllHandlers)
        return;
    sWalk.forget();
    pthread_sigmask(SIG_SETMASK, &sMaskBefore, nullptr);
}

void registerForkHandlers() {
    pthread_atfork(lockBeforeFork, unlockAfterFork, nullptr);
}

pthread_once_t forkHandlersOnce = PTHREAD_ONCE_INIT;

// After the host's other handlers: in a child, the first handler of a signal finds all of the host in order.
__attribute__((constructor(103))) void completeForFork() {
    pthread_atfork(noteAllHandlers, nullptr, forgetWalkInChild);
}

bool isRefused(const bt_accessor_t* accessor) {
    return accessor == nullptr || (accessor->__type != BT_SELF && accessor->__tid != static_cast<int>(threadId()));
}

int addObject(dl_phdr_info* object, size_t, void* argument) {
    bt_memmap_t& map = *static_cast<bt_memmap_t*>(argument);
    for (int i = 0; i < object->dlpi_phnum && map.count < BT_MEMMAP_MAX; ++i) {
        const ElfW(Phdr)& segment = object->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_X) == 0)
            continue;
        // The linker has no name for the program itself.
        const bool isProgram = map.count == 0 && object->dlpi_name[0] == '\0';
        map.__objects[map.count++] = {object->dlpi_addr + segment.p_vaddr, segment.p_memsz, segment.p_vaddr,
                                      isProgram ? program_invocation_name : object->dlpi_name};
    }
    return 0;
}

}  // namespace

void prepareWalksForFork() {
    pthread_once(&forkHandlersOnce, registerForkHandlers);
}

}  // namespace host

using namespace host;

int bt_init_accessor(bt_accessor_t* accessor, int type, ...) {
    dropTimeout();
    if (accessor == nullptr || (type != BT_SELF && type != BT_THREAD && type != BT_PROCESS))
        return fail(EINVAL);
    va_list arguments;
    va_start(arguments, type);
    const pid_t pid = type == BT_PROCESS ? va_arg(arguments, pid_t) : getpid();
    const int tid = type == BT_SELF ? static_cast<int>(threadId()) : va_arg(arguments, int);
    va_end(arguments);
    const bool isCaller = pid == getpid() && tid == static_cast<int>(threadId());
    *accessor = {static_cast<bt_acc_type_t>(type), isCaller ? tid : 0};
    return isCaller ? 0 : fail(unsupported("a backtrace of another thread", EINVAL));
}

int bt_release_accessor(bt_accessor_t* accessor) {
    dropTimeout();
    return accessor == nullptr ? fail(EINVAL) : 0;
}

// Not inlined anywhere: its own frame is the one that the walk leaves out.
__attribute__((noinline)) int bt_get_backtrace(bt_accessor_t* accessor, bt_addr_t* addresses, int length) {
    dropTimeout();
    if (isRefused(accessor) || addresses == nullptr || length < 0)
        return fail(EINVAL);
    Walk walk = {addresses, length, 0};
    const WalkGuard guard;
    _Unwind_Backtrace(store, &walk);
    return walk.seen > 0 ? walk.seen - 1 : 0;
}

int bt_load_memmap(bt_accessor_t* accessor, bt_memmap_t* map) {
    dropTimeout();
    if (isRefused(accessor) || map == nullptr)
        return fail(EINVAL);
    map->count = 0;
    const WalkGuard guard;
    dl_iterate_phdr(addObject, map);
    return 0;
}

int bt_sprn_memmap(bt_memmap_t* map, char* text, size_t size) {
    dropTimeout();
    if (map == nullptr || text == nullptr || size == 0)
        return fail(EINVAL);
    text[0] = '\0';
    constexpr int kDigits = 2 * sizeof(bt_addr_t);
    constexpr size_t kNameMax = kLineMax - 3 * (kDigits + 1) - 1;
    for (int i = 0; i < map->count && i < BT_MEMMAP_MAX; ++i) {
        const __bt_object_t& object = map->__objects[i];
        const size_t nameLength = strlen(object.__name);
        const char* const name = object.__name + (nameLength > kNameMax ? nameLength - kNameMax : 0);
        const int written = snprintf(text, size, "%0*zX %0*zX %0*zX %s\n", kDigits, size_t{object.__text}, kDigits,
                                     size_t{object.__size}, kDigits, size_t{object.__offset}, name);
        if (written < 0 || static_cast<size_t>(written) >= size) {
            text[0] = '\0';
            return fail(ENOSPC);
        }
        text += written;
        size -= static_cast<size_t>(written);
    }
    return 0;
}

int bt_unload_memmap(bt_memmap_t* map) {
    dropTimeout();
    if (map == nullptr)
        return fail(EINVAL);
    map->count = 0;
    return 0;
}

namespace host {
namespace {

// The first walk of a process is the one that may load and allocate. Later ones come from where neither is possible.
__attribute__((constructor)) void walkOnce() {
    bt_addr_t address;
    bt_get_backtrace(&bt_acc_self, &address, 1);
}

}  // namespace
}  // namespace host
