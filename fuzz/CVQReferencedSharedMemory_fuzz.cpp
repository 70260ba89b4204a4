// Handles of referenced segments read from arbitrary bytes: what they open, and what they leave behind, is what the
// plain rules say, and the data of those that have any can be read to the end.
//   Input    the first byte says how many bytes the stream delivers at a time; all others are handles, one behind
//            the other.
//   Names    lead into a folder of this program's own: shm_open and shm_unlink below take the C library's place.
#include "Fuzz.h"
#include "stream/Streams.h"

#include <CVQAsserter.h>
#include <CVQReferencedSharedMemory.h>

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <set>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using fuzz::require;
using Handle = TVQRefCountPointer<CVQReferencedSharedMemory>;

constexpr unsigned kPage = 4096;
constexpr unsigned kUnmappedSize = 4294967292U;

int sFolder = -1;
std::string sFolderPath;

/// What is left of an object's name in the folder; null, with the reason in errno, when no object has such a name.
const char* nameInFolder(const char* name) {
    name += *name == '/' ? 1 : 0;
    const std::string text(name);
    const bool isOne = !text.empty() && text.find('/') == std::string::npos && text != "." && text != "..";
    errno = isOne ? ENAMETOOLONG : EINVAL;
    return isOne && text.size() <= NAME_MAX ? name : nullptr;
}

struct Object {
    bool isThere = false;
    std::uint64_t size = 0;
    std::uint64_t blocks = 0;
    unsigned count = 0;  // its first word
};

Object objectOf(const char* name) {
    Object object;
    struct stat status;
    const char* const inFolder = nameInFolder(name);
    if (inFolder == nullptr || fstatat(sFolder, inFolder, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return object;
    object.isThere = true;
    object.size = static_cast<std::uint64_t>(status.st_size);
    object.blocks = static_cast<std::uint64_t>(status.st_blocks);
    const int descriptor = openat(sFolder, inFolder, O_RDONLY | O_CLOEXEC);
    require(descriptor >= 0 && pread(descriptor, &object.count, sizeof object.count, 0) >= 0,
            "an object to look at");
    close(descriptor);
    return object;
}

std::set<std::string> names() {
    std::set<std::string> found;
    DIR* const directory = opendir(sFolderPath.c_str());
    while (const dirent* const entry = readdir(directory))
        if (entry->d_name[0] != '.')
            found.insert(entry->d_name);
    closedir(directory);
    return found;
}

/// What there is to find, by name.
const std::map<std::string, Object> kMade = {
    {"one", {true, 100, 0, 1}},         {"two", {true, 2 * kPage, 0, 2}}, {"none", {true, 100, 0, 0}},
    {"most", {true, 100, 0, UINT_MAX}}, {"empty", {true, 0, 0, 0}},       {"short", {true, 2, 0, 0}},
};

void make(const std::string& name, const Object& object) {
    const int descriptor = openat(sFolder, name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const std::size_t counted = object.size < sizeof object.count ? 0 : sizeof object.count;
    require(descriptor >= 0 && ftruncate(descriptor, static_cast<off_t>(object.size)) == 0 &&
                pwrite(descriptor, &object.count, counted, 0) == static_cast<ssize_t>(counted),
            "an object to find");
    close(descriptor);
}

/// A handle's form, if it arrives whole: each of its three parts at once.
struct Form {
    bool isWhole = false;
    std::string name;
    unsigned size = 0;

    Form(const Bytes& bytes, std::size_t position, unsigned most) {
        const auto take = [&](void* to, std::size_t count) {
            if (std::min<std::size_t>(bytes.size() - position, most) < count)
                return false;
            std::memcpy(to, bytes.data() + position, count);
            position += count;
            return true;
        };
        unsigned length = 0;
        isWhole = take(&length, sizeof length) && length != 0 && length < PATH_MAX;
        if (!isWhole)
            return;
        name.resize(length);
        isWhole = take(name.data(), length) && take(&size, sizeof size);
        name.resize(std::strlen(name.c_str()));
    }
};

void readToTheEnd(const CVQReferencedSharedMemory& segment) {
    const auto* const data = static_cast<const volatile unsigned char*>(segment.getDataPtr());
    for (unsigned i = 0; i < segment.getSize(); i += kPage)
        static_cast<void>(data[i]);
    if (segment.getSize() != 0)
        static_cast<void>(data[segment.getSize() - 1]);
}

void readHandle(const Source& stream) {
    const Form form(stream.bytes, stream.position, stream.most);
    const Object before = form.isWhole ? objectOf(form.name.c_str()) : Object();
    {
        Handle handle(nullptr);
        stream >> handle;
        require(handle.isNull() == !form.isWhole, "whether there is a handle");
        if (handle.isNull())
            return;
        const std::uint64_t bytes = std::uint64_t{form.size} + 4;
        const bool fits = bytes <= UINT_MAX && bytes <= (before.size + kPage - 1) / kPage * kPage;
        require((handle->getDataPtr() != nullptr) == (before.isThere && fits), "whether there are data");
        if (handle->getDataPtr() == nullptr) {
            require(handle->getSharedMemoryRefCount() == 0, "the count of nothing");
            require(handle->getSize() == form.size || handle->getSize() == kUnmappedSize, "the size of nothing");
            return;
        }
        require(handle->getSize() == form.size, "the size");
        require(handle->getSharedMemoryRefCount() == before.count, "the count, taken over");
        readToTheEnd(*handle);
        require(objectOf(form.name.c_str()).blocks <= before.blocks + kPage / 512, "the memory of the object");

        Sink sink;
        sink << handle;
        const Form again(sink.bytes, 0, UINT_MAX);
        require(again.isWhole && again.name == form.name && again.size == form.size, "the form");
        require(handle->getSharedMemoryRefCount() == before.count + 1, "the count of a handle under way");
        Handle back;
        Source(sink.bytes) >> back;
        require(!back.isNull() && back->getDataPtr() != nullptr, "the handle that was sent");
        require(back->getSharedMemoryRefCount() == before.count + 1, "the count of two users");
        if (before.count == 0)  // somebody counted down without having been counted: the next one is the last
            return;
    }
    const Object after = objectOf(form.name.c_str());
    require(after.isThere == (before.count != 1), "who unlinks");
    require(!after.isThere || after.count == before.count - 1, "the count of those that are left");
}

}  // namespace

extern "C" int shm_open(const char* name, int flags, mode_t mode) {
    const char* const inFolder = nameInFolder(name);
    return inFolder == nullptr ? -1 : openat(sFolder, inFolder, flags | O_NOFOLLOW | O_CLOEXEC, mode);
}

extern "C" int shm_unlink(const char* name) {
    const char* const inFolder = nameInFolder(name);
    return inFolder == nullptr ? -1 : unlinkat(sFolder, inFolder, 0);
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    sFolderPath = access("/dev/shm", W_OK) == 0 ? "/dev/shm/marlix-fuzz-XXXXXX" : "/tmp/marlix-fuzz-XXXXXX";
    require(mkdtemp(sFolderPath.data()) != nullptr, "a folder");
    sFolder = open(sFolderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    require(sFolder >= 0, "a folder to open");
    std::atexit([] {
        for (const std::string& name : names())
            unlinkat(sFolder, name.c_str(), 0);
        rmdir(sFolderPath.c_str());
    });
    return fuzz::prepare(fuzz::Assertions::Expected);  // of openings that fail
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    CVQAsserter::setOccuredAssertions(0);
    for (const auto& [name, object] : kMade)
        make(name, object);

    const Source stream(Bytes(data + 1, data + size), data[0] == 0 ? UINT_MAX : data[0]);
    while (stream.position < stream.bytes.size())
        readHandle(stream);
    for (const std::string& name : names())
        require(kMade.count(name) != 0, "nothing is left of what could not be opened");
    return 0;
}
