// Elements: element types that know how many of them are alive, and notice when one is lost, doubled or used after its
// end.
#pragma once

#include <TVQElementOps.h>

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <set>
#include <type_traits>

/// Knows its own address: it must be moved by its constructors. A moved-from one has the value -1.
class CRooted {
public:
    CRooted(int value = 0) : mValue(value), mSelf(this) { ++alive(); }
    CRooted(const CRooted& other) : CRooted(other.value()) {}
    CRooted(CRooted&& other) noexcept : CRooted(other.value()) { other.mValue = -1; }
    CRooted& operator=(const CRooted& other) {
        check();
        mValue = other.value();
        return *this;
    }
    ~CRooted() {
        check();
        mSelf = nullptr;
        --alive();
    }

    int value() const {
        check();
        return mValue;
    }
    bool operator==(const CRooted& other) const { return value() == other.value(); }
    bool operator<(const CRooted& other) const { return value() < other.value(); }

    static int& alive() {
        static int count = 0;
        return count;
    }

private:
    void check() const { EXPECT_EQ(this, mSelf) << "an element that was moved as bytes, or is none"; }

    int mValue;
    const CRooted* mSelf;
};

/// Owns a block: it may be moved as bytes, but not doubled. A moved-from one owns nothing and has the value -1.
class COwner {
public:
    COwner(int value = 0) : mValue(new int(value)) { blocks().insert(mValue); }
    COwner(const COwner& other) : COwner(other.value()) {}
    COwner(COwner&& other) noexcept : mValue(std::exchange(other.mValue, nullptr)) {}
    COwner& operator=(const COwner& other) {
        COwner copy(other);
        std::swap(mValue, copy.mValue);
        return *this;
    }
    ~COwner() {
        if (mValue != nullptr) {
            EXPECT_EQ(1u, blocks().erase(mValue)) << "an element that was destroyed before";
            delete mValue;
        }
    }

    int value() const {
        if (mValue == nullptr)
            return -1;
        EXPECT_EQ(1u, blocks().count(mValue)) << "an element that is no more";
        return *mValue;
    }
    bool operator==(const COwner& other) const { return value() == other.value(); }
    bool operator<(const COwner& other) const { return value() < other.value(); }

    static int alive() { return static_cast<int>(blocks().size()); }

private:
    static std::set<const int*>& blocks() {
        static std::set<const int*> alive;
        return alive;
    }

    int* mValue;
};

template <>
struct TVQIsRelocatable<COwner> : std::true_type {};

/// So wide that the vectors lengthen each block of theirs, however few there are.
class CWide {
public:
    CWide(int value = 0) : mValue(value) { mFilling.fill(value); }

    int value() const {
        EXPECT_TRUE(std::all_of(mFilling.begin(), mFilling.end(), [this](int part) { return part == mValue; }))
            << "an element that was not moved as a whole";
        return mValue;
    }
    bool operator==(const CWide& other) const { return value() == other.value(); }
    bool operator<(const CWide& other) const { return value() < other.value(); }

private:
    int mValue;
    std::array<int, 127> mFilling;
};

inline int valueOf(int value) {
    return value;
}
inline int valueOf(const CRooted& element) {
    return element.value();
}
inline int valueOf(const COwner& element) {
    return element.value();
}
inline int valueOf(const CWide& element) {
    return element.value();
}

/// How many elements of the type there are in the process; -1 where nobody counts.
template <class T>
int alive() {
    if constexpr (std::is_trivially_copyable_v<T>)
        return -1;
    else
        return T::alive();
}
