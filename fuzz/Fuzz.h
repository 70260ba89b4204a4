// Fuzz: what all fuzz targets share.
#pragma once

#include <CVQAsserter.h>

#include <cstdio>
#include <cstdlib>

namespace fuzz {

/// Ends the run where the library does not do as promised; the fuzzer then keeps the input.
inline void require(bool holds, const char* what = "see the line", int line = __builtin_LINE()) {
    if (!holds) {
        std::fprintf(stderr, "line %d: not as promised: %s\n", line, what);
        std::abort();
    }
}

enum class Assertions {
    Expected,  ///< the input may lead to some
    EndTheRun  ///< whatever the input, none may be raised
};

/// What LLVMFuzzerInitialize has to do and return. Nothing is logged.
inline int prepare(Assertions assertions) {
    setenv("NTO_SLOG", "/nonexistent/slog", /*overwrite*/ 1);
    if (assertions == Assertions::Expected)
        CVQAsserter::setExpectedAssertions(~0U);
    else
        setenv("VQ_ENABLE_ABORT_ON_ASSERTION", "", /*overwrite*/ 1);
    return 0;
}

}  // namespace fuzz
