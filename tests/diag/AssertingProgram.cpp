// A process that asserts from its first instruction to its last. With an argument it ends by a fatal error in main, and
// a static destructor raises another one.
#include <CVQAsserter.h>

#include <cstdlib>

namespace {

bool sIsFatal = false;

struct StaticObject {
    StaticObject() { doCheapAssert(2, "StaticConstructor"); }
    ~StaticObject() {
        if (sIsFatal)
            doCheapFatalError(5, "StaticDestructor");
        doCheapAssert(5, "StaticDestructor");
    }
};

__attribute__((init_priority(101))) StaticObject sObject;

__attribute__((destructor(101))) void destructor() {
    doCheapAssert(6, "Destructor");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// Before any constructor, the library's included. The sanitizers are not ready by then.
void preinit() {
    doCheapAssert(1, "Preinit");
}
__attribute__((section(".preinit_array"), used)) void (*const sPreinit)() = &preinit;
#endif

}  // namespace

int main(int argc, char**) {
    sIsFatal = argc > 1;
    std::atexit([] { doCheapAssert(4, "AtExit"); });
    if (sIsFatal)
        doCheapFatalError(3, "Main");
    doCheapAssert(3, "Main");
}
