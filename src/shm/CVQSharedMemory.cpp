#include <CVQSharedMemory.h>

#include <CVQAsserter.h>
#include <shm/copyName.h>

namespace {

constexpr char kUnit[] = "CVQSharedMemory";
constexpr unsigned kLineSize = 37;
constexpr unsigned kLineName = 43;

}  // namespace

CVQSharedMemory::CVQSharedMemory(const char* name, unsigned size) : mSize(size) {
    if (size == 0) {
        doCheapAssert(kLineSize, kUnit);
    }
    if (name == nullptr) {
        doCheapAssert(kLineName, kUnit);
        return;
    }
    mName = copyName(name);
}

CVQSharedMemory::~CVQSharedMemory() {
    unmap();
    delete[] mName;
}
