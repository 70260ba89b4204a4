// <sys/slogcodes.h>: major codes of the system log.
#pragma once

#define _SLOGC_PRIVATE_START 10000              // the first code that belongs to applications
#define _SLOGC_TEST (_SLOGC_PRIVATE_START + 0)  // what programs use that have no code of their own
