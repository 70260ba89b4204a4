// shmview: shows the shared-memory objects of a Linux host, and removes those that killed processes left behind.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <getopt.h>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr char kFolder[] = "/dev/shm";
constexpr char kHelp[] =
    R"(Usage: shmview
       shmview --remove [--force] NAME

Lists the shared-memory objects, or removes one.

COUNT is the object's first word: the users of a referenced segment, anything in
others. PROCESSES is how many map it, of those that may be looked at; "left"
marks objects that none maps and whose count says otherwise. AGE is the time
since the object was made, or where the kernel does not tell, last changed.

      --remove  remove the object NAME
      --force   also while a process maps it
  -h, --help    this text

Exit status: 0 when all went well, 1 when the object was not removed, 2 for a
wrong command line.
)";

enum LongOption { REMOVE = 256, FORCE };

constexpr option kOptions[] = {
    {"remove", no_argument, nullptr, REMOVE},
    {"force", no_argument, nullptr, FORCE},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

struct Object {
    std::string name;  // with its slash
    std::uint64_t size;
    std::optional<std::uint32_t> count;
    std::time_t since;
    unsigned processes;

    bool isLeft() const { return processes == 0 && count.has_value() && *count != 0; }
};

using Directory = std::unique_ptr<DIR, int (*)(DIR*)>;

Directory openDirectory(const char* path) {
    return {opendir(path), &closedir};
}

/// How many processes map each file below the folder.
std::map<std::string, unsigned> countProcesses() {
    std::map<std::string, unsigned> counts;
    const std::string prefix = std::string(kFolder) + '/';
    const Directory processes = openDirectory("/proc");
    while (const dirent* const entry = processes ? readdir(processes.get()) : nullptr) {
        if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) == 0)
            continue;
        std::set<std::string> mapped;
        std::ifstream maps(std::string("/proc/") + entry->d_name + "/maps");
        for (std::string line; std::getline(maps, line);) {
            const std::size_t begin = line.find(prefix);
            if (begin != std::string::npos)
                mapped.insert(line.substr(begin + prefix.size()));  // of an unlinked object with " (deleted)"
        }
        for (const std::string& name : mapped)
            ++counts[name];
    }
    return counts;
}

std::optional<Object> look(int folder, const char* name) {
    struct statx status = {};
    if (statx(folder, name, AT_SYMLINK_NOFOLLOW, STATX_BASIC_STATS | STATX_BTIME, &status) != 0 ||
        !S_ISREG(status.stx_mode))
        return std::nullopt;
    const bool hasBirth = (status.stx_mask & STATX_BTIME) != 0;
    Object object{std::string("/") + name, status.stx_size, std::nullopt,
                  static_cast<std::time_t>((hasBirth ? status.stx_btime : status.stx_mtime).tv_sec), 0};
    const int descriptor = openat(folder, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor >= 0) {
        std::uint32_t count;
        if (pread(descriptor, &count, sizeof count, 0) == sizeof count)
            object.count = count;
        close(descriptor);
    }
    return object;
}

std::vector<Object> list() {
    std::vector<Object> objects;
    const Directory folder = openDirectory(kFolder);
    if (!folder)
        return objects;
    const auto processes = countProcesses();
    while (const dirent* const entry = readdir(folder.get())) {
        std::optional<Object> object = look(dirfd(folder.get()), entry->d_name);
        if (!object)
            continue;
        if (const auto found = processes.find(entry->d_name); found != processes.end())
            object->processes = found->second;
        objects.push_back(std::move(*object));
    }
    std::sort(objects.begin(), objects.end(), [](const Object& a, const Object& b) { return a.name < b.name; });
    return objects;
}

/// Names are anybody's: what a terminal would take for a command is not shown.
std::string printable(std::string name) {
    for (char& character : name)
        if (std::iscntrl(static_cast<unsigned char>(character)) != 0)
            character = '?';
    return name;
}

std::string ageOf(std::time_t since) {
    const long long seconds = std::time(nullptr) - since;
    const auto in = [&](long long unit, char letter) { return std::to_string(seconds / unit) + letter; };
    return seconds < 0        ? "0s"
           : seconds < 120    ? in(1, 's')
           : seconds < 7200   ? in(60, 'm')
           : seconds < 172800 ? in(3600, 'h')
                              : in(86400, 'd');
}

int show() {
    std::printf("%12s %10s %9s %5s       %s\n", "SIZE", "COUNT", "PROCESSES", "AGE", "NAME");
    for (const Object& object : list())
        std::printf("%12llu %10s %9u %5s  %-4s %s\n", static_cast<unsigned long long>(object.size),
                    object.count ? std::to_string(*object.count).c_str() : "-", object.processes,
                    ageOf(object.since).c_str(), object.isLeft() ? "left" : "", printable(object.name).c_str());
    return 0;
}

int fail(const std::string& name, const char* reason) {
    std::fprintf(stderr, "shmview: %s: %s\n", printable(name).c_str(), reason);
    return 1;
}

int remove(std::string name, bool isForced) {
    if (name.empty() || name[0] != '/')
        name.insert(0, 1, '/');
    if (!isForced)
        for (const Object& object : list())
            if (object.name == name && object.processes != 0)
                return fail(name, "in use (remove it with --force)");
    return shm_unlink(name.c_str()) == 0 ? 0 : fail(name, std::strerror(errno));
}

[[noreturn]] void offerHelp() {
    std::fputs("Try 'shmview --help'.\n", stderr);
    std::exit(2);
}

[[noreturn]] void refuse(const std::string& problem) {
    std::fprintf(stderr, "shmview: %s\n", problem.c_str());
    offerHelp();
}

}  // namespace

int main(int argc, char** argv) {
    bool isRemoving = false;
    bool isForced = false;
    for (int found; (found = getopt_long(argc, argv, "h", kOptions, nullptr)) != -1;) {
        switch (found) {
        case REMOVE:
            isRemoving = true;
            break;
        case FORCE:
            isForced = true;
            break;
        case 'h':
            std::fputs(kHelp, stdout);
            return 0;
        default:
            offerHelp();
        }
    }
    const int count = argc - optind;
    if (isForced && !isRemoving)
        refuse("--force goes with --remove");
    if (isRemoving && count == 0)
        refuse("remove which object?");
    if (count > (isRemoving ? 1 : 0))
        refuse("'" + printable(argv[optind + (isRemoving ? 1 : 0)]) + "' is one word too many");
    return isRemoving ? remove(argv[optind], isForced) : show();
}
