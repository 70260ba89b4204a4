// VQExport: the few compiler attributes that the public headers share.
#pragma once

#if defined(__GNUC__)
/// Marks what the shared library offers; everything else in it is hidden.
#define VQ_EXPORT __attribute__((visibility("default")))
/// Lets the compiler check a printf format: `formatIndex` and `firstArgument` count from 1 (members: from 2).
#define VQ_PRINTF(formatIndex, firstArgument) __attribute__((format(printf, formatIndex, firstArgument)))
/// For branches that report: keeps the path that services take in a straight line.
#define VQ_LIKELY(condition) __builtin_expect(!!(condition), 1)
#define VQ_UNLIKELY(condition) __builtin_expect(!!(condition), 0)
/// Marks functions that only report: the code that leads to a call of one is moved out of the way.
#define VQ_COLD __attribute__((cold))
/// Marks a type whose objects may be read and written where an object of another type lies.
#define VQ_MAY_ALIAS __attribute__((may_alias))
#else
#error "Only GCC and Clang, and compilers that understand their attributes, can build sys_marlix"
#endif

/// Refuses to compile a static object that would need code at load time, where the compiler can tell.
#if defined(__clang__)
#define VQ_CONSTINIT [[clang::require_constant_initialization]]
#elif defined(__GNUC__) && __GNUC__ >= 10
#define VQ_CONSTINIT __constinit
#else
#define VQ_CONSTINIT
#endif

/// Marks an argument that the result points into, where the compiler then warns of results that outlive it.
#if defined(__clang__)
#define VQ_LIFETIMEBOUND [[clang::lifetimebound]]
#else
#define VQ_LIFETIMEBOUND
#endif
