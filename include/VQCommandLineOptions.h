// VQCommandLineOptions: the process's arguments, for code that does not see those of `main`.
//
//   Options  an argument that begins with "-" or, unless that is switched off, with "/". Any number of these
//            characters may stand before a name, here and in the questions: "--level", "-level" and "/level" are
//            the same. A value follows after "=", or is the next argument, if that is no option.
//   Files    an argument "@NAME" adds those in the file NAME, which CVQConfigFileParser reads: each line of its
//            section "COMMANDLINE" is one argument. They may name files in turn. "@NAME" itself stays an argument.
//   Shape    a table of up to 128 arguments, made once, at the first question, from `_argv`: copied pointers, then
//            the arguments from files.
//   Errors   without arguments, or with more than 100, `_argc` is taken for corrupt: two notices are logged,
//            `_argc` becomes 0, and there are no arguments; the next question tries again. A file that cannot be
//            opened is logged as an error and skipped. Arguments beyond the table are dropped.
//   Threads  any thread; the table is made under a lock and only read afterwards. `disableWin32Prefixes` is for the
//            start of the process.
//   Source   `_argc` and `_argv` of the platform.
//   Kept     cmdline-addresses: arguments stay at the address that they were first stored at.
//            cmdline-notices-again: while `_argc` counts as corrupt, each question logs the notices.
#pragma once

#include <CVQConfigFileParser.h>
#include <VQExport.h>

namespace VQCommandLineOptions {

/// The number of arguments, that of the program's name and those from files included.
VQ_EXPORT int getARGC();
/// All of them, then a null pointer.
VQ_EXPORT char** getARGV();
/// Null below 0 and from getARGC() on.
VQ_EXPORT const char* getARG(int index);

/// Whether there is an option of that name, with or without "=" and a value. Null is no option's name.
VQ_EXPORT bool isOptionSet(const char* name);
/// The value of the first option of that name that has one, perhaps empty; null when there is none.
VQ_EXPORT const char* getOptionArg(const char* name);

VQ_EXPORT bool win32PrefixesEnabled();
/// From now on, for good, only "-" marks an option.
VQ_EXPORT void disableWin32Prefixes();

/// Takes the lines of the files. The library's own use of it is under the lock.
class VQ_EXPORT CommandLineConfigParser final : public CVQConfigFileParser::ICallback {
public:
    /// Adds a copy of `text` to the arguments. False for null, for a full table and, after an assertion, without
    /// memory.
    bool processConfigFileEntry(unsigned short, const char* text) override { return addArgument(text); }

private:
    static bool addArgument(const char* text);
};

}  // namespace VQCommandLineOptions
