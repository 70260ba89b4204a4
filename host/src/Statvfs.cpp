#include <sys/statvfs.h>
#undef statvfs  // here the C library's own is meant

#include "Descriptor.h"
#include "Ending.h"
#include "Errno.h"
#include "ThreadState.h"
#include "Unsupported.h"

#include <errno.h>
#include <linux/magic.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

namespace host {
namespace {

/// Where the mount table names a device, and where the type of its file system. A "-" ends the fields whose number
/// varies.
constexpr int kDeviceField = 2;
constexpr int kFirstVaryingField = 6;

/// Finds the type that the mount table gives for a device, one character at a time: a line may be of any length.
class MountTableSearch {
public:
    MountTableSearch(dev_t device, char (&type)[16]) : mType(type) {
        snprintf(mDevice, sizeof(mDevice), "%u:%u", major(device), minor(device));
    }

    /// True once the type was found.
    bool take(char character) {
        if (character != ' ' && character != '\n') {
            if (mLength + 1 < sizeof(mWord))  // both sought words are shorter, and of a type these are what is kept
                mWord[mLength++] = character;
            return false;
        }
        mWord[mLength] = '\0';
        if (mTypeIsNext) {
            memcpy(mType, mWord, sizeof(mType));
            return true;
        }
        mIsDevice |= mField == kDeviceField && strcmp(mWord, mDevice) == 0;
        mTypeIsNext = mIsDevice && mField >= kFirstVaryingField && strcmp(mWord, "-") == 0;
        ++mField;
        mLength = 0;
        if (character == '\n') {
            mField = 0;
            mIsDevice = false;
        }
        return false;
    }

private:
    char (&mType)[16];
    char mDevice[16];
    char mWord[16] = {};
    size_t mLength = 0;
    int mField = 0;
    bool mIsDevice = false;
    bool mTypeIsNext = false;
};

/// Without a descriptor for it the answer is an error: another one would depend on how many are open.
enum class InMountTable { FOUND, UNKNOWN, NO_DESCRIPTOR };

InMountTable findInMountTable(dev_t device, char (&type)[16]) {
    const Descriptor table(open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
    if (!table.isOpen())
        return errno == EMFILE || errno == ENFILE ? InMountTable::NO_DESCRIPTOR : InMountTable::UNKNOWN;
    MountTableSearch search(device, type);
    char buffer[1024];
    for (;;) {
        const ssize_t bytes = read(table.get(), buffer, sizeof(buffer));
        if (bytes < 0 && errno == EINTR)
            continue;
        if (bytes <= 0)
            return InMountTable::UNKNOWN;
        for (ssize_t i = 0; i < bytes; ++i) {
            if (search.take(buffer[i]))
                return InMountTable::FOUND;
        }
    }
}

/// For files whose device is not that of their mount, and where there is no mount table.
bool findByMagic(const char* path, char (&type)[16]) {
    constexpr unsigned kZfs = 0x2FC12FC1;
    constexpr unsigned kXfs = 0x58465342;
    const struct {
        unsigned magic;
        const char* name;
    } kTypes[] = {
        {BTRFS_SUPER_MAGIC, "btrfs"}, {OVERLAYFS_SUPER_MAGIC, "overlay"}, {kZfs, "zfs"},
        {TMPFS_MAGIC, "tmpfs"},       {EXT4_SUPER_MAGIC, "ext4"},         {kXfs, "xfs"},
        {NFS_SUPER_MAGIC, "nfs"},     {PROC_SUPER_MAGIC, "proc"},
    };
    struct statfs64 status;
    if (statfs64(path, &status) != 0)
        return false;
    for (const auto& row : kTypes) {
        if (static_cast<unsigned>(status.f_type) == row.magic) {
            snprintf(type, sizeof(type), "%s", row.name);
            return true;
        }
    }
    return false;
}

/// Of a file system that is larger than a field can tell, as much as it can.
template <class Field>
Field atMost(uint64_t count) {
    constexpr Field kMost = static_cast<Field>(~Field(0));
    return count < kMost ? static_cast<Field>(count) : kMost;
}

}  // namespace
}  // namespace host

using namespace host;

int nto_statvfs(const char* path, struct nto_statvfs* status) {
    dropTimeout();
    struct statvfs64 known;
    struct stat64 file;
    if (statvfs64(path, &known) != 0 || stat64(path, &file) != 0)
        return -1;
    char type[sizeof(status->f_basetype)] = {};
    ErrnoKeeper keeper;
    {
        const EndsLater untilClosed;
        const InMountTable answer = findInMountTable(file.st_dev, type);
        if (answer == InMountTable::NO_DESCRIPTOR) {
            keeper.report(errno);
            return -1;
        }
        if (answer == InMountTable::UNKNOWN && !findByMagic(path, type)) {
            keeper.report(unsupported("statvfs of a file system of unknown type", ENOTSUP));
            return -1;
        }
    }
    *status = {known.f_bsize,
               known.f_frsize,
               atMost<fsblkcnt_t>(known.f_blocks),
               atMost<fsblkcnt_t>(known.f_bfree),
               atMost<fsblkcnt_t>(known.f_bavail),
               atMost<fsfilcnt_t>(known.f_files),
               atMost<fsfilcnt_t>(known.f_ffree),
               atMost<fsfilcnt_t>(known.f_favail),
               known.f_fsid,
               known.f_flag,
               known.f_namemax,
               {}};
    memcpy(status->f_basetype, type, sizeof(type));
    return 0;
}
