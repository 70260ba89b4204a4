// CPipeOStream, CPipeIStream: the two ends of a pipe as the library's streams, so that whatever has stream operators
// can pass through.
//   Errors   as in all streams a count tells: fewer bytes than asked for means that the other end is gone. From
//            then on nothing more is taken or delivered. Interrupted and partial transfers are completed inside.
//   Threads  one thread at a time. The descriptor is theirs to close.
#pragma once

#include "CStopwatch.h"

#include <IVQIStream.h>
#include <IVQOStream.h>

class CPipeOStream : public IVQOStream {
public:
    explicit CPipeOStream(int descriptor) : mDescriptor(descriptor) {}
    CPipeOStream(const CPipeOStream&) = delete;
    CPipeOStream& operator=(const CPipeOStream&) = delete;
    ~CPipeOStream() override { close(); }

    bool isBroken() const { return mDescriptor < 0; }
    const CStopwatch& getWaiting() const { return mWaiting; }
    void close();

    void flush() override {}
    bool waitToWrite(int timeoutMs) override;

protected:
    unsigned int doWrite(const void* source, unsigned int count) override;

private:
    int mDescriptor;
    CStopwatch mWaiting;
};

class CPipeIStream : public IVQIStream {
public:
    explicit CPipeIStream(int descriptor) : mDescriptor(descriptor) {}
    CPipeIStream(const CPipeIStream&) = delete;
    CPipeIStream& operator=(const CPipeIStream&) = delete;
    ~CPipeIStream() override { close(); }

    bool isBroken() const { return mDescriptor < 0; }
    const CStopwatch& getWaiting() const { return mWaiting; }

    bool waitToRead(int timeoutMs) override;
    void ready() override {}

protected:
    unsigned int doRead(void* destination, unsigned int count) const override;

private:
    void close() const;

    mutable int mDescriptor;
    mutable CStopwatch mWaiting;
};
