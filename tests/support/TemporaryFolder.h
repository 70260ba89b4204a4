// TemporaryFolder: an empty folder of the test's own, removed with all it holds at the end of the scope.
//   Errors   throws std::system_error when it cannot be made.
//   Threads  plain value; a forked child that exits does not remove its parent's folder.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace support {

class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    const std::string& path() const { return mPath; }
    /// The path of an entry in it, which need not exist.
    std::string operator/(const std::string& name) const { return mPath + '/' + name; }
    /// Makes a file with these bytes and returns its path.
    std::string write(const std::string& name, const std::string& bytes) const;
    /// The names of its entries, sorted.
    std::vector<std::string> list() const;

private:
    std::string mPath;
    pid_t mOwner;
};

/// The file's bytes; throws std::system_error when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace support
