#include "shared/Block.h"

#include <CVQCRC.h>

namespace {

constexpr unsigned kCheckedHeader = SBlock::kHeaderSize - 4;  // all but its own CRC

unsigned crcOf(const unsigned char* bytes, unsigned size) {
    CVQCRC crc(CVQCRC::CRC32);
    if (size != 0) {
        crc.addBytes(bytes, size);
    }
    return crc.getCRC();
}

}  // namespace

CVQByteStream makeBlock(unsigned long long sampler, unsigned sequence, unsigned sampleCount,
                        const CVQByteStream& samples) {
    const unsigned size = samples.getLength();
    CVQByteStream block(SBlock::kHeaderSize + size);
    block << SBlock::kMagic << sampler << sequence << sampleCount << size << crcOf(samples.getData(), size);
    block << crcOf(block.getData(), kCheckedHeader);
    block.write(samples.getData(), size);
    return block;
}

bool readSamples(const SBlock& block, TVQVector<SSample>& samples) {
    CVQByteStream body(block.bodySize);
    body.write(block.body, block.bodySize);
    SSample sample;
    while (body.getReadPosition() < body.getLength()) {
        if (!readSample(body, sample)) {
            return false;
        }
        samples.push_back(sample);
    }
    return samples.size() == static_cast<int>(block.sampleCount);
}

CBlockReader::EFound CBlockReader::next() {
    mOffset = mNext;
    const unsigned left = mSize - mOffset;
    if (left == 0) {
        return found(END, mSize);
    }
    if (left < SBlock::kHeaderSize) {
        return found(CUT, mSize);
    }
    if (!readHeader(mOffset)) {
        return found(DAMAGE, findHeader(mOffset + 1));
    }
    if (left < mBlock.getSize()) {
        return found(CUT, mSize);
    }
    const bool isWhole = crcOf(mBlock.body, mBlock.bodySize) == mBlock.bodyCrc;
    return found(isWhole ? BLOCK : DAMAGE, mOffset + mBlock.getSize());
}

CBlockReader::EFound CBlockReader::found(EFound what, unsigned end) {
    mNext = end;
    return what;
}

/// Whether a header stands there, all of whose bytes are right.
bool CBlockReader::readHeader(unsigned offset) {
    CVQByteStream header(SBlock::kHeaderSize);
    header.write(mBytes + offset, SBlock::kHeaderSize);
    unsigned magic = 0;
    unsigned headerCrc = 0;
    header >> magic >> mBlock.sampler >> mBlock.sequence >> mBlock.sampleCount >> mBlock.bodySize >>
        mBlock.bodyCrc >> headerCrc;
    mBlock.body = mBytes + offset + SBlock::kHeaderSize;
    return magic == SBlock::kMagic && headerCrc == crcOf(mBytes + offset, kCheckedHeader) &&
           mBlock.bodySize <= SBlock::kLargestSize - SBlock::kHeaderSize;
}

/// The next header from there on, or the end.
unsigned CBlockReader::findHeader(unsigned offset) {
    constexpr unsigned char kFirst = SBlock::kMagic & 0xFF;
    for (; mSize - offset >= SBlock::kHeaderSize; ++offset) {
        if (mBytes[offset] == kFirst && readHeader(offset)) {
            return offset;
        }
    }
    return mSize;
}
