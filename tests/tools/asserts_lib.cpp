// A shared library that calls back, and so lies in the middle of a backtrace.
extern "C" __attribute__((visibility("default"), noinline)) void throughTheLibrary(void (*callback)()) {
    callback();                     // line: throughTheLibrary
    asm volatile("" ::: "memory");  // keeps the call from becoming a jump
}
