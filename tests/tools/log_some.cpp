// log_some STATUS [TEXT...]: logs each text, says "logged" on standard output and exits with the status.
#include <VQSyslog.h>
#include <cstdio>
#include <cstdlib>

int main(int argc, char* argv[]) {
    for (int i = 2; i < argc; ++i)
        VQSyslog::logMsg(0, VQSyslog::NOTICE, "%s", argv[i]);
    std::puts("logged");
    return argc > 1 ? std::atoi(argv[1]) : 0;
}
