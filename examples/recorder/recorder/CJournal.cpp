#include "recorder/CJournal.h"

#include "shared/Folder.h"

#include <VQFileOperations.h>
#include <VQSyslog.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>

namespace {

constexpr int kWriteTimeoutMs = 2000;

}

bool CJournal::open() {
    if (!Folder::listFiles(mFolder, mNumbers)) {
        return false;
    }
    for (const unsigned number : mNumbers) {
        mNumber = number;
        if (!readFile(number, number == *(mNumbers.end() - 1))) {
            return false;
        }
    }
    return true;
}

/// Learns which blocks there are. The newest file is opened to be written on, unless it is damaged.
bool CJournal::readFile(unsigned number, bool isNewest) {
    CVQRCMemoryBuffer bytes;
    if (!Folder::load(Folder::getFile(mFolder, number), bytes)) {
        return false;
    }
    CBlockReader reader(bytes.getData(), bytes.getSize());
    bool isDamaged = false;
    CBlockReader::EFound found = reader.next();
    for (; found == CBlockReader::BLOCK || found == CBlockReader::DAMAGE; found = reader.next()) {
        if (found == CBlockReader::BLOCK) {
            note(reader.getBlock());
        } else {
            isDamaged = true;
            CVQString damage;
            damage.format("file %u is damaged at byte %u; it stays as it is", number, reader.getOffset());
            mDamages.push_back(damage);
        }
    }
    if (!isNewest || isDamaged) {
        return true;
    }
    mSize = reader.getOffset();
    if (!openForWriting(number)) {
        return false;
    }
    if (found == CBlockReader::CUT) {
        VQSyslog::logMsg(0, VQSyslog::WARNING,
                         "recorder: %u bytes of a block that was cut short were taken off file %u",
                         reader.getLength(), number);
        return mFile.truncate(mSize);
    }
    return true;
}

CJournal::EResult CJournal::append(const SBlock& block, const unsigned char* bytes) {
    const SLast* const last = mSamplers.find(block.sampler);
    if (last != nullptr && block.sequence <= last->sequence) {
        return KNOWN;
    }
    const bool isFull = !mFile.isOpen() || mSize >= mLimits.fileSize;
    if ((isFull && !beginNextFile()) || !write(bytes, block.getSize())) {
        return FAILED;
    }
    note(block);
    return RECORDED;
}

void CJournal::note(const SBlock& block) {
    const SLast last = {block.sequence, mNumber};
    if (SLast* const known = mSamplers.find(block.sampler)) {
        *known = last;
    } else {
        mSamplers.insert(block.sampler, last);
    }
}

bool CJournal::openForWriting(unsigned number) {
    return mFile.open(Folder::getFile(mFolder, number), O_WRONLY | O_CREAT | O_APPEND);
}

bool CJournal::beginNextFile() {
    if (!openForWriting(mNumber + 1)) {
        return false;
    }
    ++mNumber;
    mNumbers.push_back(mNumber);
    mSize = 0;
    dropOldFiles();
    VQSyslog::logMsg(0, VQSyslog::INFO, "recorder: began file %u", mNumber);
    return true;
}

/// A sampler whose last block goes with its file need not be remembered: nothing of it is there to be doubled.
void CJournal::dropOldFiles() {
    while (static_cast<unsigned>(mNumbers.size()) > mLimits.files) {
        const unsigned oldest = mNumbers[0];
        if (!VQFileOperations::remove(Folder::getFile(mFolder, oldest))) {
            VQSyslog::logMsg(0, VQSyslog::ERROR, "recorder: cannot remove file %u: %s", oldest,
                             std::strerror(errno));
            return;
        }
        mNumbers.erase(0);
        for (int i = mSamplers.size() - 1; i >= 0; --i) {
            if (mSamplers.at(i).value.file <= oldest) {
                mSamplers.erase(mSamplers.at(i).key);
            }
        }
    }
}

/// All of it or nothing.
bool CJournal::write(const unsigned char* bytes, unsigned size) {
    if (mFile.writeN(bytes, size, kWriteTimeoutMs) && (!mLimits.isSynced || mFile.sync())) {
        mSize += size;
        return true;
    }
    const int reason = errno;
    if (!mFile.truncate(mSize)) {
        mFile.close();  // what the failed write left there stays the last of this file
    }
    errno = reason;
    return false;
}
