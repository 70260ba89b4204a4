// CVQVersion: a version number in three parts.
//
//   Shape    three unsigned 16-bit words: major, minor, revision. Copied freely.
//   Errors   none. 0.0.0 stands for "no version".
//   Threads  plain value: one thread at a time. `invalid` is constant: any thread, before main and during exit too.
#pragma once

#include <VQExport.h>

class VQ_EXPORT CVQVersion {
public:
    /// 0.0.0.
    static const CVQVersion invalid;

    constexpr CVQVersion(unsigned short major, unsigned short minor, unsigned short revision)
        : mMajor(major), mMinor(minor), mRevision(revision) {}

    /// The one object `invalid`.
    static const CVQVersion& invalidVersion() { return invalid; }

    constexpr unsigned short getMajor() const { return mMajor; }
    constexpr unsigned short getMinor() const { return mMinor; }
    constexpr unsigned short getRevision() const { return mRevision; }

private:
    unsigned short mMajor;
    unsigned short mMinor;
    unsigned short mRevision;
};
