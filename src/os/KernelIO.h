// KernelIO: the file calls whose behaviour differs between Neutrino and its imitation, named in one place.
//   On Neutrino an armed time-out (SEND and REPLY) bounds read and write, which are messages to a server. A Linux
//   kernel knows no such time-out, so that there the host's own forms see to it.
#pragma once

#if defined(__QNXNTO__)
#include <unistd.h>

namespace KernelIO {
using ::read;
using ::write;
}  // namespace KernelIO
#else
#include <host/KernelIO.h>
#endif
