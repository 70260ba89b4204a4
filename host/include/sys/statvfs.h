// <sys/statvfs.h>: the C library's, with the field that Neutrino has besides: the name of the file system's type.
//   Counts   that a field cannot hold, of large file systems in 32-bit programs, are as much as it can.
//   Errors   those of the C library; EMFILE and ENFILE, as the mount table is read; ENOTSUP, with a line on standard error, for a file system whose type neither the
//            mount table nor its magic number tells.
//   Limits   `statvfs` is a macro, for the structure and the call alike; `fstatvfs` and the 64-bit forms stay the C
//            library's own, and do not take this structure.
#pragma once
#pragma GCC system_header  // for the line below, which no standard knows

#include_next <sys/statvfs.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

struct nto_statvfs {
    unsigned long f_bsize;
    unsigned long f_frsize;
    fsblkcnt_t f_blocks;
    fsblkcnt_t f_bfree;
    fsblkcnt_t f_bavail;
    fsfilcnt_t f_files;
    fsfilcnt_t f_ffree;
    fsfilcnt_t f_favail;
    unsigned long f_fsid;
    unsigned long f_flag;
    unsigned long f_namemax;
    char f_basetype[16];
};

int nto_statvfs(const char* path, struct nto_statvfs* status);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop

#define statvfs nto_statvfs
