// TVQConstRefCountedVector: an array that does not change any more. Copies share it.
//   Units    sizes and positions count elements, in int.
//   Shape    one pointer to what is shared: a count of owners and a TVQVector. Null when there are no elements.
//   Errors   an index out of range is reported as "TVQConstRefCountedVector". Without memory the process ends.
//   Invalid  pointers, references and iterators are good as long as any of the sharing objects holds the elements.
//   Threads  objects that share may be used, copied and destroyed on different threads; the count is atomic. One
//            object: one thread at a time.
#pragma once

#include <TVQVector.h>
#include <VQAtomic.h>
#include <VQContainerAssertions.h>

#include <climits>
#include <iterator>

template <class T>
class TVQConstRefCountedVector {
    static constexpr unsigned kLineGet = 58;

public:
    using value_type = T;
    using const_iterator = const T*;
    using iterator = const_iterator;

    constexpr TVQConstRefCountedVector() noexcept = default;
    /// Takes the elements over.
    explicit TVQConstRefCountedVector(TVQVector<T> elements)
        : mShared(elements.isEmpty() ? nullptr : new SShared{1, std::move(elements)}) {}
    /// Copies of the elements in [first, last).
    template <class Iterator, class = typename std::iterator_traits<Iterator>::iterator_category>
    TVQConstRefCountedVector(Iterator first, Iterator last) : TVQConstRefCountedVector(collect(first, last)) {}

    TVQConstRefCountedVector(const TVQConstRefCountedVector& other) noexcept : mShared(other.mShared) {
        if (mShared != nullptr) {
            VQAtomic::incrementPrivate(mShared->owners);
        }
    }
    /// Leaves `other` empty.
    TVQConstRefCountedVector(TVQConstRefCountedVector&& other) noexcept
        : mShared(std::exchange(other.mShared, nullptr)) {}
    TVQConstRefCountedVector& operator=(const TVQConstRefCountedVector& other) noexcept {
        TVQConstRefCountedVector copy(other);
        swap(copy);
        return *this;
    }
    /// Leaves `other` empty.
    TVQConstRefCountedVector& operator=(TVQConstRefCountedVector&& other) noexcept {
        TVQConstRefCountedVector taken(std::move(other));
        swap(taken);
        return *this;
    }
    ~TVQConstRefCountedVector() { clear(); }

    int size() const noexcept { return mShared == nullptr ? 0 : mShared->elements.size(); }
    bool isEmpty() const noexcept { return mShared == nullptr; }
    bool isShared() const noexcept { return mShared != nullptr && VQAtomic::load(mShared->owners) > 1; }

    /// The first element, the others behind it. Null when there are none.
    const T* data() const noexcept {
        return mShared == nullptr ? nullptr : std::as_const(mShared->elements).data();
    }
    const_iterator begin() const noexcept { return data(); }
    const_iterator end() const noexcept { return data() + size(); }

    /// Null, and a report, for an index out of range.
    const T* get(CVQIndex index) const {
        if (VQ_LIKELY(index >= 0 && index < size())) {
            return data() + index;
        }
        VQConstRefCountedVectorAssertions::doAssert(VQContainerAssertions::INVALID_PARAMETER, kLineGet);
        return nullptr;
    }
    const T& operator[](CVQIndex index) const {
        const T* const element = get(index);
        return VQ_LIKELY(element != nullptr) ? *element : VQPrivate::neutralElement<T>();
    }

    /// The first element that equals `key`, or -1.
    template <class Key>
    int find(const Key& key) const {
        return mShared == nullptr ? -1 : mShared->elements.find(key);
    }

    /// Gives this object's share up.
    void clear() noexcept {
        SShared* const shared = std::exchange(mShared, nullptr);
        if (shared != nullptr && !VQAtomic::testDecrementPrivate(shared->owners)) {
            delete shared;
        }
    }

    bool operator==(const TVQConstRefCountedVector& other) const {
        return mShared == other.mShared || std::equal(begin(), end(), other.begin(), other.end());
    }
    bool operator!=(const TVQConstRefCountedVector& other) const { return !(*this == other); }

    void swap(TVQConstRefCountedVector& other) noexcept { std::swap(mShared, other.mShared); }
    friend void swap(TVQConstRefCountedVector& left, TVQConstRefCountedVector& right) noexcept { left.swap(right); }

private:
    struct SShared {
        unsigned int owners;
        TVQVector<T> elements;
    };

    template <class Iterator>
    static TVQVector<T> collect(Iterator first, Iterator last) {
        TVQVector<T> elements;
        if constexpr (std::is_base_of_v<std::forward_iterator_tag,
                                        typename std::iterator_traits<Iterator>::iterator_category>) {
            const auto count = std::distance(first, last);
            elements.reserve(static_cast<int>(std::min<std::ptrdiff_t>(count, INT_MAX)));
        }
        for (; first != last; ++first) {
            elements.push_back(*first);
        }
        return elements;
    }

    SShared* mShared = nullptr;
};

template <class T>
struct TVQIsRelocatable<TVQConstRefCountedVector<T>> : std::true_type {};
