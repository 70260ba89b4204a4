// <pthread.h>: the C library's threads, and beside them Neutrino's synchronisation object.
#pragma once
#pragma GCC system_header  // for the line below, which no standard knows

#include_next <pthread.h>

#include <host/Sync.h>
