// VQAlgorithm: order and search in sorted ranges.
//   Units    positions are iterators of the range.
//   Errors   none. A range that is not sorted gives some position of it.
//   Threads  any thread that may read the range.
#pragma once

#include <algorithm>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace VQPrivate {

/// Whether T itself, and no class that it derives from, has the member that TVQBefore asks for.
template <class T, class = void>
inline constexpr bool kHasCompare = false;
template <class T>
inline constexpr bool
    kHasCompare<T, std::enable_if_t<std::is_same_v<decltype(&T::compare), int (T::*)(const T&) const noexcept>>> =
        true;

template <class T, class = void>
inline constexpr bool kHasCompareFrom = false;
template <class T>
inline constexpr bool
    kHasCompareFrom<T, std::enable_if_t<std::is_same_v<decltype(&T::compareFrom),
                                                       int (T::*)(const T&, std::size_t&) const noexcept>>> = true;

}  // namespace VQPrivate

/// The order of sorted containers: `<`. A type may have members that tell more, as `<` would, and then the order has
/// them, too:
///   int compare(const T&) const noexcept
///     before, same and behind (below 0, 0, above 0) in one go;
///   int compareFrom(const T&, std::size_t& alike) const noexcept
///     beside it, where values are ordered by their first unit that differs, as texts are: the same, of two whose
///     first `alike` units are known to be the same. It may raise `alike` to what it has found.
template <class T, class = void>
struct TVQBefore {
    bool operator()(const T& left, const T& right) const { return left < right; }
};

/// For a type that can say in one comparison whether it is before, the same or behind.
template <class T>
struct TVQBefore<T, std::enable_if_t<VQPrivate::kHasCompare<T>>> {
    bool operator()(const T& left, const T& right) const { return left < right; }
    int compare(const T& left, const T& right, [[maybe_unused]] std::size_t& alike) const {
        if constexpr (VQPrivate::kHasCompareFrom<T>) {
            return left.compareFrom(right, alike);
        } else {
            return left.compare(right);
        }
    }
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
                       std::declval<const Key&>(), std::declval<const Key&>(), std::declval<std::size_t&>()))>>
    : std::true_type {};

/// The place of `key` in [first, last), no two of whose keys are equivalent; `keyOf(element)` is an element's. Asks
/// an order that can compare once an element, and no more once it has found the key; any other as lowerBound, and
/// then once more.
template <class Iterator, class Key, class KeyOf, class Before>
SPlace<Iterator> findUnique(Iterator first, Iterator last, const Key& key, KeyOf keyOf, Before before) {
    if constexpr (THasCompare<Before, Key>::value) {
        // How much the key begins like the nearest elements that have been asked before and behind it. All
        // elements between those two begin like it for the lesser of both.
        std::size_t alikeBefore = 0;
        std::size_t alikeBehind = 0;
        auto count = last - first;
        while (count > 0) {
            const auto half = count / 2;
            std::size_t alike = std::min(alikeBefore, alikeBehind);
            const int order = before.compare(keyOf(first[half]), key, alike);
            if (order == 0) {
                return {first + half, true};
            }
            if (order < 0) {
                first += half + 1;
                count -= half + 1;
                alikeBefore = alike;
            } else {
                count = half;
                alikeBehind = alike;
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
