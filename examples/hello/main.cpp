// A text, its way through a byte stream, and a lock.
#include <CVQByteStream.h>
#include <CVQMutex.h>
#include <CVQString.h>
#include <cstdio>

int main() {
    CVQString greeting("Grüße, %1!");
    greeting.replaceArg("Welt");

    CVQByteStream stream;  // the bytes that would travel to another process
    stream << 1U << greeting;

    unsigned number = 0;
    CVQString received;
    stream >> number >> received;

    CVQMutex mutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
    if (mutex.lock(100)) {  // waits 100 ms at most
        std::printf("%u: %s %u characters, %u bytes\n", number, received.c_str(), received.getCharacterCount(),
                    received.getByteLength());
        mutex.unlock();
    }
}
