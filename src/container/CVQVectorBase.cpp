#include <CVQVectorBase.h>

#include <CVQAsserter.h>
#include <VQContainerAssertions.h>
#include <VQMemory.h>
#include <diag/lengthenBlock.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <new>
#include <utility>

using SVectorData = CVQVectorBase::SVectorData;

namespace {

// Kept: vector-report-texts. Log readers tell the operations apart by these.
constexpr char kReserve[] = "CVQVectorBase.internal_reserve()";
constexpr char kInsert[] = "TVQVector.insert()";
constexpr char kReplace[] = "TVQVector.replace()";
constexpr unsigned kLineReserve = 128;
constexpr unsigned kLineResize = 225;
constexpr unsigned kLineErase = 272;
constexpr unsigned kLineInsert = 302;
constexpr unsigned kLineInsertCount = 360;
constexpr unsigned kLineReplace = 375;
constexpr unsigned kLineReplaceCount = 385;
constexpr unsigned kLineGetConst = 430;
constexpr unsigned kLineGet = 444;

constexpr int kLeastCapacity = 4;
constexpr int kLargestPowerOfTwo = 1 << 30;

static_assert(sizeof(CVQVectorBase) == sizeof(void*), "one pointer");
static_assert(sizeof(void*) != 4 || (sizeof(SVectorData) == 16 && alignof(SVectorData) == 8),
              "size, capacity, watch record, growth function; the slots follow aligned");
static_assert(offsetof(SVectorData, size) == 0 && offsetof(SVectorData, capacity) == 4 &&
                  offsetof(SVectorData, watch) == 8 && offsetof(SVectorData, growth) == 8 + sizeof(void*),
              "the fields follow each other");

/// An offset that a block's slots have, so that it fits.
std::size_t bytesOf(int count, int elementSize) {
    return static_cast<std::size_t>(count) * static_cast<std::size_t>(elementSize);
}

char* slotAt(SVectorData& block, int index, int elementSize) {
    return static_cast<char*>(block.slots()) + bytesOf(index, elementSize);
}

void add(unsigned& counter, int change) {
    __atomic_fetch_add(&counter, static_cast<unsigned>(change), __ATOMIC_RELAXED);
}

void setSize(SVectorData& block, int size) {
    if (block.watch != nullptr) {
        add(block.watch->counterA, size - block.size);
    }
    block.size = size;
}

void stopWatching(SVectorData& block) {
    if (block.watch == nullptr) {
        return;
    }
    add(block.watch->counterA, -block.size);
    add(block.watch->counterB, -block.capacity);
    // Last, as the watcher may give its elements back as soon as none is in use. The dummy counts no instances.
    if (block.watch != &CVQRamwatcher::dummyElement) {
        __atomic_fetch_sub(&block.watch->instances, 1U, __ATOMIC_RELEASE);
    }
    block.watch = nullptr;
}

void releaseBlock(SVectorData* block) {
    stopWatching(*block);
    VQMemory::release(block);
}

[[noreturn]] VQ_COLD void refuse() {
    doFatalError(kLineReserve, kReserve, "Invalid parameter");
}

/// Of a block, header and slots.
std::size_t lengthOf(int capacity, int elementSize) {
    if (elementSize < 1) {
        refuse();
    }
    const auto slots = static_cast<std::uint64_t>(capacity) * static_cast<std::uint64_t>(elementSize);
    // What the address space cannot hold is asked for as more than it can hold, so that the allocator says so.
    return static_cast<std::size_t>(std::min<std::uint64_t>(sizeof(SVectorData) + slots, SIZE_MAX));
}

SVectorData* allocateBlock(int capacity, int elementSize) {
    void* const memory = VQMemory::allocChecked(lengthOf(capacity, elementSize));
    return new (memory) SVectorData{0, capacity, nullptr, nullptr};
}

SVectorData* createBlock(int capacity, int elementSize) {
    SVectorData* const block = allocateBlock(capacity, elementSize);
    if (CVQRamwatcher::isEnabled()) {
        block->watch = CVQRamwatcher::getElement(static_cast<unsigned>(elementSize));
        add(block->watch->counterB, capacity);
    }
    return block;
}

/// Takes the block out, with its elements; it is not watched any more.
SVectorData* dropBlock(SVectorData*& block) {
    SVectorData* const old = std::exchange(block, nullptr);
    if (old != nullptr) {
        stopWatching(*old);
    }
    return old;
}

/// Puts a block of `capacity` slots in place of `block`, which may be null, with its size and all that its header
/// holds. Returns the old one: its elements are still in there, and it is not watched any more.
SVectorData* replaceBlock(SVectorData*& block, int capacity, int elementSize) {
    SVectorData* const old = block;
    if (old == nullptr) {
        block = createBlock(capacity, elementSize);
        return nullptr;
    }
    block = allocateBlock(capacity, elementSize);
    block->size = old->size;
    block->watch = old->watch;
    block->growth = old->growth;
    if (block->watch != nullptr) {
        add(block->watch->counterB, capacity - old->capacity);
        old->watch = nullptr;
    }
    return old;
}

int grownCapacity(const SVectorData* block, int required) {
    if (block == nullptr || block->growth == nullptr) {
        return CVQVectorBase::calculateActualCapacity(required, block == nullptr ? 0 : block->capacity);
    }
    const int capacity = block->growth(required, block->capacity);
    if (capacity >= required) {
        return capacity;
    }
    VQContainerAssertions::reportAssertion(VQContainerAssertions::INVALID_PARAMETER, kReserve, kLineReserve);
    return required;
}

/// What a vector that is to have exactly `required` slots gets.
int exactCapacity(const SVectorData* block, int required) {
    return std::max(required, block != nullptr && block->growth != nullptr ? kLeastCapacity : 0);
}

/// Makes room for `required` elements; the result is that of replaceBlock.
SVectorData* grow(SVectorData*& block, int required, int elementSize) {
    if (block != nullptr && required <= block->capacity) {
        return nullptr;
    }
    return replaceBlock(block, grownCapacity(block, required), elementSize);
}

/// Gives `block`, which may be null, more slots: `capacity`. Its elements, which may be moved as bytes, are in there.
void lengthen(SVectorData*& block, int capacity, int elementSize) {
    const std::size_t length = lengthOf(capacity, elementSize);
    if (block == nullptr || length < kLeastLengthened) {
        if (SVectorData* const old = replaceBlock(block, capacity, elementSize); old != nullptr) {
            std::memcpy(block->slots(), old->slots(), bytesOf(old->size, elementSize));
            VQMemory::release(old);
        }
        return;
    }
    block = static_cast<SVectorData*>(lengthenBlock(block, length));
    if (block->watch != nullptr) {
        add(block->watch->counterB, capacity - block->capacity);
    }
    block->capacity = capacity;
}

void destroyElements(CVQVectorBase::Destroy destroy, void* elements, int count) {
    if (destroy != nullptr && count > 0) {
        destroy(elements, count);
    }
}

/// Brings the elements of a replaced block into the new one, and releases it.
void moveElements(SVectorData& to, SVectorData* old, CVQVectorBase::CopyConstruct copyConstruct,
                  CVQVectorBase::Destroy destroy, CVQVectorBase::Relocate relocate) {
    if (relocate != nullptr) {
        relocate(to.slots(), old->slots(), old->size);
    } else if (!copyConstruct(to.slots(), old->slots(), old->size)) {
        destroyElements(destroy, old->slots(), old->size);
    }
    VQMemory::release(old);
}

/// The items of an insertion, some of which may be elements behind its position: these are found `shift` bytes
/// further on, once the gap is open.
class CItems {
public:
    CItems(const void* items, int count, SVectorData& block, int pos, int elementSize)
        : mItems(static_cast<const char*>(items)), mElementSize(elementSize), mInFront(count),
          mShift(bytesOf(count, elementSize)) {
        const auto first = reinterpret_cast<std::uintptr_t>(items);
        const auto gap = reinterpret_cast<std::uintptr_t>(slotAt(block, pos, elementSize));
        const auto end = reinterpret_cast<std::uintptr_t>(slotAt(block, block.size, elementSize));
        if (first < end && first + mShift > gap) {
            mInFront = first < gap ? static_cast<int>((gap - first) / static_cast<unsigned>(elementSize)) : 0;
        }
    }

    /// Calls `put(to, from, count)` for the items from `first` on: once, or twice where they lie on both sides.
    template <class Put>
    void put(Put handler, char* to, int first, int count) const {
        const int inFront = std::clamp(mInFront - first, 0, count);
        if (inFront > 0) {
            handler(to, mItems + bytesOf(first, mElementSize), inFront);
        }
        if (inFront < count) {
            handler(to + bytesOf(inFront, mElementSize), mItems + bytesOf(first + inFront, mElementSize) + mShift,
                    count - inFront);
        }
    }

private:
    const char* mItems;
    int mElementSize;
    int mInFront;
    std::size_t mShift;
};

/// Opens a gap of `n` slots by copying and assigning, and fills it.
void insertByAssigning(SVectorData& block, int pos, int n, const CItems& items, int elementSize,
                       CVQVectorBase::Assign assign, CVQVectorBase::CopyConstruct copyConstruct) {
    const int size = block.size;
    const int end = pos + n;
    const auto slot = [&](int index) { return slotAt(block, index, elementSize); };
    if (end >= size) {
        if (pos < size) {
            copyConstruct(slot(end), slot(pos), size - pos);
        }
    } else {
        copyConstruct(slot(size), slot(size - n), n);
        assign(slot(end), slot(pos), size - end);
    }
    const int assigned = std::min(size - pos, n);
    items.put(copyConstruct, slot(size), assigned, n - assigned);
    items.put(assign, slot(pos), 0, assigned);
}

}  // namespace

CVQVectorBase::CVQVectorBase(int initialCapacity, Growth growth, int elementSize) : mData(nullptr) {
    if (initialCapacity < 1 && growth == nullptr) {
        return;
    }
    mData = createBlock(initialCapacity < 1 ? kLeastCapacity : initialCapacity, elementSize);
    mData->growth = growth;
}

CVQVectorBase::CVQVectorBase(const SVectorData* source, int elementSize) : mData(nullptr) {
    if (source == nullptr || (source->size < 1 && source->growth == nullptr)) {
        return;
    }
    mData = createBlock(source->size < 1 ? kLeastCapacity : source->size, elementSize);
    mData->growth = source->growth;
    setSize(*mData, std::max(source->size, 0));
}

void CVQVectorBase::internal_destruct(SVectorData* block, Destroy destroy) {
    if (block != nullptr) {
        destroyElements(destroy, block->slots(), block->size);
        releaseBlock(block);
    }
}

void* CVQVectorBase::internal_get(int index, int elementSize) {
    if (!VQVectorAssertions::checkGet(index, getSize(), kLineGet)) {
        return nullptr;
    }
    return slotAt(*mData, index, elementSize);
}

const void* CVQVectorBase::internal_get(int index, int elementSize) const {
    if (!VQVectorAssertions::checkGet(index, getSize(), kLineGetConst)) {
        return nullptr;
    }
    return slotAt(*mData, index, elementSize);
}

void CVQVectorBase::internal_push_back(int elementSize, const void* item, CopyConstruct copyConstruct,
                                       Destroy destroy, Relocate relocate) {
    dropOlderForm();
    const int size = getSize();
    if (size == INT_MAX) {
        refuse();
    }
    SVectorData* const old = grow(mData, size + 1, elementSize);
    // First the item, which may be an element of the old block.
    copyConstruct(slotAt(*mData, size, elementSize), item, 1);
    if (old != nullptr) {
        moveElements(*mData, old, copyConstruct, destroy, relocate);
    }
    setSize(*mData, size + 1);
}

void CVQVectorBase::internal_append(int elementSize, const void* item, CopyConstruct copyConstruct) {
    dropOlderForm();
    const int size = getSize();
    if (size == INT_MAX) {
        refuse();
    }
    // An item that is an element moves with the block.
    const std::uintptr_t offset = reinterpret_cast<std::uintptr_t>(item) - reinterpret_cast<std::uintptr_t>(mData);
    const bool isElement = size > 0 && offset < lengthOf(size, elementSize);
    if (mData == nullptr || size == mData->capacity) {
        lengthen(mData, grownCapacity(mData, size + 1), elementSize);
    }
    copyConstruct(slotAt(*mData, size, elementSize),
                  isElement ? reinterpret_cast<const char*>(mData) + offset : item, 1);
    setSize(*mData, size + 1);
}

bool CVQVectorBase::internal_pop_back() noexcept {
    const int size = getSize();
    if (size < 1) {
        return false;
    }
    // Kept: vector-pop-leaves. The caller knows the element's type, and destroys it.
    setSize(*mData, size - 1);
    return true;
}

void CVQVectorBase::internal_insert(int pos, int n, const void* items, int elementSize, Assign assign,
                                    CopyConstruct copyConstruct, Relocate relocate) {
    if (n == 0) {
        return;
    }
    const int size = getSize();
    if (n < 0 || pos < 0 || pos > size || items == nullptr || n > INT_MAX - size) {
        VQContainerAssertions::reportAssertion(VQContainerAssertions::INVALID_PARAMETER, kInsert,
                                               n < 0 ? kLineInsertCount : kLineInsert);
        return;
    }
    dropOlderForm();
    SVectorData* const old = grow(mData, size + n, elementSize);
    char* const gap = slotAt(*mData, pos, elementSize);
    char* const behind = slotAt(*mData, pos + n, elementSize);
    if (old != nullptr) {
        // First the items, which may be elements of the old block.
        copyConstruct(gap, items, n);
        relocate(mData->slots(), old->slots(), pos);
        relocate(behind, slotAt(*old, pos, elementSize), size - pos);
        VQMemory::release(old);
    } else {
        const CItems shifted(items, n, *mData, pos, elementSize);
        if (assign != nullptr) {
            insertByAssigning(*mData, pos, n, shifted, elementSize, assign, copyConstruct);
        } else {
            relocate(behind, gap, size - pos);
            shifted.put(copyConstruct, gap, 0, n);
        }
    }
    setSize(*mData, size + n);
}

void CVQVectorBase::internal_erase(int first, int last, int elementSize, Assign assign, Destroy destroy,
                                   Relocate relocate) {
    const int size = getSize();
    if (!VQVectorAssertions::checkErase(first, last, size, kLineErase)) {
        return;
    }
    const int erased = last - first + 1;
    const int moved = size - erased - first;
    char* const to = slotAt(*mData, first, elementSize);
    char* const from = slotAt(*mData, last + 1, elementSize);
    if (assign != nullptr) {
        if (moved > 0) {
            assign(to, from, moved);
        }
        destroyElements(destroy, slotAt(*mData, size - erased, elementSize), erased);
    } else {
        destroyElements(destroy, to, erased);
        relocate(to, from, moved);
    }
    setSize(*mData, size - erased);
}

bool CVQVectorBase::internal_replace(int pos, int n, const void* items) {
    if (n > 0 && pos >= 0 && n <= getSize() && pos <= getSize() - n && items != nullptr) {
        return true;
    }
    if (n != 0) {
        VQContainerAssertions::reportAssertion(VQContainerAssertions::INVALID_PARAMETER, kReplace,
                                               n < 0 ? kLineReplaceCount : kLineReplace);
    }
    return false;
}

void CVQVectorBase::internal_resize(int newSize, int elementSize, const void* fill, CopyConstruct copyConstruct,
                                    Destroy destroy, Relocate relocate, Fill fillUp) {
    const int size = getSize();
    if (!VQVectorAssertions::checkResize(newSize, kLineResize)) {
        return;
    }
    if (newSize > size && fill == nullptr) {
        VQVectorAssertions::doAssert(VQContainerAssertions::INVALID_PARAMETER, kLineResize);
        return;
    }
    if (newSize == size) {
        return;
    }
    dropOlderForm();
    SVectorData* const old = grow(mData, newSize, elementSize);
    // First the new elements: `fill` may be an element of the old block.
    if (newSize > size && fillUp != nullptr) {
        fillUp(slotAt(*mData, size, elementSize), fill, newSize - size);
    } else {
        for (int index = size; index < newSize; ++index) {
            copyConstruct(slotAt(*mData, index, elementSize), fill, 1);
        }
    }
    if (old != nullptr) {
        moveElements(*mData, old, copyConstruct, destroy, relocate);
    }
    if (newSize < size) {
        destroyElements(destroy, slotAt(*mData, newSize, elementSize), size - newSize);
    }
    setSize(*mData, newSize);
}

SVectorData* CVQVectorBase::internal_reserve(int required, int elementSize, bool exact,
                                             CopyConstruct copyConstruct) {
    dropOlderForm();
    SVectorData* old = nullptr;
    if (exact) {
        const int capacity = exactCapacity(mData, required);
        const bool isDropped = capacity < 1 && (copyConstruct == nullptr || getSize() == 0);
        old = isDropped ? dropBlock(mData) : replaceBlock(mData, std::max(capacity, getSize()), elementSize);
    } else if (required > getCapacity()) {
        old = grow(mData, required, elementSize);
    }
    if (old != nullptr && copyConstruct != nullptr &&
        (mData == nullptr || copyConstruct(mData->slots(), old->slots(), old->size))) {
        VQMemory::release(old);
        return nullptr;
    }
    // Kept: vector-reserve-returns-old. Only the caller can destroy (or move) the elements in there.
    return old;
}

void CVQVectorBase::internal_extend(int required, int elementSize, bool exact) {
    dropOlderForm();
    if (required > getCapacity()) {
        lengthen(mData, exact ? exactCapacity(mData, required) : grownCapacity(mData, required), elementSize);
    }
}

int CVQVectorBase::internal_find(Match match, int elementSize, const void* key) const {
    const int size = getSize();
    for (int index = 0; index < size; ++index) {
        if (match(slotAt(*mData, index, elementSize), key)) {
            return index;
        }
    }
    return -1;
}

int CVQVectorBase::internal_rfind(Match match, int elementSize, const void* key) const {
    for (int index = getSize() - 1; index >= 0; --index) {
        if (match(slotAt(*mData, index, elementSize), key)) {
            return index;
        }
    }
    return -1;
}

bool CVQVectorBase::internal_compare(const CVQVectorBase& other, Equal equal) const {
    const int size = getSize();
    if (this == &other || (size == 0 && other.getSize() == 0)) {
        return true;
    }
    return size == other.getSize() && equal(mData->slots(), other.mData->slots(), size);
}

int CVQVectorBase::calculateActualCapacity(int required, int /*currentCapacity*/) {
    if (required > kLargestPowerOfTwo) {
        return INT_MAX;
    }
    int capacity = kLeastCapacity;
    while (capacity < required) {
        capacity *= 2;
    }
    return capacity;
}

// Kept: vector-older-form. Its users ask for the capacity, and never for a slot.
CVQVectorBase::CVQVectorBase(int capacity) noexcept
    : mData(reinterpret_cast<SVectorData*>(
          static_cast<std::uintptr_t>(capacity < 1 ? kLeastCapacity : capacity) << 1 | kOlderFormMark)) {
}

int CVQVectorBase::getCapacity() const noexcept {
    if (isOlderForm()) {
        return static_cast<int>(reinterpret_cast<std::uintptr_t>(mData) >> 1);
    }
    return mData == nullptr ? 0 : mData->capacity;
}

void CVQVectorBase::dropOlderForm() noexcept {
    if (isOlderForm()) {
        mData = nullptr;
    }
}

int CVQVectorBase::calcNewCapacity(int required) const {
    int capacity = getCapacity();
    if (capacity >= required) {
        return capacity;
    }
    capacity = std::max(capacity, kLeastCapacity);
    while (capacity < required) {
        capacity = capacity > INT_MAX / 2 ? INT_MAX : capacity * 2;
    }
    return capacity;
}

bool CVQVectorBase::checkGet(int index, unsigned int line) const {
    return VQVectorAssertions::checkGet(index, getSize(), line);
}

bool CVQVectorBase::checkResize(int newSize, unsigned int line) const {
    return VQVectorAssertions::checkResize(newSize, line);
}

bool CVQVectorBase::checkErase(int first, int last, unsigned int line) const {
    if (first < 0 || last >= getSize()) {
        return VQVectorAssertions::doAssert(VQContainerAssertions::INDEX_OUT_OF_RANGE, line);
    }
    return first <= last || VQVectorAssertions::doAssert(VQContainerAssertions::INVALID_PARAMETER, line);
}

bool CVQVectorBase::checkInsert(int pos, const void* items, unsigned int line) const {
    return VQVectorAssertions::checkInsert(pos, items, getSize(), line);
}

void swap(CVQVectorBase& left, CVQVectorBase& right) noexcept {
    std::swap(left.mData, right.mData);
}
