#include "Unsupported.h"

#include "Errno.h"

#include <string.h>
#include <sys/uio.h>
#include <unistd.h>

namespace host {

int unsupported(const char* what, int error) {
    const ErrnoKeeper keeper;
    // Not by the C library's streams: the caller may be a handler that interrupted the heap, or be ended in between.
    const auto part = [](const char* text) { return iovec{const_cast<char*>(text), strlen(text)}; };
    const iovec line[] = {part("neutrino host: "), part(what), part(" is not supported on Linux\n")};
    [[maybe_unused]] const ssize_t written = writev(STDERR_FILENO, line, sizeof line / sizeof *line);
    return error;
}

}  // namespace host
