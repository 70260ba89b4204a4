// TVQPtrVector: a growable array of pointers to T. It owns nothing that they point at.
//   Units    sizes, capacities and positions count pointers, in int.
//   Shape    a TVQVector of pointers.
//   Errors   `get` and `operator[]` report an index out of range as "TVQPtrVector"; everything else as TVQVector
//            does.
//   Invalid  iterators and references to the stored pointers as in TVQVector. What the pointers point at is the
//            caller's, and never touched.
//   Threads  one thread at a time.
#pragma once

#include <TVQVector.h>
#include <VQContainerAssertions.h>

template <class T>
class TVQPtrVector : private TVQVector<T*> {
    using Base = TVQVector<T*>;
    static constexpr unsigned kLineGet = 47;

public:
    using typename Base::const_iterator;
    using typename Base::iterator;
    using typename Base::value_type;

    using Base::Base;
    using Base::begin;
    using Base::capacity;
    using Base::clear;
    using Base::data;
    using Base::end;
    using Base::erase;
    using Base::find;
    using Base::insert;
    using Base::isEmpty;
    using Base::pop_back;
    using Base::push_back;
    using Base::replace;
    using Base::reserve;
    using Base::resize;
    using Base::rfind;
    using Base::size;

    /// The stored pointer; null, and a report, for an index out of range.
    T* get(CVQIndex index) const { return VQ_LIKELY(index >= 0 && index < size()) ? data()[index] : outOfRange(); }
    T* operator[](CVQIndex index) const { return get(index); }
    /// Out of range it leads to a null pointer of the calling thread, which is good until its next such use.
    T*& operator[](CVQIndex index) {
        return VQ_LIKELY(index >= 0 && index < size()) ? data()[index] : outOfRange();
    }

    bool operator==(const TVQPtrVector& other) const { return Base::operator==(other); }
    bool operator!=(const TVQPtrVector& other) const { return !(*this == other); }

    void swap(TVQPtrVector& other) noexcept { Base::swap(other); }
    friend void swap(TVQPtrVector& left, TVQPtrVector& right) noexcept { left.swap(right); }

private:
    static T*& outOfRange() {
        VQPtrVectorAssertions::doAssert(VQContainerAssertions::INVALID_PARAMETER, kLineGet);
        return VQPrivate::neutralElement<T*>();
    }
};

template <class T>
struct TVQIsRelocatable<TVQPtrVector<T>> : std::true_type {};
