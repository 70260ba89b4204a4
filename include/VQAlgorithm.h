// VQAlgorithm: order and search in sorted ranges.
//   Units    positions are iterators of the range.
//   Errors   none. A range that is not sorted gives some position of it.
//   Threads  any thread that may read the range.
#pragma once

/// The order of sorted containers: `<`.
template <class T>
struct TVQBefore {
    bool operator()(const T& left, const T& right) const { return left < right; }
};

namespace VQAlgorithm {

/// The first position of [first, last) whose element is not before `key`, or `last`. `before(element, key)` must hold
/// for a leading part of the range and for nothing behind it.
template <class Iterator, class Key, class Before>
Iterator lowerBound(Iterator first, Iterator last, const Key& key, Before before) {
    auto count = last - first;
    while (count > 0) {
        const auto half = count / 2;
        if (before(first[half], key)) {
            first += half + 1;
            count -= half + 1;
        } else {
            count = half;
        }
    }
    return first;
}

}  // namespace VQAlgorithm
