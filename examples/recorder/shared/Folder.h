// Folder: the files of a recording's folder.
//   Files    00000001.rec, 00000002.rec, ...: the recording, in this order
//            recorder, sampler: see CServiceFile
//   Errors   false, with the reason in `errno`.
#pragma once

#include <CVQPath.h>
#include <CVQRCMemoryBuffer.h>
#include <TVQVector.h>

namespace Folder {

CVQPath getFile(const CVQPath& folder, unsigned number);
/// The numbers of the recording's files, in ascending order.
bool listFiles(const CVQPath& folder, TVQVector<unsigned>& numbers);
/// The whole file. One of a gibibyte or more is refused (EFBIG).
bool load(const CVQPath& file, CVQRCMemoryBuffer& bytes);

}  // namespace Folder
