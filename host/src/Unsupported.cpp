#include "Unsupported.h"

#include "ErrnoKeeper.h"

#include <stdio.h>
#include <unistd.h>

namespace host {

int unsupported(const char* what, int error) {
    const ErrnoKeeper keeper;
    dprintf(STDERR_FILENO, "neutrino host: %s is not supported on Linux\n", what);
    return error;
}

}  // namespace host
