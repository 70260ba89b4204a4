// TVQSortedVector: a sorted array of T in which no two elements are equal.
//   Units    sizes, capacities and positions count elements, in int.
//   Order    `Before` says which of two elements comes first. Two of which neither does are equal.
//   Shape    a TVQVector, and no more.
//   Cost     finding takes log2(size) comparisons; inserting and erasing moves the elements behind as well.
//   Errors   as in TVQVector.
//   Invalid  pointers, references and iterators as in TVQVector: `insert` and `erase` may end all of them.
//   Threads  one thread at a time.
#pragma once

#include <TVQVector.h>
#include <VQAlgorithm.h>

template <class T, class Before = TVQBefore<T>>
class TVQSortedVector {
public:
    using value_type = T;
    using const_iterator = const T*;
    using iterator = const_iterator;

    constexpr TVQSortedVector() noexcept = default;
    explicit TVQSortedVector(CVQIndex initialCapacity, CVQVectorBase::Growth growth = nullptr)
        : mElements(initialCapacity, growth) {}

    int size() const noexcept { return mElements.size(); }
    int capacity() const noexcept { return mElements.capacity(); }
    bool isEmpty() const noexcept { return mElements.isEmpty(); }
    void reserve(CVQIndex slots) { mElements.reserve(slots); }
    void clear() { mElements.clear(); }

    const_iterator begin() const noexcept { return mElements.begin(); }
    const_iterator end() const noexcept { return mElements.end(); }
    const T* get(CVQIndex index) const { return mElements.get(index); }
    const T& operator[](CVQIndex index) const { return mElements[index]; }

    /// False, and nothing changes, when there is an equal element.
    bool insert(const T& item) {
        const Place place = placeOf(item);
        if (!place.isFound) {
            mElements.insert(indexOf(place), item);
        }
        return !place.isFound;
    }

    /// The element equal to `key`, or -1.
    int find(const T& key) const {
        const Place place = placeOf(key);
        return place.isFound ? indexOf(place) : -1;
    }

    /// False when there is no element equal to `key`. `key` may be that element.
    bool erase(const T& key) {
        const Place place = placeOf(key);
        if (place.isFound) {
            mElements.erase(indexOf(place));
        }
        return place.isFound;
    }

    bool operator==(const TVQSortedVector& other) const { return mElements == other.mElements; }
    bool operator!=(const TVQSortedVector& other) const { return !(*this == other); }

    void swap(TVQSortedVector& other) noexcept { mElements.swap(other.mElements); }
    friend void swap(TVQSortedVector& left, TVQSortedVector& right) noexcept { left.swap(right); }

private:
    using Place = VQAlgorithm::SPlace<const T*>;

    Place placeOf(const T& key) const {
        return VQAlgorithm::findUnique(
            begin(), end(), key, [](const T& element) -> const T& { return element; }, Before());
    }
    int indexOf(const Place& place) const { return static_cast<int>(place.position - begin()); }

    TVQVector<T> mElements;
};

template <class T, class Before>
struct TVQIsRelocatable<TVQSortedVector<T, Before>> : std::true_type {};
