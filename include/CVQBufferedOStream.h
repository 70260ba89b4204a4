// CVQBufferedOStream: collects what is written and hands it to another stream as one block for each flush.
//
//   Units    counts in bytes, 32 bits.
//   Shape    the target and a byte stream. Each flush writes the byte stream's form: the length in 32 bits, then
//            the bytes; then it flushes the target. The destructor flushes.
//   Errors   none of its own. What the target takes is not looked at, and not offered again.
//   Threads  one thread at a time. The target must outlive this stream.
//   Kept     bufferedstream-empty-block: a flush with nothing written writes a block of length 0, and so does the
//            destructor (docs/kept.md).
#pragma once

#include <CVQByteStream.h>
#include <IVQOStream.h>
#include <VQExport.h>

class VQ_EXPORT CVQBufferedOStream : public IVQOStream {
public:
    /// `capacity` bytes are taken before the byte stream grows.
    CVQBufferedOStream(IVQOStream& target, const unsigned int& capacity) : mTarget(target), mBytes(capacity) {}
    CVQBufferedOStream(const CVQBufferedOStream&) = delete;
    CVQBufferedOStream& operator=(const CVQBufferedOStream&) = delete;
    ~CVQBufferedOStream() override { passOn(); }

    void flush() override { passOn(); }
    bool waitToWrite(int timeout) override { return mTarget.waitToWrite(timeout); }

protected:
    unsigned int doWrite(const void* source, unsigned int count) override { return mBytes.write(source, count); }

private:
    void passOn();

    IVQOStream& mTarget;
    CVQByteStream mBytes;
};
