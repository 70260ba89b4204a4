// CVQReferencedSharedMemory beside the segments in CVQReferencedSharedMemory_peers.cpp.
#include "Bench.h"
#include "CVQReferencedSharedMemory_workload.h"

#include <CVQByteStream.h>
#include <CVQReferencedSharedMemory.h>

#include <cstring>

namespace {

constexpr unsigned kCountSize = 4;  // of the object, behind which its data begin

using Handle = TVQRefCountPointer<CVQReferencedSharedMemory>;

unsigned receive(const char* bytes, unsigned size) {
    CVQByteStream message;
    message.write(bytes, size);
    Handle handle;
    message >> handle;
    unsigned letter = 0;
    std::memcpy(&letter, handle->getDataPtr(), sizeof letter);
    return letter;
}

MARLIX_BENCH_MANUAL("CVQReferencedSharedMemory_HandOver", "ours", 4096, 1 << 16, 1 << 20) {
    bench::handOvers(state, receive, [](const auto& receiver, const char* name, unsigned size) {
        const Handle handle = CVQReferencedSharedMemory::create(name, size - kCountSize);
        std::memcpy(handle->getDataPtr(), &bench::kLetter, sizeof bench::kLetter);
        CVQByteStream message;
        message << handle;
        receiver.handOver(message.getData(), message.getLength());
    });
}

}  // namespace
