// VQFileOperations: the file system's calls on paths.
//   Units    modes are the platform's permission bits (S_IRWXU and the like).
//   Errors   false, with the failing call's reason in `errno`; nothing is logged. A call that was interrupted is
//            made again, so EINTR is never the reason. Paths are handed over as they are: an invalid one is for the
//            platform to refuse. After a success `errno` is 0, or what the last of several calls left there.
//   Files    what is opened is closed again, and closed on exec meanwhile.
//   Threads  any thread. The current directory is the process's.
//   Kept     mkdir-first-level: makeDirRecursive makes no directory directly below an existing root.
//            unique-bare-pattern: createUniqueFile makes a file for a pattern without a directory in the root.
//            remove-opendir-reason: recursiveRemove of a file that cannot be removed fails with ENOTDIR.
#pragma once

#include <CVQFileHandle.h>
#include <CVQFileStatus.h>
#include <CVQPath.h>
#include <VQExport.h>

namespace VQFileOperations {

VQ_EXPORT bool changeDir(const CVQPath& path);
/// A file or an empty directory.
VQ_EXPORT bool remove(const CVQPath& path);
VQ_EXPORT bool rename(const CVQPath& from, const CVQPath& to);
/// `link` becomes a link that says `target`, which need not exist.
VQ_EXPORT bool createSymlink(const CVQPath& target, const CVQPath& link);
VQ_EXPORT bool makeDir(const CVQPath& path, int mode);
VQ_EXPORT bool setPermissions(const CVQPath& path, int mode);

/// Of the file that a link leads to.
VQ_EXPORT bool getFileStatus(const CVQPath& path, CVQFileStatus& status);
/// Of the link itself.
VQ_EXPORT bool getSymlinkStatus(const CVQPath& path, CVQFileStatus& status);

/// Whether the process's real user may do what `mode` says (R_OK, W_OK, X_OK, or F_OK: whether there is a file).
/// `otherError`, unless null, tells whether there was another reason to say no than permissions (EACCES).
VQ_EXPORT bool isGranted(const CVQPath& path, unsigned mode, bool* otherError);

/// Empty on failure; of 1024 bytes or more with ERANGE.
VQ_EXPORT CVQPath getCurrentDir();

/// Makes the directory and those above it that are missing. Below a root that exists nothing is made at the first
/// level, and true is returned: deeper paths have their first directory there already. Kept: mkdir-first-level.
/// A directory that is there already is a failure with EEXIST, except at that first level.
VQ_EXPORT bool makeDirRecursive(const CVQPath& path, int mode);

/// Removes a file or link, or a directory with all that it holds. Links are removed, never followed. The first
/// failure ends the work, of which the part that was done stays done. One descriptor is open for each level of
/// directories. A path inside that has 1024 bytes or more is a failure with ENAMETOOLONG.
VQ_EXPORT bool recursiveRemove(const CVQPath& path);

/// Creates a file that was not there and opens it for reading and writing. `pattern` is the file's path with a "*"
/// in its leaf; the last of them gives way to "PID-TID-SECONDS-COUNT", where COUNT goes up with each attempt of the
/// process. `pattern` becomes the file's path. `handle` is closed first; on exec it will be closed as well. EINVAL
/// for a pattern without "*" or an invalid one (then `handle` stays as it was), and for a path of 1024 bytes or
/// more. Fails as well when the file system does; then `pattern` is the path that was tried. Kept:
/// unique-bare-pattern.
VQ_EXPORT bool createUniqueFile(CVQPath& pattern, CVQFileHandle& handle);

/// Writes the name of the type of the file system that holds `path` ("ext4", "tmpfs"), in lower case, with zeros
/// behind it up to `size`. EINVAL when it does not fit; `out` then holds the part that does.
VQ_EXPORT bool getFileSystemType(const CVQPath& path, char* out, unsigned size);

}  // namespace VQFileOperations
