// Block: samples that travel, are checked and are recorded together. A recording is one block behind the other.
//   Shape    a header of 32 bytes, then the body, which is one sample behind the other. The header:
//              0  the word kMagic        12  sequence number     24  CRC-32 of the body
//              4  the sampler            16  number of samples   28  CRC-32 of these 28 bytes
//                                        20  bytes of the body
//            Numbers are unsigned, low byte first; the sampler has 8 bytes, all others 4.
//   Identity a sampler is known by the microsecond at which it began, and numbers its blocks from 1. So no two blocks
//            are alike, and a block that comes again is recognised.
#pragma once

#include "shared/SSample.h"

#include <CVQByteStream.h>
#include <TVQVector.h>

struct SBlock {
    static constexpr unsigned kMagic = 0x4B4C4253;  // "SBLK"
    static constexpr unsigned kHeaderSize = 32;
    static constexpr unsigned kLargestSize = 1 << 20;

    unsigned long long sampler = 0;
    unsigned sequence = 0;
    unsigned sampleCount = 0;
    unsigned bodySize = 0;
    unsigned bodyCrc = 0;
    const unsigned char* body = nullptr;  // somebody else's memory

    unsigned getSize() const { return kHeaderSize + bodySize; }
};

/// Header and body as they travel.
CVQByteStream makeBlock(unsigned long long sampler, unsigned sequence, unsigned sampleCount,
                        const CVQByteStream& samples);

/// False when the body does not hold exactly the samples that the header announces.
bool readSamples(const SBlock& block, TVQVector<SSample>& samples);

/// Goes through the blocks of a recording, past what is damaged.
class CBlockReader {
public:
    enum EFound {
        BLOCK,   // a block whose checks are right
        DAMAGE,  // bytes that are none; the next block stands behind them
        CUT,     // the beginning of a block; the rest is not there
        END
    };

    /// The bytes must stay as they are.
    CBlockReader(const unsigned char* bytes, unsigned size) : mBytes(bytes), mSize(size) {}

    EFound next();

    /// Of what was found. After CUT and END nothing more is.
    const SBlock& getBlock() const { return mBlock; }
    unsigned getOffset() const { return mOffset; }
    unsigned getLength() const { return mNext - mOffset; }

private:
    bool readHeader(unsigned offset);
    EFound found(EFound what, unsigned end);
    unsigned findHeader(unsigned offset);

    const unsigned char* mBytes;
    unsigned mSize;
    unsigned mOffset = 0;
    unsigned mNext = 0;
    SBlock mBlock;
};
