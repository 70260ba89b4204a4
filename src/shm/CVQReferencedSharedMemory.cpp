#include <CVQReferencedSharedMemory.h>

#include <CVQAsserter.h>
#include <CVQSharedMemory.h>
#include <IVQIStream.h>
#include <IVQOStream.h>
#include <VQAtomic.h>
#include <VQSyslog.h>

#include <climits>
#include <cstring>
#include <unistd.h>

namespace {

constexpr char kUnit[] = "CVQReferencedSharedMemory";
constexpr unsigned kLineCreate = 90;
constexpr unsigned kLineOpen = 110;

constexpr unsigned kCountSize = sizeof(unsigned);
static_assert(kCountSize == 4, "the processes of a system share the count");

/// Whether `bytes` can be mapped of an object of `objectSize`, with memory behind every page.
bool reaches(unsigned long long objectSize, unsigned bytes) {
    const unsigned long long page = static_cast<unsigned long long>(sysconf(_SC_PAGESIZE));
    return (objectSize + page - 1) / page * page >= bytes;
}

}  // namespace

CVQReferencedSharedMemory::CVQReferencedSharedMemory(const char* name, unsigned size, bool create)
    : mMemory(new CVQSharedMemory(name, size + kCountSize)) {
    bool isCreated = false;
    unsigned long long objectSize = 0;
    if (size <= UINT_MAX - kCountSize) {
        isCreated = mMemory->map(/*recreate*/ false, /*readOnly*/ false, /*zeroFill*/ true,
                                 /*expectNone*/ create, objectSize);
    }
    unsigned* const begin = static_cast<unsigned*>(mMemory->getAddress());
    if (isCreated == create && begin != nullptr && reaches(objectSize, mMemory->getSize())) {
        mCount = begin;
        if (create) {
            *mCount = 1;
        } else {
            VQAtomic::increment(*mCount);
        }
        mData = mCount + 1;
        return;
    }
    if (isCreated) {
        mMemory->unlink();  // nobody could ever open it
    }
    doCheapAssert(kLineOpen, kUnit);
    VQSyslog::logMsg(0, VQSyslog::ERROR,
                     create ? "Could not create shared memory %s" : "Could not open referenced shared memory %s",
                     name != nullptr ? name : "(null)");
}

void CVQReferencedSharedMemory::leave() {
    if (mCount != nullptr && !VQAtomic::testDecrement(*mCount)) {
        mMemory->unmap();
        mMemory->unlink();
    }
    delete mMemory;
}

TVQRefCountPointer<CVQReferencedSharedMemory> CVQReferencedSharedMemory::create(const char* name, unsigned size) {
    auto* const made = new CVQReferencedSharedMemory(name, size, true);
    if (made->getDataPtr() == nullptr) {
        doCheapAssert(kLineCreate, kUnit);
        delete made;
        return {};
    }
    return made;
}

unsigned CVQReferencedSharedMemory::getSize() const {
    // Kept: refshm-size-unmapped. Receivers tell a segment without memory by it.
    return (mMemory->getAddress() != nullptr ? mMemory->getSize() : 0U) - kCountSize;
}

unsigned CVQReferencedSharedMemory::getSharedMemoryRefCount() const {
    return mCount != nullptr ? VQAtomic::load(*mCount) : 0;
}

IVQOStream& operator<<(IVQOStream& stream, const TVQRefCountPointer<CVQReferencedSharedMemory>& handle) {
    const char* const name = handle ? handle->mMemory->getName() : nullptr;
    const unsigned length = name != nullptr ? static_cast<unsigned>(std::strlen(name)) : 0;
    stream << length;
    stream.write(name, length);
    stream << (handle ? handle->getSize() : 0U);
    if (handle && handle->mCount != nullptr) {
        VQAtomic::increment(*handle->mCount);
    }
    return stream;
}

const IVQIStream& operator>>(const IVQIStream& stream, TVQRefCountPointer<CVQReferencedSharedMemory>& handle) {
    char name[PATH_MAX];
    unsigned length = 0;
    unsigned size = 0;
    const bool isWhole = stream.read(&length, sizeof length) == sizeof length && length != 0 &&
                         length < sizeof name && stream.read(name, length) == length &&
                         stream.read(&size, sizeof size) == sizeof size;
    if (!isWhole) {
        handle = nullptr;
        return stream;
    }
    name[length] = '\0';
    handle = new CVQReferencedSharedMemory(name, size, false);
    if (handle->mCount != nullptr) {
        VQAtomic::testDecrement(*handle->mCount);  // the user that the sender counted; this handle is another
    }
    return stream;
}
