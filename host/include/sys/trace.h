// <sys/trace.h>: user events for the kernel's trace.
//   Host     an event becomes one line of text in the trace marker of the Linux tracer, where it is mounted and the
//            process may write to it: "nto event=E value1=A value2=B", "nto event=E data=HEX" (at most 400 bytes of
//            data are shown) or "nto event=E text=TEXT" (at most 900 bytes, line breaks as blanks).
//   Errors   -1 and errno: ENOTSUP without a tracer (as from a kernel without instrumentation) and for every other
//            command, EFAULT for a null text or null data. An event that was written leaves errno as it was.
//   Threads  any thread.
#pragma once

#define _NTO_TRACE_INSERTSUSEREVENT 0x4000001e   // int event, int value1, int value2
#define _NTO_TRACE_INSERTCUSEREVENT 0x4000001f   // int event, void* data, unsigned length
#define _NTO_TRACE_INSERTUSRSTREVENT 0x30000020  // int event, const char* text

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

int TraceEvent(int command, ...);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
