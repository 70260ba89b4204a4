#include "Faults.h"
#include "shm/SharedName.h"

#include <CVQReferencedSharedMemory.h>
#include <CVQShMem.h>
#include <CVQSharedMemory.h>
#include <TVQRefCountPointer.h>
#include <VQSharedMemoryAccess.h>

#include <cerrno>
#include <cstring>
#include <sys/mman.h>

namespace {

using faults::Arm;
using faults::Row;
using faults::told;
using shmtest::SharedName;

constexpr unsigned kSize = 4096;

/// `map` and what is left of it: the object's size, -1 without one, and whether it is mapped.
struct Mapping {
    explicit Mapping(bool exists) : memory(name.text().c_str(), kSize) {
        if (exists)
            name.make(kSize);
    }

    std::string after(const char* call, bool result) const {
        return std::string(call) + (result ? " true" : " false") +
               (memory.getAddress() != nullptr ? ", mapped" : "") + ", " + std::to_string(name.objectSize());
    }

    SharedName name;
    CVQSharedMemory memory;
};

std::string map(const Arm& arm, bool exists) {
    Mapping mapping(exists);
    arm();
    const bool result = mapping.memory.map(/*recreate*/ false, /*readOnly*/ false, /*zeroFill*/ true);
    return mapping.after("map", result);
}
std::string mapNew(const Arm& arm) {
    return map(arm, false);
}
std::string mapOld(const Arm& arm) {
    return map(arm, true);
}

std::string recreate(const Arm& arm) {
    Mapping mapping(/*exists*/ true);
    arm();
    const bool result = mapping.memory.map(/*recreate*/ true, /*readOnly*/ false, /*zeroFill*/ true);
    return mapping.after("map", result);
}

std::string map2(const Arm& arm, bool exists) {
    Mapping mapping(exists);
    arm();
    const bool result = mapping.memory.map2(/*readOnly*/ false, /*initialise*/ true, /*lazy*/ false);
    return mapping.after("map2", result);
}
std::string map2New(const Arm& arm) {
    return map2(arm, false);
}
std::string map2Old(const Arm& arm) {
    return map2(arm, true);
}

std::string openObject(const Arm& arm) {
    const SharedName name;
    arm();
    const int descriptor =
        VQSharedMemoryAccess::open(name.text().c_str(), kSize, VQSharedMemoryAccess::OPEN_CREATE_EXCLUSIVE);
    const std::string result = descriptor != -1 ? "open" : told(descriptor);
    if (descriptor != -1)
        VQSharedMemoryAccess::close(descriptor);
    return result + ", " + std::to_string(name.objectSize());
}

std::string unlinkObject(const Arm& arm) {
    const SharedName name;
    name.make(kSize);
    arm();
    const std::string said = told(VQSharedMemoryAccess::unlink(name.text().c_str()));
    return said + ", " + std::to_string(name.objectSize());
}

std::string create(const Arm& arm) {
    const SharedName name;
    CVQShMem memory(name.text().c_str(), kSize);
    arm();
    const CVQShMem::CreateResult result = memory.create(/*setSize*/ true);
    return result == CVQShMem::CREATED  ? "created"
           : result == CVQShMem::OPENED ? "opened"
                                        : "failed " + faults::errorName(errno);
}

std::string createSegment(const Arm& arm, bool exists) {
    const SharedName name;
    if (exists)
        name.make(104);
    arm();
    const auto handle = CVQReferencedSharedMemory::create(name.text().c_str(), 100);
    return (handle.isNull() ? "none, " : "made, ") + std::to_string(name.objectSize());
}
std::string createSegmentNew(const Arm& arm) {
    return createSegment(arm, false);
}
std::string createSegmentOld(const Arm& arm) {
    return createSegment(arm, true);
}

std::string openSegment(const Arm& arm) {
    const SharedName name;
    name.make(104);
    arm();
    const CVQReferencedSharedMemory segment(name.text().c_str(), 100, /*create*/ false);
    return (segment.getDataPtr() == nullptr ? "none, " : "open, ") + std::to_string(name.objectSize());
}

}  // namespace

std::vector<Row> faults::shmRows() {
    const std::vector<int> besideEexist = errorsBeside("shm_open", {EEXIST});
    const std::vector<int> besideEnoent = errorsBeside("shm_open", {ENOENT});
    constexpr const char* thereAlready =
        "none, 104 | CVQReferencedSharedMemory:110 | 2 Could not create shared memory /marlix-test | "
        "CVQReferencedSharedMemory:90";
    return {
        {__LINE__, "VQSharedMemoryAccessQNX", "shm_open", openObject, "-1 @, -1", "open, 4096"},
        {__LINE__, "VQSharedMemoryAccessQNX", "ftruncate", openObject, "-1 @, 0", "open, 4096"},
        {__LINE__, "VQSharedMemoryAccessQNX", "mmap",
         [](const Arm& arm) {
             const SharedName name;
             name.make(kSize);
             const int descriptor =
                 VQSharedMemoryAccess::open(name.text().c_str(), kSize, VQSharedMemoryAccess::OPEN_EXISTING);
             arm();
             const std::string result = told(VQSharedMemoryAccess::map(descriptor, kSize, 0, 0));
             VQSharedMemoryAccess::close(descriptor);
             return result;
         },
         "null @"},
        {__LINE__, "VQSharedMemoryAccessQNX", "munmap",
         [](const Arm& arm) {
             void* const address = ::mmap(nullptr, kSize, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
             arm();
             const std::string result = told(VQSharedMemoryAccess::unmap(address, kSize));
             VQSharedMemoryAccess::unmap(address, kSize);
             return result;
         },
         "false @"},
        {__LINE__, "VQSharedMemoryAccessQNX", "close",
         [](const Arm& arm) {
             const int descriptor = dup(0);
             arm();
             const std::string result = told(VQSharedMemoryAccess::close(descriptor));
             ::close(descriptor);
             return result;
         },
         "false @", "true"},
        {__LINE__, "VQSharedMemoryAccessQNX", "shm_unlink", unlinkObject, "false @, 4096", "true, -1", 1, false,
         errorsBeside("shm_unlink", {EEXIST})},
        {__LINE__,
         "VQSharedMemoryAccessQNX",
         "shm_unlink",  // kept: shm-unlink-eexist
         unlinkObject,
         "true, 4096",
         nullptr,
         1,
         false,
         {EEXIST}},
        // Of the first attempt, to create: that the object exists sends it on to open it.
        {__LINE__, "VQSharedMemoryAccessQNX", "shm_open", create, "failed @", "created", 1, false, besideEexist},
        {__LINE__, "VQSharedMemoryAccessQNX", "shm_open", create, "opened", nullptr, 1, false, {EEXIST}},

        {__LINE__, "CVQSharedMemoryQNX", "shm_open", mapOld,
         "map false, 4096 | 2 Unable to create file mapping handle named /marlix-test: ?",
         "map false, mapped, 4096", 1, false, besideEnoent},
        {__LINE__, "CVQSharedMemoryQNX", "shm_open", mapOld, "map true, mapped, 4096", nullptr, 1, false, {ENOENT}},
        {__LINE__, "CVQSharedMemoryQNX", "shm_open", mapNew,
         "map false, -1 | 2 Unable to create file mapping handle named /marlix-test: ?", "map true, mapped, 4096",
         2},
        {__LINE__, "CVQSharedMemoryQNX", "ftruncate", mapNew,
         "map true, 0 | CVQSharedMemoryQNX:77 | 2 Unable to create file mapping handle named /marlix-test: ?",
         "map true, mapped, 4096"},
        {__LINE__, "CVQSharedMemoryQNX", "mmap", mapNew,
         "map true, 4096 | 2 Unable to map file /marlix-test to memory: ?"},
        {__LINE__, "CVQSharedMemoryQNX", "mmap", mapOld,
         "map false, 4096 | 2 Unable to map file /marlix-test to memory: ?"},
        {__LINE__, "CVQSharedMemoryQNX", "fstat", mapNew, "map true, mapped, 4096"},
        {__LINE__, "VQSharedMemoryAccessQNX", "close", mapNew, "map true, mapped, 4096"},
        {__LINE__, "CVQSharedMemoryQNX", "shm_unlink", recreate, "map true, mapped, 4096 | CVQSharedMemoryQNX:216",
         "map true, mapped, 4096", 1, false, errorsBeside("shm_unlink", {ENOENT})},
        {__LINE__,
         "CVQSharedMemoryQNX",
         "shm_unlink",
         recreate,
         "map true, mapped, 4096",
         nullptr,
         1,
         false,
         {ENOENT}},

        {__LINE__, "CVQSharedMemoryQNX", "shm_open", map2Old,
         "map2 false, 4096 | 2 Unable to create file mapping handle named /marlix-test: errno=#",
         "map2 false, mapped, 4096", 1, false, besideEnoent},
        {__LINE__,
         "CVQSharedMemoryQNX",
         "shm_open",
         map2Old,
         "map2 false, mapped, 4096",
         nullptr,
         1,
         false,
         {ENOENT}},
        {__LINE__, "CVQSharedMemoryQNX", "shm_open", map2New,
         "map2 false, -1 | 2 Unable to create file mapping handle named /marlix-test: errno=#",
         "map2 true, mapped, 4096", 2, false, besideEexist},
        {__LINE__,
         "CVQSharedMemoryQNX",
         "shm_open",  // another process was quicker, and has taken it away again
         map2New,
         "map2 false, -1 | 2 Unable to create file mapping handle named /marlix-test: errno=2",
         nullptr,
         2,
         false,
         {EEXIST}},
        {__LINE__, "CVQSharedMemoryQNX", "ftruncate", map2New, "map2 true, 0 | CVQSharedMemoryQNX:169",
         "map2 true, mapped, 4096"},
        {__LINE__, "CVQSharedMemoryQNX", "mmap", map2New,
         "map2 true, 4096 | 2 Unable to map file /marlix-test to memory: errno=#"},
        {__LINE__, "CVQSharedMemoryQNX", "munmap",
         [](const Arm& arm) {
             Mapping mapping(/*exists*/ true);
             mapping.memory.map(false, false, false);
             arm();
             mapping.memory.unmap();
             return mapping.memory.getAddress() == nullptr ? "unmapped" : "mapped";
         },
         "unmapped | CVQSharedMemoryQNX:231 | 2 Unable to remove file mapping (/marlix-test) from address space: "
         "?"},
        {__LINE__, "CVQSharedMemoryQNX", "strerror",
         [](const Arm& arm) {
             const SharedName name;
             CVQSharedMemory memory("/marlix/no such name", kSize);
             arm();
             return memory.map(false, false, false) ? "true" : "false";
         },
         "false | 2 Unable to create file mapping handle named /marlix/no such name: unknown"},

        // A segment that was made, and whose memory could not be had, is taken away again: nobody could open it.
        {__LINE__, "CVQSharedMemoryQNX", "mmap", createSegmentNew,
         "none, -1 | 2 Unable to map file /marlix-test to memory: ? | CVQReferencedSharedMemory:110 | "
         "2 Could not create shared memory /marlix-test | CVQReferencedSharedMemory:90"},
        {__LINE__, "CVQSharedMemoryQNX", "shm_open", createSegmentNew,
         "none, -1 | 2 Unable to create file mapping handle named /marlix-test: ? | CVQReferencedSharedMemory:110 "
         "| "
         "2 Could not create shared memory /marlix-test | CVQReferencedSharedMemory:90",
         "made, 104", 1, false, besideEexist},
        // That the object was there for a moment only is no reason to give up. What another process makes after that
        // moment is that process's.
        {__LINE__, "CVQSharedMemoryQNX", "shm_open", createSegmentNew, "made, 104", nullptr, 1, false, {EEXIST}},
        {__LINE__, "CVQSharedMemoryQNX", "shm_open", createSegmentOld,
         "none, 104 | 2 Unable to create file mapping handle named /marlix-test: ? | CVQReferencedSharedMemory:110 "
         "| "
         "2 Could not create shared memory /marlix-test | CVQReferencedSharedMemory:90",
         thereAlready, 2, false, besideEnoent},
        {__LINE__, "CVQSharedMemoryQNX", "shm_open", createSegmentOld, thereAlready, nullptr, 2, false, {ENOENT}},
        {__LINE__, "CVQSharedMemoryQNX", "fstat", openSegment,
         "none, 104 | CVQReferencedSharedMemory:110 | 2 Could not open referenced shared memory /marlix-test"},
    };
}
