// CVQVectorBase: the engine of the growable arrays. It knows of its elements only their size, and gets the
// functions that handle them with every call.
//
//   Units    sizes, capacities and positions count elements, in int; `elementSize` is in bytes.
//   Shape    one pointer to a block, null while there is none. A block is its header and the slots behind it, in
//            one allocation: slot i lies i * elementSize bytes behind the header. On the target the header has 16
//            bytes; on a 64-bit host it is filled up to 32, so that slots are aligned for every type.
//   Growth   the smallest of 4, 8, 16, ... that suffices, or what the block's own growth function says. Neither
//            erasing nor resizing takes slots away.
//   Errors   misuse is reported through VQVectorAssertions; then nothing changes, and the result is null, false or
//            -1. A size that int cannot count is refused: `internal_insert` reports it like a wrong position;
//            where nothing else is left the process ends with a fatal error (line 128 of
//            "CVQVectorBase.internal_reserve()"), as it does without memory (VQMemory::allocChecked). No block is
//            ever shorter than its header says.
//   Invalid  a pointer into the slots is good until its element moves or goes: until the capacity changes, or an
//            insertion or erasure at a lower or the same position. Every operation that may add elements may change
//            the capacity.
//   Self     an item to be inserted, pushed or filled with may lie in the vector's own slots.
//   Watch    a vector whose first block is allocated while the RAM watcher is enabled has the watcher's element for
//            its element size, and keeps three counters there while it has a block: one instance, its size (counter
//            A) and its capacity (counter B). One that began unwatched stays so as long.
//   Threads  one thread at a time. The watcher's counters are shared and changed atomically.
//   Handlers must not throw, and must not touch the vector that calls them.
//   Kept     vector-report-texts: file texts and line numbers of the reports are identifiers.
//            vector-reserve-returns-old: the old block comes back when its elements still need the caller.
//            vector-pop-leaves: `internal_pop_back` does not destroy the element.
//            vector-older-form: the members at the end, of a form that has no slots (docs/kept.md).
#pragma once

#include <CVQRamwatcher.h>
#include <VQExport.h>

#include <cstddef>
#include <cstdint>

class VQ_EXPORT CVQVectorBase {
public:
    /// The capacity that a vector shall have, at least `required`.
    using Growth = int (*)(int required, int currentCapacity);
    /// Constructs `count` elements at `to` from those at `from`. True when those need no destruction any more,
    /// because they were taken over; false when they are as alive as before.
    using CopyConstruct = bool (*)(void* to, const void* from, int count);
    /// Constructs `count` elements at `to` and takes those at `from` away; both may overlap. True, always.
    using Relocate = CopyConstruct;
    /// Constructs `count` elements at `to`, in ascending order, as copies of the one at `from`, which is not among them.
    using Fill = void (*)(void* to, const void* from, int count);
    /// Assigns `count` elements; both ranges may overlap.
    using Assign = void (*)(void* to, const void* from, int count);
    /// May be null where an element needs no destruction.
    using Destroy = void (*)(void* elements, int count);
    using Equal = bool (*)(const void* mine, const void* theirs, int count);
    using Match = bool (*)(const void* element, const void* key);

    /// What lies in front of the slots of a block.
    struct alignas(std::max_align_t) SVectorData {
        int size;
        int capacity;
        CVQRamwatcher::sElement* watch;  ///< null in a block that is not watched
        Growth growth;                   ///< null for the default

        void* slots() noexcept { return this + 1; }
        const void* slots() const noexcept { return this + 1; }
    };

    constexpr CVQVectorBase() noexcept : mData(nullptr) {}
    /// Exactly `initialCapacity` slots; no block when that is below 1, unless there is a `growth`, which gets 4.
    CVQVectorBase(int initialCapacity, Growth growth, int elementSize);
    /// Room for the elements of `source` (may be null), its size and its growth function. The caller then
    /// copy-constructs the elements.
    CVQVectorBase(const SVectorData* source, int elementSize);
    /// Takes the block over.
    CVQVectorBase(CVQVectorBase&& other) noexcept : mData(other.mData) { other.mData = nullptr; }
    CVQVectorBase(const CVQVectorBase&) = delete;
    CVQVectorBase& operator=(const CVQVectorBase&) = delete;
    /// Leaves the block to `internal_destruct`.
    ~CVQVectorBase() = default;

    int getSize() const noexcept { return isOlderForm() || mData == nullptr ? 0 : mData->size; }
    int getCapacity() const noexcept;

    /// The block, null while there is none. Not for an object of the older form.
    SVectorData* internal_block() noexcept { return mData; }
    const SVectorData* internal_block() const noexcept { return mData; }

    /// Destroys the elements of `block` and releases it; null does nothing.
    static void internal_destruct(SVectorData* block, Destroy destroy);

    /// The slot, or null and a report.
    void* internal_get(int index, int elementSize);
    const void* internal_get(int index, int elementSize) const;

    /// Growing moves the elements by `relocate`; without it, by `copyConstruct` and `destroy`.
    void internal_push_back(int elementSize, const void* item, CopyConstruct copyConstruct, Destroy destroy,
                            Relocate relocate = nullptr);

    /// As `internal_push_back`, of elements that may be moved as bytes.
    void internal_append(int elementSize, const void* item, CopyConstruct copyConstruct);

    /// Takes the last element off the count; the caller destroys it. False when there is none.
    bool internal_pop_back() noexcept;

    /// Inserts `n` items before `pos`. In place the elements behind are moved by `assign` and `copyConstruct`;
    /// without `assign`, by `relocate`.
    void internal_insert(int pos, int n, const void* items, int elementSize, Assign assign,
                         CopyConstruct copyConstruct, Relocate relocate);

    /// Erases the elements `first` to `last`, both included. The elements behind are moved by `assign`; without it,
    /// by `relocate`.
    void internal_erase(int first, int last, int elementSize, Assign assign, Destroy destroy,
                        Relocate relocate = nullptr);

    /// Whether `n` elements at `pos` may be replaced by `items`; the caller then assigns them. 0 is a silent false.
    bool internal_replace(int pos, int n, const void* items);

    /// New elements are copies of `fill`, which must not be null when there are any. They are constructed by
    /// `fillUp` at once; without it, by `copyConstruct` one by one. Growing moves the elements as in
    /// `internal_push_back`.
    void internal_resize(int newSize, int elementSize, const void* fill, CopyConstruct copyConstruct,
                         Destroy destroy, Relocate relocate = nullptr, Fill fillUp = nullptr);

    /// Provides `required` slots. `exact` asks for precisely that many (4 at least with a growth function) and may
    /// take slots away, but never below the size. The elements are copied by `copyConstruct`, if that is given.
    /// Returns the block that was replaced when its elements still need destroying (or moving, without
    /// `copyConstruct`); the caller does that and releases it, as `internal_destruct` does both. It is not watched
    /// any more.
    ///
    /// Exactly 0 slots or less, without a growth function, is no block at all. A vector with elements comes to that
    /// only without `copyConstruct`: it is empty then, and they are the caller's with the block that is returned.
    SVectorData* internal_reserve(int required, int elementSize, bool exact, CopyConstruct copyConstruct);

    /// Provides `required` slots as `internal_reserve` does, of elements that may be moved as bytes. Takes none away.
    void internal_extend(int required, int elementSize, bool exact);

    /// The first (last) element that matches `key`, or -1.
    int internal_find(Match match, int elementSize, const void* key) const;
    int internal_rfind(Match match, int elementSize, const void* key) const;

    /// Whether both have as many elements, and `equal` says that they are equal.
    bool internal_compare(const CVQVectorBase& other, Equal equal) const;

    /// The default growth: 4, 8, 16, ..., and 2^31 - 1 where 2^31 would follow. `currentCapacity` does not matter.
    static int calculateActualCapacity(int required, int currentCapacity);

    // Of an older form, without slots. An object of that form has a capacity and the size 0, which nothing changes;
    // both fit the one word. The members apply to objects with a block as well. Kept: vector-older-form.

    /// An object of the older form; 4 for a `capacity` below 1.
    explicit CVQVectorBase(int capacity) noexcept;
    /// The capacity if it suffices; else doubled, from 4 at least, until it does: to 2^31 - 1 where int ends.
    int calcNewCapacity(int required) const;
    bool checkGet(int index, unsigned int line) const;
    bool checkResize(int newSize, unsigned int line) const;
    /// As `VQVectorAssertions::checkErase`, with the other spelling. Kept: container-our-of-range.
    bool checkErase(int first, int last, unsigned int line) const;
    bool checkInsert(int pos, const void* items, unsigned int line) const;
    friend VQ_EXPORT void swap(CVQVectorBase& left, CVQVectorBase& right) noexcept;

private:
    /// Set in the word of an object of the older form, whose other bits are its capacity; blocks are aligned.
    static constexpr std::uintptr_t kOlderFormMark = 1;

    bool isOlderForm() const noexcept { return (reinterpret_cast<std::uintptr_t>(mData) & kOlderFormMark) != 0; }
    void dropOlderForm() noexcept;

    SVectorData* mData;
};

/// Exchanges all that the two objects hold.
VQ_EXPORT void swap(CVQVectorBase& left, CVQVectorBase& right) noexcept;
