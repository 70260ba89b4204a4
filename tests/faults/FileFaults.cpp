#include "Faults.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <CVQConfigFileParser.h>
#include <CVQFILEDevice.h>
#include <CVQFileHandle.h>
#include <CVQIODevice.h>
#include <CVQMemoryMappedFile.h>
#include <CVQPath.h>
#include <TVQErrnoSafeFunction.h>
#include <VQFileOperations.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using faults::Arm;
using faults::Row;
using faults::told;
using support::TemporaryFolder;

/// A folder with a file "file" of the bytes "bytes" and a folder "folder" with a file in it.
struct Tree {
    Tree() {
        folder.write("file", "bytes");
        mkdir((folder / "folder").c_str(), 0777);
        folder.write("folder/inner", "x");
    }
    CVQPath at(const char* name) const { return CVQPath((folder / name).c_str()); }
    bool has(const char* name) const {
        struct stat status;
        return ::lstat((folder / name).c_str(), &status) == 0;
    }
    TemporaryFolder folder;
};

/// An operation on a tree of its own, which answers true or false.
template <class Operation>
std::function<std::string(const Arm&)> onTree(Operation operation) {
    return [operation](const Arm& arm) {
        const Tree tree;
        arm();
        return told(operation(tree));
    };
}

std::string removeTree(const Arm& arm) {
    const Tree tree;
    arm();
    const std::string result = told(VQFileOperations::recursiveRemove(tree.at("folder")));
    return result + (tree.has("folder") ? ", there" : ", gone");
}

std::string openHandle(const Arm& arm) {
    const Tree tree;
    CVQFileHandle file;
    arm();
    return told(file.open(tree.at("file"), O_RDONLY));
}

/// 5 bytes are there. A result of 0 is one of two: the end, or the time.
template <int timeoutMs>
std::string readHandle(const Arm& arm) {
    const Tree tree;
    CVQFileHandle file(tree.at("file"), O_RDONLY);
    char buffer[8];
    arm();
    const int result = file.read(buffer, sizeof buffer, timeoutMs);
    return result == 0 ? "0 " + faults::errorName(errno) : told(result);
}

template <int timeoutMs>
std::string writeHandle(const Arm& arm) {
    const Tree tree;
    CVQFileHandle file(tree.at("file"), O_WRONLY);
    arm();
    const int result = file.write("word", 4, timeoutMs);
    return result == 0 ? "0 " + faults::errorName(errno) : told(result);
}

template <int timeoutMs>
std::string writeAllToHandle(const Arm& arm) {
    const Tree tree;
    CVQFileHandle file(tree.at("file"), O_WRONLY);
    arm();
    return told(file.writeN("word", 4, timeoutMs));
}

template <class Operation>
std::function<std::string(const Arm&)> onHandle(Operation operation) {
    return [operation](const Arm& arm) {
        const Tree tree;
        CVQFileHandle file(tree.at("file"), O_RDWR);
        arm();
        return told(operation(file));
    };
}

std::string stateOf(const CVQIODevice& device) {
    return " state " + std::to_string(device.getLastError());
}

std::string openDevice(const Arm& arm) {
    const Tree tree;
    CVQIODevice device;
    arm();
    const std::string result = told(device.doOpen((tree.folder / "file").c_str(), CVQIODevice::ACCESS_READ));
    return result + stateOf(device);
}

template <int timeoutMs>
std::string readDevice(const Arm& arm) {
    const Tree tree;
    CVQIODevice device;
    device.doOpen((tree.folder / "file").c_str(), CVQIODevice::ACCESS_READ);
    char buffer[8];
    arm();
    const int result = device.read(buffer, sizeof buffer, timeoutMs);
    const std::string said = result == 0 ? "0 " + faults::errorName(errno) : told(result);
    return said + stateOf(device);
}

template <int timeoutMs>
std::string writeDevice(const Arm& arm) {
    const Tree tree;
    CVQIODevice device;
    device.doOpen((tree.folder / "file").c_str(), CVQIODevice::ACCESS_WRITE);
    arm();
    const int result = device.write("word", 4, timeoutMs);
    const std::string said = result == 0 ? "0 " + faults::errorName(errno) : told(result);
    return said + stateOf(device);
}

template <int timeoutMs>
std::string controlDevice(const Arm& arm) {
    int ends[2];
    if (pipe(ends) != 0)
        return "no pipe";
    CVQIODevice device;
    device.doOpen(("/proc/self/fd/" + std::to_string(ends[0])).c_str(), CVQIODevice::ACCESS_READ);
    int waiting = 0;
    arm();
    const std::string result = told(device.devctl(FIONREAD, &waiting, sizeof waiting, nullptr, timeoutMs));
    ::close(ends[0]);
    ::close(ends[1]);
    return result + stateOf(device);
}

std::string copyDevice(const Arm& arm) {
    const Tree tree;
    CVQIODevice device;
    device.doOpen((tree.folder / "file").c_str(), CVQIODevice::ACCESS_READ);
    arm();
    const CVQIODevice copy(device);
    return (copy.isOpened() ? "open" : "closed") + stateOf(copy);
}

std::string closeDevice(const Arm& arm) {
    const Tree tree;
    CVQIODevice device;
    device.doOpen((tree.folder / "file").c_str(), CVQIODevice::ACCESS_READ);
    arm();
    const std::string said = told(device.close());
    return said + stateOf(device) + (device.isOpened() ? " open" : " closed");
}

std::string mapFile(const Arm& arm) {
    const Tree tree;
    CVQMemoryMappedFile file(tree.at("file"));
    arm();
    const std::string said = told(file.map(0, 5, /*isLazy*/ false));
    return said + (file.getAddress() != nullptr ? ", mapped" : "");
}

std::string openStream(const Arm& arm) {
    const Tree tree;
    CVQFILEDevice file;
    arm();
    return told(file.open(tree.at("file"), O_RDONLY));
}

std::string readStream(const Arm& arm) {
    const Tree tree;
    CVQFILEDevice file;
    file.open(tree.at("file"), O_RDONLY);
    char buffer[5];
    arm();
    return told(file.read(buffer, sizeof buffer, -1));
}

std::string writeStream(const Arm& arm) {
    const Tree tree;
    CVQFILEDevice file;
    file.open(tree.at("file"), O_RDWR | O_TRUNC);
    arm();
    return told(file.write("word", 4, -1));
}

class Lines final : public CVQConfigFileParser::ICallback {
public:
    bool processConfigFileEntry(unsigned short, const char* line) override {
        text += line;
        return true;
    }
    std::string text;
};

// Kept whole: a file that could be opened was parsed, as far as it could be read.
std::string parse(const Arm& arm) {
    const TemporaryFolder folder;
    const std::string path = folder.write("config", "[A]\nline\n");
    Lines lines;
    CVQConfigFileParser parser;
    parser.addSectionCallback("A", 1, &lines);
    arm();
    const bool result = parser.parse(path.c_str());
    return (result ? "true " : "false ") + lines.text;
}

DIR* opened(const Tree& tree) {
    return marlix_qnx_safe_opendir(tree.folder.path().c_str());
}

std::string readDirectory(const Arm& arm) {
    const Tree tree;
    DIR* const directory = opened(tree);
    struct dirent entry;
    struct dirent* found = &entry;
    arm();
    const int error = marlix_qnx_safe_readdir_r(directory, &entry, &found);
    closedir(directory);
    return faults::errorName(error) + (found != nullptr ? " entry" : " none");
}

}  // namespace

std::vector<Row> faults::fileRows() {
    namespace Files = VQFileOperations;
    return {
        {__LINE__, "VQFileOperationsQNX", "chdir",
         onTree([](const Tree&) { return Files::changeDir(CVQPath(".")); }), "false @", "true"},
        {__LINE__, "VQFileOperationsQNX", "remove",
         onTree([](const Tree& tree) { return Files::remove(tree.at("file")); }), "false @", "true"},
        {__LINE__, "VQFileOperationsQNX", "rename",
         onTree([](const Tree& tree) { return Files::rename(tree.at("file"), tree.at("other")); }), "false @",
         "true"},
        {__LINE__, "VQFileOperationsQNX", "symlink",
         onTree([](const Tree& tree) { return Files::createSymlink(tree.at("file"), tree.at("link")); }), "false @",
         "true"},
        {__LINE__, "VQFileOperationsQNX", "mkdir",
         onTree([](const Tree& tree) { return Files::makeDir(tree.at("new"), 0777); }), "false @", "true"},
        {__LINE__, "VQFileOperationsQNX", "chmod",
         onTree([](const Tree& tree) { return Files::setPermissions(tree.at("file"), 0600); }), "false @", "true"},
        {__LINE__, "VQFileOperationsQNX", "stat64", onTree([](const Tree& tree) {
             CVQFileStatus status;
             return Files::getFileStatus(tree.at("file"), status);
         }),
         "false @", "true"},
        {__LINE__, "VQFileOperationsQNX", "lstat64", onTree([](const Tree& tree) {
             CVQFileStatus status;
             return Files::getSymlinkStatus(tree.at("file"), status);
         }),
         "false @", "true"},
        {__LINE__, "VQFileOperationsQNX", "access",
         [](const Arm& arm) {
             const Tree tree;
             bool isOther = false;
             arm();
             const std::string result = told(Files::isGranted(tree.at("file"), R_OK, &isOther));
             return result + (isOther ? ", other" : "");
         },
         "false @, other", "true", 1, false, errorsBeside("access", {EACCES})},
        {__LINE__,
         "VQFileOperationsQNX",
         "access",
         [](const Arm& arm) {
             const Tree tree;
             bool isOther = true;
             arm();
             const std::string result = told(Files::isGranted(tree.at("file"), R_OK, &isOther));
             return result + (isOther ? ", other" : "");
         },
         "false @",
         nullptr,
         1,
         false,
         {EACCES}},
        {__LINE__, "VQFileOperationsQNX", "getcwd",
         [](const Arm& arm) {
             arm();
             const CVQPath path = Files::getCurrentDir();
             const std::string reason = faults::errorName(errno);
             return path.getString().isEmpty() ? "empty " + reason : "a path";
         },
         "empty @", "a path"},
        {__LINE__, "VQFileOperationsQNX", "statvfs", onTree([](const Tree& tree) {
             char type[16];
             return Files::getFileSystemType(tree.at("file"), type, sizeof type);
         }),
         "false @", "true"},
        // Of several levels: what is there already is no failure of the levels above the last.
        {__LINE__, "VQFileOperationsQNX", "mkdir",
         [](const Arm& arm) {
             const Tree tree;
             arm();
             return told(Files::makeDirRecursive(tree.at("a/b"), 0777));
         },
         "false @", "true", 1, false, errorsBeside("mkdir", {EEXIST})},
        {__LINE__, "VQFileOperationsQNX", "unlink",  // a folder cannot be unlinked, for this or another reason
         removeTree, "true, gone"},
        {__LINE__, "VQFileOperationsQNX", "unlink",  // the file inside, after its folder's way to remove it
         [](const Arm& arm) {
             const Tree tree;
             arm();
             const std::string said = told(Files::recursiveRemove(tree.at("file")));
             return said + (tree.has("file") ? ", there" : ", gone");
         },
         "false ENOTDIR, there", "true, gone"},
        {__LINE__, "VQFileOperationsQNX", "unlinkat", removeTree, "true, gone"},
        {__LINE__, "TVQErrnoSafeFunctionQNX", "opendir", removeTree, "false @, there", "true, gone"},
        {__LINE__, "TVQErrnoSafeFunctionQNX", "readdir64", removeTree, "false @, there", "true, gone"},
        {__LINE__, "TVQErrnoSafeFunctionQNX", "closedir", removeTree, "true, gone"},
        {__LINE__, "VQFileOperationsQNX", "rmdir", removeTree, "false @, there", "true, gone"},
        {__LINE__, "VQFileOperationsQNX",
         "lstat64",  // whether it is a link cannot be told: it is tried as a folder
         [](const Arm& arm) {
             const Tree tree;
             symlink("folder", (tree.folder / "link").c_str());
             arm();
             const std::string said = told(Files::recursiveRemove(tree.at("folder")));
             return said + (tree.has("folder") ? ", there" : ", gone");
         },
         "true, gone"},
        {__LINE__, "TVQErrnoSafeFunctionQNX", "readdir", readDirectory, "@ none", nullptr, 1, false,
         errorsBeside("readdir", {EINTR})},
        // An emulator's directories do not fit into the form of 32 bits.
        {__LINE__,
         "TVQErrnoSafeFunctionQNX",
         "readdir",
         readDirectory,
         "@ none",
         support::isEmulated() ? "EOVERFLOW none" : "0 entry",
         1,
         false,
         {EINTR}},
        {__LINE__, "TVQErrnoSafeFunctionQNX", "closedir",
         [](const Arm& arm) {
             const Tree tree;
             DIR* const directory = opened(tree);
             arm();
             return told(marlix_qnx_safe_closedir(directory));
         },
         "-1 @", nullptr, 1, false, errorsBeside("closedir", {EINTR})},
        {__LINE__,
         "TVQErrnoSafeFunctionQNX",
         "closedir",  // not made again: the stream would be gone
         [](const Arm& arm) {
             const Tree tree;
             DIR* const directory = opened(tree);
             arm();
             return told(marlix_qnx_safe_closedir(directory));
         },
         "0",
         nullptr,
         1,
         false,
         {EINTR}},
        {__LINE__, "CVQFileHandleQNX", "open",
         [](const Arm& arm) {
             const Tree tree;
             CVQPath pattern = tree.at("a*z");
             CVQFileHandle file;
             arm();
             return told(Files::createUniqueFile(pattern, file));
         },
         "false @", "true", 1, false, errorsBeside("open", {EEXIST})},
        {__LINE__,
         "CVQFileHandleQNX",
         "open",
         [](const Arm& arm) {
             const Tree tree;
             CVQPath pattern = tree.at("a*z");
             CVQFileHandle file;
             arm();
             return told(Files::createUniqueFile(pattern, file));
         },
         "true",
         nullptr,
         1,
         false,
         {EEXIST}},

        {__LINE__, "CVQFileHandleQNX", "open", openHandle, "false @", "true"},
        {__LINE__, "CVQFileHandleQNX", "close",  // kept, and closed by the destructor
         [](const Arm& arm) {
             const Tree tree;
             CVQFileHandle file(tree.at("file"), O_RDONLY);
             arm();
             const std::string said = told(file.close());
             return said + (file.isOpen() ? ", open" : ", closed");
         },
         "true, open", "true, closed"},
        {__LINE__, "CVQFileHandleQNX", "KernelIO::read", readHandle<-1>, "-1 @", "5", 1, false,
         errorsBeside("KernelIO::read", {ETIMEDOUT})},
        {__LINE__, "CVQFileHandleQNX", "KernelIO::read", readHandle<1000>, "-1 @", "5", 1, false,
         errorsBeside("KernelIO::read", {ETIMEDOUT})},
        {__LINE__, "CVQFileHandleQNX", "KernelIO::read", readHandle<-1>, "0 @", nullptr, 1, false, {ETIMEDOUT}},
        {__LINE__, "CVQFileHandleQNX", "KernelIO::read", readHandle<1000>, "0 @", nullptr, 1, false, {ETIMEDOUT}},
        {__LINE__, "CVQFileHandleQNX", "KernelIO::read", readHandle<0>, "0 ETIMEDOUT", nullptr, 1, false, {EINTR}},
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout", readHandle<1000>, "-1 @", "5"},
        {__LINE__, "CVQFileHandleQNX", "KernelIO::write", writeHandle<-1>, "-1 @", "4", 1, false,
         errorsBeside("KernelIO::write", {ETIMEDOUT})},
        {__LINE__, "CVQFileHandleQNX", "KernelIO::write", writeHandle<-1>, "0 @", nullptr, 1, false, {ETIMEDOUT}},
        {__LINE__,
         "CVQFileHandleQNX",
         "KernelIO::write",
         writeHandle<0>,
         "0 ETIMEDOUT",
         nullptr,
         1,
         false,
         {EINTR}},
        {__LINE__, "CVQFileHandleQNX", "KernelIO::write", writeHandle<1000>, "-1 @", "4", 1, false,
         errorsBeside("KernelIO::write", {ETIMEDOUT})},
        {__LINE__, "CVQFileHandleQNX", "KernelIO::write", writeHandle<1000>, "0 @", nullptr, 1, false, {ETIMEDOUT}},
        {__LINE__, "CVQFileHandleQNX", "KernelIO::write", writeAllToHandle<-1>, "false @", "true"},
        {__LINE__, "CVQFileHandleQNX", "KernelIO::write", writeAllToHandle<1000>, "false @", "true"},
        {__LINE__,
         "CVQFileHandleQNX",
         "KernelIO::write",
         writeAllToHandle<0>,
         "false ETIMEDOUT",
         nullptr,
         1,
         false,
         {EINTR}},
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout", writeAllToHandle<1000>, "false @", "true"},
        {__LINE__, "CVQFileHandleQNX", "lseek64",
         onHandle([](CVQFileHandle& file) { return file.seek(2, CVQFileHandle::SEEK_FROM_START); }), "false @"},
        {__LINE__, "CVQFileHandleQNX", "lseek64",
         onHandle([](CVQFileHandle& file) { return static_cast<int>(file.tell()); }), "-1 @"},
        {__LINE__, "CVQFileHandleQNX", "ftruncate64",
         onHandle([](CVQFileHandle& file) { return file.truncate(2); }), "false @", "true"},
        {__LINE__, "CVQFileHandleQNX", "fsync", onHandle([](CVQFileHandle& file) { return file.sync(); }),
         "false @", "true"},

        {__LINE__, "CVQIODeviceQNX", "open", openDevice, "false @ state 3", "true state 0"},
        {__LINE__, "CVQIODeviceQNX", "KernelIO::read", readDevice<-1>, "-1 @ state 3", "5 state 0", 1, false,
         errorsBeside("KernelIO::read", {ETIMEDOUT})},
        {__LINE__, "CVQIODeviceQNX", "KernelIO::read", readDevice<1000>, "-1 @ state 3", "5 state 0", 1, false,
         errorsBeside("KernelIO::read", {ETIMEDOUT})},
        {__LINE__,
         "CVQIODeviceQNX",
         "KernelIO::read",
         readDevice<-1>,
         "0 @ state 1",
         nullptr,
         1,
         false,
         {ETIMEDOUT}},
        {__LINE__,
         "CVQIODeviceQNX",
         "KernelIO::read",
         readDevice<1000>,
         "0 @ state 1",
         nullptr,
         1,
         false,
         {ETIMEDOUT}},
        {__LINE__,
         "CVQIODeviceQNX",
         "KernelIO::read",
         readDevice<0>,
         "0 ETIMEDOUT state 1",
         nullptr,
         1,
         false,
         {EINTR}},
        {__LINE__, "CVQIODeviceQNX", "KernelIO::write", writeDevice<-1>, "-1 @ state 3", "4 state 0", 1, false,
         errorsBeside("KernelIO::write", {ETIMEDOUT})},
        {__LINE__, "CVQIODeviceQNX", "KernelIO::write", writeDevice<1000>, "-1 @ state 3", "4 state 0", 1, false,
         errorsBeside("KernelIO::write", {ETIMEDOUT})},
        {__LINE__,
         "CVQIODeviceQNX",
         "KernelIO::write",
         writeDevice<-1>,
         "0 @ state 1",
         nullptr,
         1,
         false,
         {ETIMEDOUT}},
        {__LINE__,
         "CVQIODeviceQNX",
         "KernelIO::write",
         writeDevice<1000>,
         "0 @ state 1",
         nullptr,
         1,
         false,
         {ETIMEDOUT}},
        {__LINE__,
         "CVQIODeviceQNX",
         "KernelIO::write",
         writeDevice<0>,
         "0 ETIMEDOUT state 1",
         nullptr,
         1,
         false,
         {EINTR}},
        {__LINE__, "CVQIODeviceQNX", "devctl", controlDevice<-1>, "false @ state 3", "true state 0", 1, false,
         errorsBeside("devctl", {ETIMEDOUT})},
        {__LINE__, "CVQIODeviceQNX", "devctl", controlDevice<1000>, "false @ state 3", "true state 0", 1, false,
         errorsBeside("devctl", {ETIMEDOUT})},
        {__LINE__,
         "CVQIODeviceQNX",
         "devctl",
         controlDevice<1000>,
         "false @ state 1",
         nullptr,
         1,
         false,
         {ETIMEDOUT}},
        {__LINE__,
         "CVQIODeviceQNX",
         "devctl",
         controlDevice<0>,
         "false ETIMEDOUT state 1",
         nullptr,
         1,
         false,
         {EINTR}},
        // A time-out that cannot be armed: the call is made without.
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout", readDevice<1000>, "5 state 0"},
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout", writeDevice<1000>, "4 state 0"},
        {__LINE__, "VQOperatingSystemQNX", "TimerTimeout", controlDevice<1000>, "true state 0"},
        {__LINE__, "CVQIODeviceQNX", "fcntl", copyDevice, "open state 0"},  // of the flags: one that is inherited
        {__LINE__, "CVQIODeviceQNX", "fcntl", copyDevice, "closed state 3", "open state 0", 2},
        {__LINE__, "CVQIODeviceQNX", "close", closeDevice, "false @ state 3 closed", "true state 0 closed", 1,
         false, errorsBeside("close", {ENOSYS})},
        {__LINE__, "CVQIODeviceQNX", "close", closeDevice, "true state 0 closed", nullptr, 1, false, {ENOSYS}},

        {__LINE__, "CVQMemoryMappedFileQNX", "mmap64", mapFile, "false @", "true, mapped", 1, false,
         errorsBeside("mmap64", {ENOTSUP})},
        {__LINE__, "CVQMemoryMappedFileQNX", "mmap64", mapFile, "false ENOSYS", nullptr, 1, false, {ENOTSUP}},
        {__LINE__, "CVQMemoryMappedFileQNX", "munmap",
         [](const Arm& arm) {
             const Tree tree;
             CVQMemoryMappedFile file(tree.at("file"));
             file.map(0, 5, false);
             arm();
             const std::string said = told(file.unmap());
             return said + (file.getAddress() != nullptr ? ", mapped" : "");
         },
         "false @, mapped", "true"},
        {__LINE__, "CVQMemoryMappedFileQNX", "munmap",
         [](const Arm& arm) {
             const Tree tree;
             CVQMemoryMappedFile file(tree.at("file"));
             file.map(0, 5, false);
             arm();
             const std::string said = told(file.map(0, 3, false));
             return said + ", " + std::to_string(file.getSize());
         },
         "true, 3 | 2 unmapping memory mapping failed - mapping anyway (operating system error #, ?)", "true, 3"},
        {__LINE__, "CVQMemoryMappedFileQNX", "munmap",
         [](const Arm& arm) {
             const Tree tree;
             CVQMemoryMappedFile file(tree.at("file"));
             file.map(0, 5, false);
             arm();
             const std::string said = told(file.close());
             return said + (file.isOpen() ? ", open" : ", closed");
         },
         "true, closed | 2 unmapping memory mapping failed - closing anyway (operating system error #, ?)",
         "true, closed"},

        {__LINE__, "CVQFILEDevice", "fopen", openStream, "false @", "true"},
        {__LINE__, "CVQFILEDevice", "fcntl", openStream, "true"},
        {__LINE__, "CVQFILEDevice", "fread", readStream, "-1 @", nullptr, 1, false, errorsBeside("fread", {EINTR})},
        {__LINE__,
         "CVQFILEDevice",
         "fread",  // kept: filedevice-interrupted-restarts
         readStream,
         "",
         "-1 0",
         1,
         false,
         {EINTR}},
        {__LINE__, "CVQFILEDevice", "fwrite", writeStream, "-1 @", nullptr, 1, false,
         errorsBeside("fwrite", {EINTR})},
        {__LINE__,
         "CVQFILEDevice",
         "fwrite",  // kept: filedevice-interrupted-restarts
         writeStream,
         "",
         "-1 0",
         1,
         false,
         {EINTR}},
        {__LINE__, "CVQFILEDevice", "fflush",
         [](const Arm& arm) {
             const Tree tree;
             CVQFILEDevice file;
             file.open(tree.at("file"), O_RDWR | O_TRUNC);
             arm();
             return told(file.sync());
         },
         "false @", "true"},
        {__LINE__, "CVQFILEDevice", "fflush",  // kept open: what is buffered is not lost
         [](const Arm& arm) {
             const Tree tree;
             CVQFILEDevice file;
             file.open(tree.at("file"), O_RDWR | O_TRUNC);
             arm();
             const std::string first = told(file.close());
             return first + ", then " + told(file.close());
         },
         "false @, then true", "true, then true"},
        {__LINE__, "CVQFILEDevice", "fclose",
         [](const Arm& arm) {
             const Tree tree;
             CVQFILEDevice file;
             file.open(tree.at("file"), O_RDWR | O_TRUNC);
             arm();
             const std::string first = told(file.close());
             return first + ", then " + told(file.close());
         },
         "false @, then true"},

        {__LINE__, "CVQConfigFileParser", "read", parse, "true ", "true line"},
        {__LINE__, "CVQFileHandleQNX", "open", parse, "false ", "true line"},
    };
}
