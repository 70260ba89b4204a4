// CServiceFile: a file in the recording's folder that one process at a time owns, and a line that it wrote there.
//   Purpose  the recorder writes where it can be reached, the sampler which segment it uses. A process that is killed
//            owns its file no more, but the line stays: the next one learns from it what to clean up.
//   Errors   false, with the reason in `errno`; EAGAIN or EACCES when another process owns the file.
//   Threads  one thread at a time.
#pragma once

#include <CVQFileHandle.h>
#include <CVQPath.h>

class CServiceFile {
public:
    /// Makes the file if need be. It is owned until the object or the process ends.
    bool own(const CVQPath& path);
    /// What is there now.
    CVQString read();
    bool write(const CVQString& line);

    /// What the owner wrote; empty when there is nothing (yet).
    static CVQString readLine(const CVQPath& path);

private:
    CVQFileHandle mFile;
};
