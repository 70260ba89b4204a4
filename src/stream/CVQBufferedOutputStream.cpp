#include <CVQBufferedOutputStream.h>

#include <CVQAsserter.h>

namespace {

constexpr char kUnit[] = "CVQBufferedOutputStream";
constexpr unsigned kLineThreshold = 30;

}  // namespace

CVQBufferedOutputStream::CVQBufferedOutputStream(IVQOStream& target, unsigned int capacity, bool useThreshold)
    : mTarget(target), mBytes(capacity), mThreshold(useThreshold ? capacity : 0) {
    if (useThreshold && capacity == 0) {
        doCheapAssert(kLineThreshold, kUnit);
    }
}

unsigned int CVQBufferedOutputStream::take(const void* source, unsigned int count) {
    if (mThreshold != 0 && count >= mThreshold) {
        flushAll();
        return mTarget.write(source, count);
    }
    const unsigned int taken = mBytes.write(source, count);
    if (mThreshold != 0 && pending() >= mThreshold) {
        passOn();
    }
    return taken;
}

unsigned int CVQBufferedOutputStream::pending() const {
    return mBytes.getLength() - mBytes.getReadPosition();
}

void CVQBufferedOutputStream::passOn() {
    mTarget.write(mBytes.getData(), pending());
    mBytes = CVQByteStream();  // of length 0; the block stays
}

void CVQBufferedOutputStream::flushAll() {
    if (pending() != 0) {
        passOn();
    }
    mTarget.flush();
}

static_assert(sizeof(void*) != 4 || sizeof(CVQBufferedOutputStream) == 12 + sizeof(CVQByteStream),
              "table, target, bytes, threshold");
