// CJournal: the recording as the recorder writes it: files of limited size in a folder, of which the oldest go.
//   Purpose  what was appended stays, and stays once, whenever the process is killed: a block that a kill cut short is
//            taken off the end at the next start; which blocks there are is learnt from the files themselves.
//   Damage   is never written behind, nor taken away: a new file begins. It is told of here and by the viewer.
//   Units    sizes in bytes.
//   Errors   FAILED or false, with the reason in `errno`; the recording is then as it was before.
//   Threads  one thread at a time.
#pragma once

#include "shared/Block.h"

#include <CVQFileHandle.h>
#include <CVQPath.h>
#include <TVQMap.h>

class CJournal {
public:
    struct SLimits {
        unsigned fileSize = 1 << 20;  // a file that has that much gets no more blocks
        unsigned files = 16;
        bool isSynced = false;  // whether a block must have reached the medium before it counts as recorded
    };
    enum EResult { RECORDED, KNOWN, FAILED };

    CJournal(const CVQPath& folder, const SLimits& limits) : mFolder(folder), mLimits(limits) {}

    /// Looks through what is there. Call it once, first.
    bool open();
    /// `bytes` is the block as it travelled.
    EResult append(const SBlock& block, const unsigned char* bytes);
    /// One line for each damage that `open` has found.
    const TVQVector<CVQString>& getDamages() const { return mDamages; }

private:
    /// A sampler's last block.
    struct SLast {
        unsigned sequence;
        unsigned file;
    };

    bool readFile(unsigned number, bool isNewest);
    void note(const SBlock& block);
    bool openForWriting(unsigned number);
    bool beginNextFile();
    void dropOldFiles();
    bool write(const unsigned char* bytes, unsigned size);

    const CVQPath mFolder;
    const SLimits mLimits;
    TVQMap<unsigned long long, SLast> mSamplers;
    TVQVector<unsigned> mNumbers;  // of the files that are there, ascending
    TVQVector<CVQString> mDamages;
    unsigned mNumber = 0;  // of the newest file, 0: none yet
    CVQFileHandle mFile;   // the newest file; closed when it is not to be written
    unsigned mSize = 0;    // its whole blocks
};
