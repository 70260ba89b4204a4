// InputFile: whether a file that the user names can be read. What then reads it may pass over a directory in silence.
//   Errors   false, with the reason in `errno`; EISDIR for a directory.
#pragma once

#include <CVQFileStatus.h>
#include <CVQPath.h>

/// `status` is that of the file.
bool isReadableFile(const CVQPath& path, CVQFileStatus& status);
