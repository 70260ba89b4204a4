// VQBacktrace: the calling thread's call stack and the process's memory map, appended to a text file.
//   Shape    the message, who wrote it, up to 100 return addresses (six to a line; eight hexadecimal digits each,
//            or as many as a pointer has on a 64-bit host), and the map with up to 50 entries.
//   Source   the platform's backtrace library supplies addresses and map; the layout of the map's lines is its own.
//   Errors   a file that cannot be opened is reported on standard output only. One that cannot be written to its
//            end (full disk, file-size limit) stays as short as it is, and the process gets no signal for it. A map
//            for which there is no memory is left out. errno is left as it was.
//   Threads  any thread, before main, during exit and in a forked child; one thread writes at a time, and cannot be
//            cancelled meanwhile.
//   Nesting  a backtrace asked for by the thread that is already writing one (its info function asks, or runs out
//            of memory) is written at once, without asking the info function again.
//   Kept     backtrace-no-truncate: without `append` the file is written from its start, but not shortened first.
//            backtrace-stdout: "Cannot open %s" goes to standard output.
//            backtrace-name-1024: a longer file name is cut to 1023 bytes.
//            backtrace-libbacktrace: the file names QNX and its library on every platform.
#pragma once

#include <VQExport.h>

class CVQString;

namespace VQBacktrace {

/// Supplies the identification line (returned) and the file's base name (stored into `baseName`). Called under the
/// writer's lock: it must return, and must not wait for a thread that may assert.
using InfoFunction = CVQString (*)(CVQString& baseName);

/// Appends (or, without `append`, writes from the start) one backtrace to `directory`/<base name>.`extension`.
VQ_EXPORT VQ_COLD void doBacktrace(const CVQString& message, const CVQString& directory, const CVQString& extension,
                                   bool append);

/// The same without an info function and without building strings, for a process that is out of memory: the file is
/// PID<pid>.`extension`. A null argument is an assertion instead.
VQ_EXPORT VQ_COLD void doBacktraceNoAlloc(const char* message, const char* directory, const char* extension,
                                          bool append);

/// Replaces the info function. The built-in one, which is in place at load time and comes back with null, gives the
/// base name PID<pid> and the line "TID: %d PID: %d" of the calling thread, and builds no strings.
VQ_EXPORT void setInfos(InfoFunction infoFunction);

}  // namespace VQBacktrace
