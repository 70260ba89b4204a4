// TVQQueue: first in, first out.
//   Units    sizes and positions count elements, in int.
//   Shape    one block of slots, in which the elements stand side by side. Elements that are gone leave their slots
//            in front unused until the block is full or the queue empty; then the others move up. So `push` and
//            `pop` take constant time on average.
//   Errors   an index out of range is reported as "TVQQueue". An empty queue is no error. Without memory the
//            process ends, as it does where the slots would become more than int can count.
//   Invalid  pointers and iterators to elements are good until the next `push`, `clear`, assignment or the end of
//            the queue; `pop` ends those to the first element only. `swap` and moving from the queue take them
//            along.
//   Self     an item may be an element of the queue.
//   Watch    as in CVQVectorBase; the RAM watcher counts unused slots in front as elements.
//   Threads  one thread at a time.
#pragma once

#include <CVQIndex.h>
#include <CVQVectorBase.h>
#include <TVQElementOps.h>
#include <VQContainerAssertions.h>

#include <climits>

template <class T>
class TVQQueue {
    using Ops = TVQElementOps<T>;
    static constexpr unsigned kLineGet = 63;

public:
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;

    constexpr TVQQueue() noexcept = default;
    TVQQueue(const TVQQueue& other) : mBase(other.size(), nullptr, Ops::kSize) {
        mBase.internal_insert(0, other.size(), other.begin(), Ops::kSize, nullptr, &Ops::copy, &Ops::relocate);
    }
    /// Leaves `other` empty.
    TVQQueue(TVQQueue&& other) noexcept : mBase(std::move(other.mBase)), mFront(std::exchange(other.mFront, 0)) {}
    TVQQueue& operator=(const TVQQueue& other) {
        if (this != &other) {
            TVQQueue copy(other);
            swap(copy);
        }
        return *this;
    }
    /// Leaves `other` empty.
    TVQQueue& operator=(TVQQueue&& other) noexcept {
        TVQQueue taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~TVQQueue() {
        clear();
        CVQVectorBase::internal_destruct(mBase.internal_block(), nullptr);
    }

    int size() const noexcept { return Ops::size(mBase) - mFront; }
    bool isEmpty() const noexcept { return size() == 0; }

    /// From the first element on.
    iterator begin() noexcept { return Ops::slots(mBase) + mFront; }
    iterator end() noexcept { return begin() + size(); }
    const_iterator begin() const noexcept { return Ops::slots(mBase) + mFront; }
    const_iterator end() const noexcept { return begin() + size(); }

    /// The element that has been there the longest; null when there is none.
    T* front() noexcept { return isEmpty() ? nullptr : begin(); }
    const T* front() const noexcept { return isEmpty() ? nullptr : begin(); }

    /// The index-th element from the front. Null, and a report, for an index out of range.
    T* get(CVQIndex index) { return const_cast<T*>(std::as_const(*this).get(index)); }
    const T* get(CVQIndex index) const {
        if (VQ_LIKELY(index >= 0 && index < size())) {
            return begin() + index;
        }
        VQQueueAssertions::doAssert(VQContainerAssertions::INVALID_PARAMETER, kLineGet);
        return nullptr;
    }

    void push(const T& item) { pushBack(item); }
    void push(T&& item) { pushBack(std::move(item)); }

    /// Takes the first element away. False when there is none.
    bool pop() {
        if (isEmpty()) {
            return false;
        }
        begin()->~T();
        ++mFront;
        if (isEmpty()) {
            closeUp();
        }
        return true;
    }

    void clear() {
        std::destroy(begin(), end());
        mFront = Ops::size(mBase);
        closeUp();
    }

    bool operator==(const TVQQueue& other) const { return std::equal(begin(), end(), other.begin(), other.end()); }
    bool operator!=(const TVQQueue& other) const { return !(*this == other); }

    void swap(TVQQueue& other) noexcept {
        ::swap(mBase, other.mBase);
        std::swap(mFront, other.mFront);
    }
    friend void swap(TVQQueue& left, TVQQueue& right) noexcept { left.swap(right); }

private:
    /// Moves the elements to the start of the block. The slots in front hold none.
    void closeUp() {
        if (mFront > 0) {
            Ops::closeUp(mBase, mFront);
            mFront = 0;
        }
    }

    template <class Item>
    void pushBack(Item&& item) {
        const int capacity = Ops::capacity(mBase);
        if (VQ_LIKELY(mFront == 0 || Ops::size(mBase) < capacity)) {
            Ops::pushBack(mBase, std::forward<Item>(item));
            return;
        }
        // Taken out first, as it may be one of the elements that move.
        T kept(std::forward<Item>(item));
        // Enough room that the next move is as many steps away as elements move; else the engine doubles the block.
        const bool isRoomy = mFront >= size();
        closeUp();
        if (!isRoomy && capacity < INT_MAX) {
            Ops::reserve(mBase, capacity + 1, /*exact*/ false);
        }
        Ops::pushBack(mBase, std::move(kept));
    }

    CVQVectorBase mBase;
    int mFront = 0;  ///< how many slots are unused in front of the first element
};

template <class T>
struct TVQIsRelocatable<TVQQueue<T>> : std::true_type {};
