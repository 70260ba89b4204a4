#include <process.h>

#include <unistd.h>

int _argc = 0;
char** _argv = nullptr;

namespace host {
namespace {

// The C library hands the arguments of main to every constructor. The shared library is linked to run its
// constructors before those of all others, which is before the C library has found the environment: so that code
// which runs at load time can ask for it, it is found here.
__attribute__((constructor(101))) void keepArguments(int argc, char** argv, char** environment) {
    _argc = argc;
    _argv = argv;
    if (environ == nullptr)
        environ = environment;
}

}  // namespace
}  // namespace host
