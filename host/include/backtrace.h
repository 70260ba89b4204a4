// <backtrace.h>: the calling thread's call stack and the objects that its addresses lie in.
//   Host     the stack is walked by the compiler's unwinder, the objects come from the dynamic linker: neither
//            allocates, opens a file or needs /proc. Only the calling thread can be walked; an accessor for another
//            thread or process is refused, and so is every later call with it. One that names a thread is of use to
//            that thread alone; one of BT_SELF to all.
//   Threads  any thread, each with records of its own; also in a signal handler that interrupts another walk.
#pragma once

#include <stddef.h>
#include <stdint.h>

#define BT_MEMMAP_MAX 64

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

// NOLINTBEGIN(modernize-use-using): a header for C as well
typedef uintptr_t bt_addr_t;

typedef enum { BT_SELF, BT_THREAD, BT_PROCESS } bt_acc_type_t;

typedef struct {
    bt_acc_type_t __type;
    int __tid;  // of a named thread; 0 is none
} bt_accessor_t;

typedef struct {
    bt_addr_t __text;    // where the object's code begins in memory
    bt_addr_t __size;    // its length
    bt_addr_t __offset;  // the object file's own address of that code: what address lists of the file show
    const char* __name;  // belongs to the dynamic linker, valid until the object is unloaded
} __bt_object_t;

/// `count` may be lowered by the caller: so many objects are printed.
typedef struct {
    int count;
    __bt_object_t __objects[BT_MEMMAP_MAX];
} bt_memmap_t;
// NOLINTEND(modernize-use-using)

extern bt_accessor_t bt_acc_self;

/// `type` is a bt_acc_type_t: BT_SELF; BT_THREAD, int tid; BT_PROCESS, pid_t pid, int tid. 0, or -1 with EINVAL for all
/// but the calling thread. (An enumeration itself may not stand before variable arguments in C++.)
int bt_init_accessor(bt_accessor_t* accessor, int type, ...);
int bt_release_accessor(bt_accessor_t* accessor);

/// Stores at most `length` return addresses, the caller's own place first; how many, or -1 with EINVAL.
int bt_get_backtrace(bt_accessor_t* accessor, bt_addr_t* addresses, int length);

/// Lists the loaded objects, the program first, at most BT_MEMMAP_MAX. 0, or -1 with EINVAL.
int bt_load_memmap(bt_accessor_t* accessor, bt_memmap_t* map);

/// Prints one line an object, each of at most 149 bytes: start of its code, length, the file's own address of that
/// code (hexadecimal) and the name, whose beginning gives way when it is too long. As many whole lines as fit are
/// written, always terminated. 0, or -1 with EINVAL, or with ENOSPC when a line did not fit.
int bt_sprn_memmap(bt_memmap_t* map, char* text, size_t size);
int bt_unload_memmap(bt_memmap_t* map);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
