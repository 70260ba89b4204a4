// A program whose assertion comes through an inlined function, a namespace and a shared library.
#include <CVQAsserter.h>

extern "C" void throughTheLibrary(void (*callback)());

namespace deep {

__attribute__((always_inline)) inline void inlinedAssertion() {
    doCheapAssert(77, "Asserts");  // line: inlinedAssertion
}

__attribute__((noinline)) void assertsHere() {
    inlinedAssertion();  // line: assertsHere
    asm volatile("" ::: "memory");
}

}  // namespace deep

int main() {
    throughTheLibrary(deep::assertsHere);  // line: main
    return 0;
}
