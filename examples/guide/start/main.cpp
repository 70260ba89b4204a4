#include <CVQString.h>
#include <VQSyslog.h>
#include <cstdio>

int main() {
    CVQString greeting("Hello from %1");
    greeting.replaceArg("Łódź");
    VQSyslog::logMsg(0, VQSyslog::NOTICE, "started, %u characters to say", greeting.getCharacterCount());
    std::printf("%s\n", greeting.c_str());
}
