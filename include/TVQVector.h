// TVQVector: a growable array of T, over the engine in CVQVectorBase.
//   Units    sizes, capacities and positions count elements, in int. Callers may pass any integer type (CVQIndex).
//   Shape    one pointer; see CVQVectorBase for its block and its growth.
//   Errors   misuse is reported as "TVQVector", after which nothing changes and the result is null, false or -1;
//            `operator[]` then leads to a `T()` of the calling thread, which is good until its next such use.
//            Without memory the process ends.
//   Invalid  pointers, references and iterators to elements are good until their element moves or goes: until an
//            operation that may grow the vector (`push_back`, `insert`, `resize`, `reserve`), an insertion or
//            erasure at their position or before it, `clear`, assignment or the end of the vector. `swap` and
//            moving from the vector take them along. `end()` is good only until the next change.
//   Self     an argument may be an element of the vector.
//   T        must be copyable where elements are copied, and aligned no wider than std::max_align_t; its operations
//            must not throw. See TVQElementOps for which elements are moved byte by byte.
//   Threads  one thread at a time.
//   Kept     vector-get-parameter: an index out of range is reported as an invalid parameter (docs/kept.md).
#pragma once

#include <CVQIndex.h>
#include <CVQVectorBase.h>
#include <TVQElementOps.h>
#include <VQContainerAssertions.h>

template <class T>
class TVQVector {
    using Ops = TVQElementOps<T>;
    static constexpr unsigned kLineConstruct = 61;
    static constexpr unsigned kLineReserve = 128;

public:
    using value_type = T;
    using iterator = T*;
    using const_iterator = const T*;

    constexpr TVQVector() noexcept = default;
    /// Empty, with exactly `initialCapacity` slots; a negative number is reported, and is as good as 0. `growth`
    /// says the capacity whenever the vector must grow; a vector with one always has a block, of 4 slots where
    /// `initialCapacity` asks for none.
    explicit TVQVector(CVQIndex initialCapacity, CVQVectorBase::Growth growth = nullptr)
        : mBase(initialCapacity, growth, Ops::kSize) {
        VQVectorAssertions::checkResize(initialCapacity, kLineConstruct);
    }

    /// A copy has exactly the capacity for its elements, and the growth function of `other`.
    TVQVector(const TVQVector& other) : mBase(other.mBase.internal_block(), Ops::kSize) {
        if (!other.isEmpty()) {
            Ops::copy(data(), other.data(), other.size());
        }
    }
    /// Leaves `other` empty, without a block.
    TVQVector(TVQVector&& other) noexcept : mBase(std::move(other.mBase)) {}
    TVQVector& operator=(const TVQVector& other) {
        if (this != &other) {
            TVQVector copy(other);
            swap(copy);
        }
        return *this;
    }
    /// Leaves `other` empty, without a block.
    TVQVector& operator=(TVQVector&& other) noexcept {
        TVQVector taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~TVQVector() { CVQVectorBase::internal_destruct(mBase.internal_block(), Ops::destroyer()); }

    int size() const noexcept { return Ops::size(mBase); }
    int capacity() const noexcept { return Ops::capacity(mBase); }
    bool isEmpty() const noexcept { return size() == 0; }

    /// The first element, the others behind it. Null while there is no block.
    T* data() noexcept { return Ops::slots(mBase); }
    const T* data() const noexcept { return Ops::slots(mBase); }

    iterator begin() noexcept { return data(); }
    iterator end() noexcept { return data() + size(); }
    const_iterator begin() const noexcept { return data(); }
    const_iterator end() const noexcept { return data() + size(); }

    /// Null, and a report, for an index out of range.
    T* get(CVQIndex index) {
        return has(index) ? data() + index : static_cast<T*>(mBase.internal_get(index, Ops::kSize));
    }
    const T* get(CVQIndex index) const {
        return has(index) ? data() + index : static_cast<const T*>(mBase.internal_get(index, Ops::kSize));
    }

    T& operator[](CVQIndex index) {
        T* const element = get(index);
        return VQ_LIKELY(element != nullptr) ? *element : VQPrivate::neutralElement<T>();
    }
    const T& operator[](CVQIndex index) const {
        const T* const element = get(index);
        return VQ_LIKELY(element != nullptr) ? *element : VQPrivate::neutralElement<T>();
    }

    void push_back(const T& item) { Ops::pushBack(mBase, item); }
    void push_back(T&& item) { Ops::pushBack(mBase, std::move(item)); }

    /// False when there is none.
    bool pop_back() { return Ops::popBack(mBase); }

    void insert(CVQIndex pos, const T& item) { Ops::insert(mBase, pos, item); }
    void insert(CVQIndex pos, T&& item) { Ops::insert(mBase, pos, std::move(item)); }
    /// `items` may be null when `n` is 0.
    void insert(CVQIndex pos, CVQIndex n, const T* items) {
        mBase.internal_insert(pos, n, items, Ops::kSize, nullptr, &Ops::copy, &Ops::relocate);
    }

    void erase(CVQIndex index) { erase(index, index); }
    /// Erases `last`, too.
    void erase(CVQIndex first, CVQIndex last) { Ops::erase(mBase, first, last); }

    /// Assigns `n` elements from `pos` on. False, and a report, when they are not all there; false for none.
    bool replace(CVQIndex pos, CVQIndex n, const T* items) {
        if (!mBase.internal_replace(pos, n, items)) {
            return false;
        }
        Ops::assign(data() + pos, items, n);
        return true;
    }

    /// New elements are copies of `fill`. The capacity never becomes less.
    void resize(CVQIndex newSize, const T& fill = T()) {
        mBase.internal_resize(newSize, Ops::kSize, std::addressof(fill), &Ops::copy, Ops::destroyer(),
                              &Ops::relocate, &Ops::fill);
    }

    /// Provides exactly `slots` slots, unless there are as many. A negative number is reported.
    void reserve(CVQIndex slots) {
        if (VQVectorAssertions::checkResize(slots, kLineReserve) && slots > capacity()) {
            Ops::reserve(mBase, slots, /*exact*/ true);
        }
    }

    /// The capacity stays.
    void clear() {
        if (!isEmpty()) {
            erase(0, size() - 1);
        }
    }

    /// The first (last) element that equals `key`, or -1.
    template <class Key>
    int find(const Key& key) const {
        const T* const found = std::find(begin(), end(), key);
        return found == end() ? -1 : static_cast<int>(found - begin());
    }
    template <class Key>
    int rfind(const Key& key) const {
        const T* const elements = data();
        int index = size() - 1;
        while (index >= 0 && !(elements[index] == key)) {
            --index;
        }
        return index;
    }

    /// Whether both have equal elements in the same order.
    bool operator==(const TVQVector& other) const { return mBase.internal_compare(other.mBase, &Ops::equal); }
    bool operator!=(const TVQVector& other) const { return !(*this == other); }

    void swap(TVQVector& other) noexcept { ::swap(mBase, other.mBase); }
    friend void swap(TVQVector& left, TVQVector& right) noexcept { left.swap(right); }

private:
    bool has(int index) const noexcept { return VQ_LIKELY(index >= 0 && index < size()); }

    CVQVectorBase mBase;
};

/// Nobody points at a vector's word.
template <class T>
struct TVQIsRelocatable<TVQVector<T>> : std::true_type {};
