// Lives: an element that counts how many of its kind are alive, to tell a lost one and one destroyed twice.
#pragma once

#include <gtest/gtest.h>
#include <set>

class Life {
public:
    Life(int number = 0) : mNumber(number) { begin(); }
    Life(const Life& other) : mNumber(other.number()) { begin(); }
    Life& operator=(const Life& other) {
        mNumber = other.number();
        number();
        return *this;
    }
    ~Life() { EXPECT_EQ(1u, sAlive.erase(this)) << "destroyed twice, or moved as bytes"; }

    int number() const {
        EXPECT_EQ(1u, sAlive.count(this)) << "used after its end";
        return mNumber;
    }
    friend bool operator==(const Life& left, const Life& right) { return left.number() == right.number(); }

    static std::size_t alive() { return sAlive.size(); }

private:
    void begin() { EXPECT_TRUE(sAlive.insert(this).second) << "made where another one lives"; }

    int mNumber;
    inline static std::set<const Life*> sAlive;
};

namespace std {
template <>
struct hash<Life> {
    std::size_t operator()(const Life& life) const { return static_cast<std::size_t>(life.number()); }
};
}  // namespace std
