/* What a library sees that is started before others and has never heard of sys_marlix. */
#include <stdlib.h>

extern int _argc;
extern char** _argv;

int earlyArgc;
char** earlyArgv;
const char* earlyProgram;
const char* earlyLastArgument;
const char* earlyEnd = "not looked at";
const char* earlyEnvironment;

__attribute__((constructor(101))) static void look(void) {
    earlyArgc = _argc;
    earlyArgv = _argv;
    earlyEnvironment = getenv("PATH");
    if (earlyArgv == NULL)
        return;
    earlyProgram = earlyArgv[0];
    earlyLastArgument = earlyArgv[earlyArgc - 1];
    earlyEnd = earlyArgv[earlyArgc];
}
