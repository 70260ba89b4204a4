// CVQBufferedOutputStream: collects small writes and hands them to another stream as plain bytes.
//
//   Units    counts in bytes, 32 bits.
//   Shape    the target, a byte stream, and the threshold: 0 collects until `flush`.
//   Passing  what is pending goes to the target as soon as it reaches the threshold. A write that alone reaches it
//            flushes first and then goes straight to the target. `flush` passes on what is pending, if anything,
//            and flushes the target. The destructor flushes.
//   Errors   a threshold of 0 bytes that is asked for is a cheap assertion (line 30); it is none then. A write
//            returns what the byte stream took, or what the target took of a write that went straight there. What
//            the target takes of pending bytes is not looked at, and not offered again.
//   Threads  one thread at a time. The target must outlive this stream.
#pragma once

#include <CVQByteStream.h>
#include <IVQOStream.h>
#include <VQExport.h>

class VQ_EXPORT CVQBufferedOutputStream : public IVQOStream {
public:
    /// `capacity` bytes are taken before the byte stream grows; with `useThreshold` they are the threshold.
    CVQBufferedOutputStream(IVQOStream& target, unsigned int capacity, bool useThreshold);
    CVQBufferedOutputStream(const CVQBufferedOutputStream&) = delete;
    CVQBufferedOutputStream& operator=(const CVQBufferedOutputStream&) = delete;
    ~CVQBufferedOutputStream() override { flushAll(); }

    void flush() override { flushAll(); }
    bool waitToWrite(int timeout) override { return mTarget.waitToWrite(timeout); }

protected:
    unsigned int doWrite(const void* source, unsigned int count) override { return take(source, count); }

private:
    unsigned int take(const void* source, unsigned int count);
    unsigned int pending() const;
    void passOn();
    void flushAll();

    IVQOStream& mTarget;
    CVQByteStream mBytes;
    unsigned int mThreshold;
};
