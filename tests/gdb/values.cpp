// Values of every kind that the debugger's printers know, whole and damaged. The first argument says which; the
// debugger stops in valuesAreReady and looks at its caller's variables.
#include <CVQBarrier.h>
#include <CVQBinarySemaphore.h>
#include <CVQBufferReader.h>
#include <CVQByteStream.h>
#include <CVQCircularByteBuffer.h>
#include <CVQClassID.h>
#include <CVQCountingSemaphore.h>
#include <CVQCriticalSection.h>
#include <CVQDateAndTime.h>
#include <CVQFix16.h>
#include <CVQMutex.h>
#include <CVQOTextStream.h>
#include <CVQPath.h>
#include <CVQRawMemoryBuffer.h>
#include <CVQString.h>
#include <CVQTimeSpan.h>
#include <CVQVersion.h>
#include <CVQWaitCondition.h>
#include <TVQConstRefCountedVector.h>
#include <TVQFormatString.h>
#include <TVQHashArray.h>
#include <TVQHashMap.h>
#include <TVQIntrusiveList.h>
#include <TVQIntrusiveSlist.h>
#include <TVQList.h>
#include <TVQMap.h>
#include <TVQOptional.h>
#include <TVQPtrVector.h>
#include <TVQQueue.h>
#include <TVQSortedVector.h>
#include <TVQVector.h>
#include <VQMutexAccess.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>

extern "C" void valuesAreReady();
extern "C" __attribute__((noinline)) void valuesAreReady() {
    asm volatile("" ::: "memory");
}

namespace {

struct SPoint {
    int x, y;
};

struct SWide {
    long long a, b, c;
    bool operator==(const SWide& other) const { return a == other.a; }
};

struct STimer : VQIntrusive::SVQListBaseHook {
    explicit STimer(int number) : id(number) {}
    int id;
};

struct SShortTimer : VQIntrusive::SVQSlistBaseHook {
    explicit SShortTimer(int number) : id(number) {}
    int id;
};

using Timers = TVQIntrusiveList<STimer, VQIntrusive::TVQListBaseHookAccessor<STimer>>;
using ShortTimers = TVQIntrusiveSlist<SShortTimer, VQIntrusive::TVQSlistBaseHookAccessor<SShortTimer>>;

void strings() {
    const CVQString empty, text("Grüße"), quoted("a \"b\"\\\n");
    CVQString longText;
    for (int i = 0; i < 50; ++i)
        longText.append("0123456789");
    CVQByteStream stream;
    stream << 3U;
    stream.write("a\0b", 3);
    CVQString withZero;
    stream >> withZero;
    const CVQPath path("/usr/lib");
    const CVQString& reference = text;
    CVQOTextStream noStream(0), textStream(0);
    textStream.write("streamed", 8);
    const CVQClassID classId("CThing");
    const CVQVersion version(1, 2, 3);
    struct SNested {
        CVQString name;
        int number;
    } nested{"inner", 7};
    valuesAreReady();
}

void buffers() {
    CVQBuffer empty, bytes, large;
    bytes.copyTo("Hello", 5, 0);
    const CVQBuffer sharing(bytes);
    const CVQRCMemoryBuffer& block = bytes.getMemoryBuffer();
    large.copyTo(std::string(300, '\x11').c_str(), 300, 0);
    CVQByteStream stream;
    stream << 7U << 8U;
    unsigned first = 0;
    stream >> first;
    CVQByteStream ended(stream);
    ended.readSkip(100);
    CVQRawMemoryBuffer raw(12);
    std::memset(raw.getData(), 0x22, 12);
    CVQBufferReader reader("0123456789", 10);
    reader.seek(7, CVQBufferReader::SEEK_DIR_SET);
    CVQCircularByteBuffer ring(8), wrapped(8), underflown(8);
    ring.write("abc", 3);
    wrapped.write("abcdefg", 7);
    char taken[5];
    wrapped.read(taken, 5);
    wrapped.write("hij", 3);
    underflown.read(taken, 1);
    valuesAreReady();
}

void numbers() {
    const CVQFix16 one(1), tiny = CVQFix16::fromRaw(1), negative(-2.25), lowest = CVQFix16::MINVALUE;
    const CVQDateAndTime epoch, date({2009, 3, 7}, {14, 5, 9, 123}, 0),
        after2100({2150, 12, 31}, {23, 59, 59, 0}, 0);
    CVQDateAndTime last;
    last.setMicroseconds(~0ULL);
    const CVQDateAndTime::SVQDate day(2009, 3, 7);
    const CVQDateAndTime::SVQTime time(14, 5, 9, 999999);
    const CVQTimeSpan zero, span(93'784'000'005ULL), back(~0ULL), most(1ULL << 63);
    const CVQTimeSpan::Span parts(true, 1, 2, 3, 4, 5);
    valuesAreReady();
}

/// Days of which the debugger has to show what the library itself says.
void dates() {
    for (const unsigned day :
         {0U, 58U, 59U, 789U, 10956U, 36524U, 36583U, 47846U, 146096U, 146097U, 376199U, 213503981U}) {
        CVQDateAndTime date;
        date.setMicroseconds(day * CVQDateAndTime::msMicrosIn1Day);
        const CVQString shown = date.toString();
        valuesAreReady();
    }
}

void vectors() {
    TVQVector<int> none, numbers;
    TVQVector<CVQString> texts;
    TVQVector<TVQVector<int>> nested;
    TVQVector<SPoint> points;
    TVQPtrVector<int> pointers;
    TVQSortedVector<int> sorted;
    TVQQueue<int> queue, noQueue;
    for (const int number : {3, 1, 2}) {
        numbers.push_back(number);
        sorted.insert(number);
        queue.push(number);
    }
    texts.push_back("one");
    texts.push_back("zwei");
    nested.push_back(numbers);
    nested.push_back(none);
    points.push_back({1, 2});
    pointers.push_back(numbers.data());
    pointers.push_back(nullptr);
    queue.pop();
    const TVQConstRefCountedVector<int> constant(numbers), sharing(constant), noConstant;
    TVQMap<CVQString, int> map;
    map.insert("two", 2);
    map.insert("one", 1);
    TVQOptional<CVQCriticalSection, 8U, 4U> noSection;
    TVQOptional<CVQString> optional;
    optional.reset(VQPrivate::TVQInplaceFactory_0());
    *optional.get() = "there";
    TVQVector<int> many;
    for (int i = 0; i < 500; ++i)
        many.push_back(i);
    valuesAreReady();
}

/// The entries in the order of a walk, as the debugger shows them.
template <class Table>
CVQString walk(const Table& table) {
    CVQString text;
    for (const auto& [key, value] : table) {
        const TVQFormatString<64> entry("[%d] = %d", static_cast<int>(key), value);
        text.append(text.isEmpty() ? "" : ", ").append(entry.c_str());
    }
    return text;
}

void tables() {
    TVQHashArray<int, CVQString> none, names;
    TVQHashArray<CVQString, SWide> wide;
    TVQHashArray<unsigned char, char> small;
    TVQHashArray<int, int> chained(2);
    TVQHashMap<int> noMap, map;
    TVQHashMap<CVQString> textMap;
    TVQHashMap<SWide> wideMap;
    names.insert(7, "seven");
    wide.insert("key", {1, 2, 3});
    small.insert(200, 'x');
    for (int i = 1; i <= 3; ++i)
        chained.insert(i, -i);
    map[5] = 50;
    textMap[5] = "fünf";
    wideMap[5] = {4, 5, 6};
    const CVQString chainedWalk = walk(chained);
    // Grown just now: what is written through a reference from before is still in the old array.
    TVQHashMap<int> grown;
    grown[1] = 1;
    const unsigned capacity = grown.capacity();
    for (unsigned key = 2; grown.capacity() == capacity; ++key) {
        int& held = grown[1];
        grown[key] = static_cast<int>(key);
        held = 77;
    }
    const CVQString grownWalk = walk(grown);
    valuesAreReady();
}

void lists() {
    TVQList<int> none, list{1, 2, 3};
    TVQList<CVQString> texts{"one", "zwei"};
    TVQList<long long> wide{1, -1};
    STimer first(1), second(2);
    Timers noTimers, timers;
    timers.push_back(first);
    timers.push_back(second);
    SShortTimer front(1), behind(2);
    ShortTimers noShortTimers, shortTimers;
    shortTimers.push_front(behind);
    shortTimers.push_front(front);
    valuesAreReady();
}

/// A thread that runs `body` under a name.
template <class Body>
std::thread named(const char* name, Body body) {
    return std::thread([name, body] {
        pthread_setname_np(pthread_self(), name);
        body();
    });
}

template <class Condition>
void waitUntil(Condition condition) {
    while (!condition())
        usleep(1000);
}

/// A word of an object that other threads change.
template <class T>
unsigned wordOf(const T& object, std::size_t index) {
    return __atomic_load_n(reinterpret_cast<const unsigned*>(&object) + index, __ATOMIC_RELAXED);
}

void locks() {
    CVQMutex freeMutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE), mutex(true, CVQMutex::NON_RECURSIVE);
    CVQMutex recursive(/*unlocked*/ false, CVQMutex::RECURSIVE);
    recursive.lock();
    CVQCriticalSection section;
    _sync raw = {}, orphaned = {};
    VQMutexAccess::create(raw, /*unlocked*/ true, /*shared*/ true, /*recursive*/ false);
    orphaned.__owner = 0x3FFFFFFE;
    CVQBinarySemaphore available(/*available*/ true), noUnits(/*available*/ false);
    CVQCountingSemaphore counting(2, 5);
    VQOSTypes::SEMHANDLE invalid = VQOSTypes::sInvalidSemHandle;
    CVQMutex conditionMutex(/*unlocked*/ true, CVQMutex::NON_RECURSIVE);
    CVQWaitCondition condition;
    CVQBarrier barrier(3);

    std::atomic<bool> isHeld{false}, isOver{false};
    std::thread threads[] = {
        named("holder",
              [&] {
                  mutex.lock();
                  section.lock();
                  isHeld = true;
                  waitUntil([&] { return isOver.load(); });
                  section.unlock();
                  mutex.unlock();
              }),
        named("atMutex",
              [&] {
                  waitUntil([&] { return isHeld.load(); });
                  mutex.lock();
                  mutex.unlock();
              }),
        named("atSemaphore", [&] { noUnits.lock(); }),
        named("atCondition",
              [&] {
                  conditionMutex.lock();
                  while (!isOver)
                      condition.wait(conditionMutex);
                  conditionMutex.unlock();
              }),
        named("atBarrier", [&] { barrier.wait(); }),
    };
    constexpr std::size_t kOwner = 1, kSemaphoreWaiters = 7, kRemaining = 9;
    waitUntil([&] { return (wordOf(mutex, kOwner) & 0x80000000U) != 0; });
    waitUntil([&] { return wordOf(noUnits, kSemaphoreWaiters) == 1; });
    waitUntil([&] { return (wordOf(condition, 0) & 0x7FFFFU) == 1; });
    waitUntil([&] { return wordOf(barrier, kRemaining) == 2; });
    // Each has counted itself in; before it sleeps it lets go of what guards the count.
    waitUntil([&] { return wordOf(noUnits, 2) == 0 && wordOf(conditionMutex, kOwner) == 0; });
    valuesAreReady();
    isOver = true;
    noUnits.unlock();
    conditionMutex.lock();
    condition.broadcast();
    conditionMutex.unlock();
    barrier.breakThrough();
    for (std::thread& thread : threads)
        thread.join();
}

}  // namespace

int main(int argc, char** argv) {
    const struct {
        const char* name;
        void (*show)();
    } groups[] = {{"strings", strings}, {"buffers", buffers}, {"numbers", numbers}, {"dates", dates},
                  {"vectors", vectors}, {"tables", tables},   {"lists", lists},     {"locks", locks}};
    for (const auto& group : groups)
        if (argc == 2 && std::strcmp(argv[1], group.name) == 0) {
            group.show();
            return 0;
        }
    return 2;
}
