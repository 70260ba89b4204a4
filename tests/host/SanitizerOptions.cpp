// Tests fork while they have threads, and their children start some: without this the thread sanitizer ends those.

#include <VQExport.h>

#if defined(__SANITIZE_THREAD__)
extern "C" VQ_EXPORT const char* __tsan_default_options();
const char* __tsan_default_options() {
    return "allocator_may_return_null=1:die_after_fork=0";
}
#endif
