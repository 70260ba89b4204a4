// Gives back a block that another library allocated at load time, and tells what that takes off the total.
#include <VQMemory.h>

#include <cstdio>

extern char* const earlyBlock;

int main() {
    const unsigned before = VQMemory::getHeapInfo().allocatedBytes;
    delete[] earlyBlock;
    std::printf("%u", before - VQMemory::getHeapInfo().allocatedBytes);
}
