#include "support/TemporaryFolder.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <unistd.h>

namespace support {
namespace {

// Takes the words in pieces: joining them allocates, which clears errno.
[[noreturn]] void fail(const char* what, const std::string& path) {
    const int error = errno;
    throw std::system_error(error, std::generic_category(), what + path);
}

}  // namespace

TemporaryFolder::TemporaryFolder() : mOwner(getpid()) {
    const char* parent = std::getenv("TMPDIR");
    mPath = std::string(parent && *parent ? parent : "/tmp") + "/marlix-XXXXXX";
    if (!mkdtemp(mPath.data()))
        fail("cannot make ", mPath);
}

TemporaryFolder::~TemporaryFolder() {
    if (getpid() != mOwner)
        return;
    std::error_code ignored;  // what a test made unremovable stays behind
    std::filesystem::remove_all(mPath, ignored);
}

std::string TemporaryFolder::write(const std::string& name, const std::string& bytes) const {
    const std::string path = *this / name;
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush())
        fail("cannot write ", path);
    return path;
}

std::vector<std::string> TemporaryFolder::list() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(mPath))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        fail("cannot open ", path);
    std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    if (file.bad())
        fail("cannot read ", path);
    return bytes;
}

}  // namespace support
