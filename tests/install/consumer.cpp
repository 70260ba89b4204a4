// A service of somebody else: uses the installed headers from several rooms and checks what it gets.
#include <CVQByteStream.h>
#include <CVQCriticalSection.h>
#include <CVQString.h>
#include <VQMemory.h>

#include <cstdio>
#include <cstring>
#include <typeinfo>

namespace {

CVQString gGreeting("built before main");

// Built with run-time type information and exceptions, unlike the library.
class CountingStream : public CVQByteStream {
public:
    unsigned int flushes = 0;
    void flush() override { ++flushes; }
};

}  // namespace

int main(int, char** arguments) {
    CountingStream stream;
    IVQOStream& out = stream;
    out << gGreeting << 7u;
    out.flush();

    CVQString text;
    unsigned int number = 0;
    const IVQIStream& in = stream;
    in >> text >> number;

    CVQCriticalSection lock;
    lock.lock();
    const bool same = text == gGreeting && number == 7 && stream.flushes == 1;
    lock.unlock();

    const bool typed = typeid(out) == typeid(CountingStream) && dynamic_cast<CVQByteStream*>(&out) == &stream;
    const int* fromNew = new int(3);
    const bool served = fromNew != nullptr && *fromNew == 3 && allocateMemory(0) == nullptr;
    delete fromNew;

    std::printf("%s: %s\n", arguments[1], same && typed && served ? "all as expected" : "FAILED");
    return same && typed && served ? 0 : 1;
}
