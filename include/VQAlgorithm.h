// VQAlgorithm: order and search in sorted ranges.
//   Units    positions are iterators of the range.
//   Errors   none. A range that is not sorted gives some position of it.
//   Threads  any thread that may read the range.
#pragma once

#include <type_traits>
#include <utility>

/// The order of sorted containers: `<`. Of a type with `int compare(const T&) const noexcept`, which agrees with
/// `<` and tells before, same and behind (below 0, 0, above 0) in one go, the order has that, too.
template <class T, class = void>
struct TVQBefore {
    bool operator()(const T& left, const T& right) const { return left < right; }
};

/// For a type that can say in one comparison whether it is before, equal or behind.
template <class T>
struct TVQBefore<T, std::enable_if_t<std::is_same_v<decltype(&T::compare), int (T::*)(const T&) const noexcept>>> {
    bool operator()(const T& left, const T& right) const { return left < right; }
    int compare(const T& left, const T& right) const { return left.compare(right); }
};

namespace VQAlgorithm {

/// The first position of [first, last) whose element is not before `key`, or `last`. `before(element, key)` must
/// hold for a leading part of the range and for nothing behind it.
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

/// Where a key is, or where it is missing.
template <class Iterator>
struct SPlace {
    Iterator position;
    bool isFound;
};

template <class Before, class Key, class = void>
struct THasCompare : std::false_type {};
template <class Before, class Key>
struct THasCompare<Before, Key,
                   std::void_t<decltype(std::declval<const Before&>().compare(
                       std::declval<const Key&>(), std::declval<const Key&>()))>> : std::true_type {};

/// The place of `key` in [first, last), no two of whose keys are equivalent; `keyOf(element)` is an element's. Asks
/// an order that can compare once an element, and no more once it has found the key; any other as lowerBound, and
/// then once more.
template <class Iterator, class Key, class KeyOf, class Before>
SPlace<Iterator> findUnique(Iterator first, Iterator last, const Key& key, KeyOf keyOf, Before before) {
    if constexpr (THasCompare<Before, Key>::value) {
        auto count = last - first;
        while (count > 0) {
            const auto half = count / 2;
            const int order = before.compare(keyOf(first[half]), key);
            if (order == 0) {
                return {first + half, true};
            }
            if (order < 0) {
                first += half + 1;
                count -= half + 1;
            } else {
                count = half;
            }
        }
        return {first, false};
    } else {
        const Iterator position = lowerBound(first, last, key, [&](const auto& element, const Key& sought) {
            return before(keyOf(element), sought);
        });
        return {position, position != last && !before(key, keyOf(*position))};
    }
}

}  // namespace VQAlgorithm
