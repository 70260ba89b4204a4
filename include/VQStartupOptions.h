// VQStartupOptions: the library's own switches among the process's arguments, and the command line as one text.
//   Shape    "--nobreak" clears the break option. "--memtrace=N" sets the memory trace level to N, which is 0 or 1;
//            other values are ignored. The last valid one counts. The program name is scanned too.
//   Errors   none.
//   Threads  any thread. The arguments are scanned once, when the library is loaded or, if that is earlier, at the
//            first question; later changes of `_argc` and `_argv` are seen by `getCommandLine` alone.
//   Source   `_argc` and `_argv` of the platform.
#pragma once

#include <VQExport.h>

class CVQString;

namespace VQStartupOptions {

/// True unless the process was started with "--nobreak".
VQ_EXPORT bool isBreakEnabled();
/// 0, or 1 when the process was started with "--memtrace=1".
VQ_EXPORT int getMemoryTraceLevel();
/// The arguments behind the program name, joined with one blank; empty when there are none.
VQ_EXPORT CVQString getCommandLine();

}  // namespace VQStartupOptions

/// Calls a function once, when the object is initialised, and keeps the result: a static object of this type runs
/// the function before `main`.
template <class F>
class TVQStartupCaller {
public:
    using Result = decltype((*static_cast<F*>(nullptr))());

    explicit TVQStartupCaller(F function) : mResult(function()) {}

    const Result& getResult() const { return mResult; }

private:
    const Result mResult;
};
