// What one would use instead of CVQReferencedSharedMemory.
#include "Bench.h"
#include "CVQReferencedSharedMemory_workload.h"

#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>

#if BENCH_BOOST
#include <boost/interprocess/managed_shared_memory.hpp>
#include <boost/interprocess/shared_memory_object.hpp>
#endif

namespace {

#if BENCH_BOOST
namespace ipc = boost::interprocess;

/// Where the letter lies, and the name behind it. Who unlinks the segment is settled between both: nobody counts.
struct Message {
    ipc::managed_shared_memory::handle_t letter;
    char name[64];
};

unsigned receive(const char* bytes, unsigned) {
    Message message;
    std::memcpy(&message, bytes, sizeof message);
    const ipc::managed_shared_memory segment(ipc::open_only, message.name);
    return *static_cast<const unsigned*>(segment.get_address_from_handle(message.letter));
}

MARLIX_BENCH_MANUAL("CVQReferencedSharedMemory_HandOver", "boost::interprocess", 4096, 1 << 16, 1 << 20) {
    bench::handOvers(state, receive, [](const auto& receiver, const char* name, unsigned size) {
        ipc::managed_shared_memory segment(ipc::create_only, name, size);
        void* const letter = segment.allocate(sizeof bench::kLetter);
        std::memcpy(letter, &bench::kLetter, sizeof bench::kLetter);
        Message message = {};
        message.letter = segment.get_handle_from_address(letter);
        std::strcpy(message.name, name);
        receiver.handOver(&message, sizeof message);
        ipc::shared_memory_object::remove(name);
    });
}
#endif

/// A new mapping of the object.
void* mapped(int descriptor, std::size_t size) {
    void* const address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    bench::check(address != MAP_FAILED, "a mapped object");
    close(descriptor);
    return address;
}

struct PlainMessage {
    unsigned size;
    char name[64];
};

unsigned receivePlain(const char* bytes, unsigned) {
    PlainMessage message;
    std::memcpy(&message, bytes, sizeof message);
    void* const address = mapped(shm_open(message.name, O_RDWR, 0), message.size);
    const unsigned letter = *static_cast<const unsigned*>(address);
    munmap(address, message.size);
    return letter;
}

MARLIX_BENCH_MANUAL("CVQReferencedSharedMemory_HandOver", "floor: shm_open, mmap", 4096, 1 << 16, 1 << 20) {
    bench::handOvers(state, receivePlain, [](const auto& receiver, const char* name, unsigned size) {
        const int descriptor = shm_open(name, O_RDWR | O_CREAT | O_EXCL, 0600);
        bench::check(descriptor >= 0 && ftruncate(descriptor, size) == 0, "an object of the size");
        void* const address = mapped(descriptor, size);
        std::memcpy(address, &bench::kLetter, sizeof bench::kLetter);
        PlainMessage message = {size, {}};
        std::strcpy(message.name, name);
        receiver.handOver(&message, sizeof message);
        munmap(address, size);
        shm_unlink(name);
    });
}

}  // namespace
