#include "CallScript.h"

#include <cerrno>
#include <cstdarg>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace {

doubles::CallScript* sScript = nullptr;

int descriptorOf(int descriptor) {
    return descriptor;
}
int descriptorOf(DIR* directory) {
    return dirfd(directory);
}
template <class Other>
int descriptorOf(Other) {
    return -1;
}

/// Makes the call that this program's own definition hides, unless the script has it fail.
template <class Function, class First, class... Rest>
auto callOr(const char* name, First first, Rest... rest) {
    auto* const real = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
    using Result = decltype(real(first, rest...));
    doubles::CallScript* const script = sScript;
    if (script == nullptr || !script->answers(name))
        return real(first, rest...);
    script->lastDescriptor = descriptorOf(first);
    if (const int error = script->ask(); error != 0) {
        if (script->actsAnyway)
            real(first, rest...);
        errno = error;
        if constexpr (std::is_same_v<Result, void*>)
            return MAP_FAILED;
        else if constexpr (std::is_pointer_v<Result>)
            return Result(nullptr);
        else
            return Result(-1);
    }
    return real(first, rest...);
}

}  // namespace

doubles::CallScript::CallScript(std::string name, Answer answer)
    : mName(std::move(name)), mAnswer(std::move(answer)) {
    sScript = this;
}
doubles::CallScript::~CallScript() {
    sScript = nullptr;
}

// The library finds these before the C library's, as a program's symbols come first.
#pragma GCC visibility push(default)
extern "C" {

int access(const char* path, int mode) noexcept {
    return callOr<int(const char*, int)>("access", path, mode);
}
int chdir(const char* path) noexcept {
    return callOr<int(const char*)>("chdir", path);
}
int chmod(const char* path, mode_t mode) noexcept {
    return callOr<int(const char*, mode_t)>("chmod", path, mode);
}
int close(int descriptor) {
    return callOr<int(int)>("close", descriptor);
}
int closedir(DIR* directory) {
    return callOr<int(DIR*)>("closedir", directory);
}
char* getcwd(char* buffer, size_t size) noexcept {
    return callOr<char*(char*, size_t)>("getcwd", buffer, size);
}
int lstat64(const char* path, struct stat64* status) noexcept {
    return callOr<int(const char*, struct stat64*)>("lstat64", path, status);
}
int mkdir(const char* path, mode_t mode) noexcept {
    return callOr<int(const char*, mode_t)>("mkdir", path, mode);
}
int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return callOr<int(const char*, int, ...)>("open", path, flags, mode);
}
void* mmap64(void* address, size_t size, int protection, int flags, int descriptor, off64_t offset) noexcept {
    return callOr<void*(void*, size_t, int, int, int, off64_t)>("mmap64", address, size, protection, flags,
                                                                descriptor, offset);
}
int munmap(void* address, size_t size) noexcept {
    return callOr<int(void*, size_t)>("munmap", address, size);
}
DIR* opendir(const char* path) {
    return callOr<DIR*(const char*)>("opendir", path);
}
ssize_t read(int descriptor, void* buffer, size_t size) {
    return callOr<ssize_t(int, void*, size_t)>("read", descriptor, buffer, size);
}
struct dirent* readdir(DIR* directory) {
    return callOr<struct dirent*(DIR*)>("readdir", directory);
}
struct dirent64* readdir64(DIR* directory) {
    return callOr<struct dirent64*(DIR*)>("readdir64", directory);
}
int remove(const char* path) noexcept {
    return callOr<int(const char*)>("remove", path);
}
int rename(const char* from, const char* to) noexcept {
    return callOr<int(const char*, const char*)>("rename", from, to);
}
int rmdir(const char* path) noexcept {
    return callOr<int(const char*)>("rmdir", path);
}
int stat64(const char* path, struct stat64* status) noexcept {
    return callOr<int(const char*, struct stat64*)>("stat64", path, status);
}
int statvfs(const char* path, struct statvfs* status) {  // on the host a macro for another name
#define MARLIX_TEXT_OF(name) #name
#define MARLIX_NAME_OF(name) MARLIX_TEXT_OF(name)
    return callOr<int(const char*, struct statvfs*)>(MARLIX_NAME_OF(statvfs), path, status);
}
int symlink(const char* target, const char* link) noexcept {
    return callOr<int(const char*, const char*)>("symlink", target, link);
}
int unlink(const char* path) noexcept {
    return callOr<int(const char*)>("unlink", path);
}
int unlinkat(int directory, const char* name, int flags) noexcept {
    return callOr<int(int, const char*, int)>("unlinkat", directory, name, flags);
}

}  // extern "C"
#pragma GCC visibility pop
