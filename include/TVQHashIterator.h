// TVQHashIterator: the iterator of the typed hash tables.
//   Shape    wraps a `Position`, which knows its table: entry(), step(), ==. An entry is a pair of references,
//            `key` and `value`, made on the spot; so by the letter of C++17 this is an input iterator, though it
//            may be copied, compared and walked again like a forward iterator, which is what C++20 takes it for.
//   Invalid  as its table says for items.
#pragma once

#include <cstddef>
#include <iterator>
#include <utility>

namespace VQPrivate {

/// Walks the entries of a table in no order that means anything.
template <class Position>
class TVQHashIterator {
public:
    using iterator_category = std::input_iterator_tag;
    using iterator_concept = std::forward_iterator_tag;
    using value_type = typename Position::Entry;
    using difference_type = std::ptrdiff_t;
    using reference = value_type;

    /// Keeps the entry alive for as long as `->` needs it.
    class pointer {
    public:
        explicit pointer(const value_type& entry) : mEntry(entry) {}
        const value_type* operator->() const { return &mEntry; }

    private:
        value_type mEntry;
    };

    TVQHashIterator() = default;
    explicit TVQHashIterator(const Position& position) : mPosition(position) {}
    /// From an iterator that may write to one that may not.
    template <class Other, class = decltype(Position(std::declval<const Other&>()))>
    TVQHashIterator(const TVQHashIterator<Other>& other) : mPosition(other.position()) {}

    reference operator*() const { return mPosition.entry(); }
    pointer operator->() const { return pointer(mPosition.entry()); }

    TVQHashIterator& operator++() {
        mPosition.step();
        return *this;
    }
    TVQHashIterator operator++(int) {
        const TVQHashIterator before(*this);
        mPosition.step();
        return before;
    }

    friend bool operator==(const TVQHashIterator& left, const TVQHashIterator& right) {
        return left.mPosition == right.mPosition;
    }
    friend bool operator!=(const TVQHashIterator& left, const TVQHashIterator& right) { return !(left == right); }

    const Position& position() const { return mPosition; }

private:
    Position mPosition;
};

}  // namespace VQPrivate
