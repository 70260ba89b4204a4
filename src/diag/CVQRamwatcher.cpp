#include <CVQRamwatcher.h>

#include <CVQAsserter.h>
#include <VQMemory.h>
#include <VQOperatingSystem.h>
#include <sync/CVQProcessLock.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

constexpr char kUnit[] = "CVQRamWatch";
constexpr unsigned kLineDump = 134;

constexpr unsigned kTableSize = 512;
constexpr unsigned kThreadFactor = 100000;

using sElement = CVQRamwatcher::sElement;

static_assert(sizeof(sElement) == 16, "four 32-bit words");

/// Guards the tables' coming and going, not what is in them.
VQ_CONSTINIT CVQProcessLock sTablesLock;

/// Parallel to CVQRamwatcher::elements: the thread that an element belongs to, 0 while nobody's.
VQ_CONSTINIT std::atomic<unsigned*> sThreadIds{nullptr};

/// Tables that were given back while somebody could still reach into them: the next ones in use.
struct STables {
    sElement* elements;
    unsigned* threadIds;
};
VQ_CONSTINIT STables sParked{nullptr, nullptr};

VQ_CONSTINIT std::atomic<unsigned> sVisitors{0};

/// Holds the tables for a while without locking them: whoever gives them back either finds the visitor counted, or
/// has taken the pointers away before the visitor looks at them.
class CVisit {
public:
    CVisit() {
        sVisitors.fetch_add(1);
        mElements = CVQRamwatcher::elements.load();
        mThreadIds = sThreadIds.load();
    }
    ~CVisit() { sVisitors.fetch_sub(1); }
    CVisit(const CVisit&) = delete;
    CVisit& operator=(const CVisit&) = delete;

    bool areTablesThere() const { return mElements != nullptr && mThreadIds != nullptr; }
    sElement& element(unsigned index) const { return mElements[index]; }
    unsigned& threadId(unsigned index) const { return mThreadIds[index]; }

private:
    sElement* mElements;
    unsigned* mThreadIds;
};

unsigned load(const unsigned& word) {
    return __atomic_load_n(&word, __ATOMIC_RELAXED);
}

void store(unsigned& word, unsigned value) {
    __atomic_store_n(&word, value, __ATOMIC_RELAXED);
}

template <class Word>
Word* allocateZeroed() {
    void* const table = VQMemory::allocChecked(kTableSize * sizeof(Word));
    std::memset(table, 0, kTableSize * sizeof(Word));
    return static_cast<Word*>(table);
}

/// Puts tables in use unless some are: the parked ones, else `spare`, which is empty then. False when there are
/// none.
bool putInUse(STables& spare) {
    const std::lock_guard<CVQProcessLock> guard(sTablesLock);
    if (CVQRamwatcher::elements.load() != nullptr) {
        return true;
    }
    STables& tables = sParked.elements != nullptr ? sParked : spare;
    if (tables.elements == nullptr) {
        return false;
    }
    sThreadIds.store(tables.threadIds);
    CVQRamwatcher::elements.store(tables.elements);
    tables = {nullptr, nullptr};
    return true;
}

void provideTables() {
    STables made{nullptr, nullptr};
    if (putInUse(made)) {
        return;
    }
    // Without the lock: where there is no memory, the process ends here, and what runs at exit may want the tables.
    made = {allocateZeroed<sElement>(), allocateZeroed<unsigned>()};
    putInUse(made);
    VQMemory::release(made.elements);
    VQMemory::release(made.threadIds);
}

bool isAnyElementInUse(const sElement* table) {
    return std::any_of(table, table + kTableSize, [](const sElement& element) {
        return __atomic_load_n(&element.instances, __ATOMIC_ACQUIRE) != 0;
    });
}

}  // namespace

VQ_CONSTINIT std::atomic<CVQRamwatcher::sElement*> CVQRamwatcher::elements{nullptr};
VQ_CONSTINIT std::atomic<unsigned> CVQRamwatcher::mIndex{0};
VQ_CONSTINIT std::atomic<bool> CVQRamwatcher::mIsEnabled{false};
VQ_CONSTINIT std::atomic<bool> CVQRamwatcher::mIsInitialized{false};
VQ_CONSTINIT CVQRamwatcher::sElement CVQRamwatcher::dummyElement{0, 0, 0, 0};

bool CVQRamwatcher::isEnabled() {
    return mIsInitialized ? mIsEnabled.load() : evalIsEnabled();
}

bool CVQRamwatcher::evalIsEnabled() {
    const bool enabled = std::getenv("ENABLE_RAMWATCH") != nullptr;
    mIsEnabled = enabled;
    if (enabled) {
        provideTables();
    }
    mIsInitialized = true;
    return enabled;
}

unsigned CVQRamwatcher::getNewIndex() {
    // Past the last number the count would begin anew, at elements that are in use.
    unsigned index = mIndex.load();
    while (index != UINT_MAX && !mIndex.compare_exchange_weak(index, index + 1)) {
    }
    return index;
}

CVQRamwatcher::sElement* CVQRamwatcher::getElement(unsigned key) {
    const CVisit visit;
    if (!visit.areTablesThere()) {
        return &dummyElement;
    }
    const auto threadId = static_cast<unsigned>(VQOperatingSystem::getCurrentTID());
    const unsigned used = std::min(mIndex.load(), kTableSize);
    for (unsigned i = 0; i < used; ++i) {
        sElement& element = visit.element(i);
        if (load(visit.threadId(i)) == threadId && load(element.key) == key) {
            __atomic_fetch_add(&element.instances, 1U, __ATOMIC_RELAXED);
            return &element;
        }
    }
    const unsigned index = getNewIndex();
    if (index >= kTableSize) {
        return &dummyElement;
    }
    sElement& element = visit.element(index);
    store(element.key, key);
    store(element.counterA, 0);
    store(element.instances, 0);
    store(element.counterB, 0);
    store(visit.threadId(index), threadId);
    __atomic_fetch_add(&element.instances, 1U, __ATOMIC_RELAXED);
    return &element;
}

void CVQRamwatcher::dumpWatches(sElement* out, unsigned& count) {
    if (out == nullptr) {
        doCheapAssert(kLineDump, kUnit);
        return;
    }
    // Kept: ramwatch-count-past-table. The count may be higher than there are elements.
    count = std::min(mIndex.load(), count);
    const CVisit visit;
    const unsigned filled = visit.areTablesThere() ? std::min(count, kTableSize) : 0;
    for (unsigned i = 0; i < filled; ++i) {
        const sElement& element = visit.element(i);
        // Kept: ramwatch-packed-dump. Report readers take thread and instances apart again.
        const unsigned packed = load(element.instances) + load(visit.threadId(i)) * kThreadFactor;
        out[i] = {packed, load(element.counterA), load(element.counterB), load(element.key)};
    }
    std::fill(out + filled, out + count, sElement{0, 0, 0, 0});
}

void CVQRamwatcher::releaseElements() {
    if (!mIsEnabled) {
        return;
    }
    const std::lock_guard<CVQProcessLock> guard(sTablesLock);
    const STables tables{elements.exchange(nullptr), sThreadIds.exchange(nullptr)};
    if (tables.elements == nullptr) {
        return;
    }
    if (sVisitors.load() != 0 || isAnyElementInUse(tables.elements)) {
        sParked = tables;
        return;
    }
    VQMemory::release(tables.elements);
    VQMemory::release(tables.threadIds);
}
