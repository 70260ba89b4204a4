// CVQNullStream: a stream that takes and yields nothing, for callers that need one and have none.
//   Shape    no fields.
//   Errors   none: reads and writes return 0, waiting returns false, skipping does nothing.
//   Threads  any thread.
#pragma once

#include <IVQIOStream.h>
#include <VQExport.h>

class VQ_EXPORT CVQNullStream : public IVQIOStream {
public:
    bool waitToRead(int /*timeout*/) override { return false; }
    void ready() override {}
    void readSkip(unsigned int /*count*/) const override {}
    bool waitToWrite(int /*timeout*/) override { return false; }
    void flush() override {}
    void writeSkip(unsigned int /*count*/) override {}

protected:
    unsigned int doRead(void* /*destination*/, unsigned int /*count*/) const override { return 0; }
    unsigned int doWrite(const void* /*source*/, unsigned int /*count*/) override { return 0; }
};
