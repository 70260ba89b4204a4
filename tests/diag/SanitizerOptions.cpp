// A request that cannot be met is refused under a sanitizer as well, instead of ending the program in its own way.

#include <VQExport.h>

#if defined(__SANITIZE_ADDRESS__)
extern "C" VQ_EXPORT const char* __asan_default_options();
const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
#elif defined(__SANITIZE_THREAD__)
extern "C" VQ_EXPORT const char* __tsan_default_options();
const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}
#endif
