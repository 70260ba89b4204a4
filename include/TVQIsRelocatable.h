// TVQIsRelocatable: which types the containers may move as mere bytes. Specialise it for types of your own.
//   Errors   none; a type that says so without being so breaks every container of it.
#pragma once

#include <type_traits>
#include <utility>

class CVQBuffer;
class CVQRCMemoryBuffer;
class CVQString;

/// Whether an object of type T may be moved by copying its bytes and forgetting the original: true for what is
/// trivially copyable, and for types that say so here. Such a type must not hold a pointer to itself, nor may
/// anybody else hold one that must follow.
template <class T>
struct TVQIsRelocatable : std::is_trivially_copyable<T> {};

template <>
struct TVQIsRelocatable<CVQString> : std::true_type {};
template <>
struct TVQIsRelocatable<CVQBuffer> : std::true_type {};
template <>
struct TVQIsRelocatable<CVQRCMemoryBuffer> : std::true_type {};

template <class First, class Second>
struct TVQIsRelocatable<std::pair<First, Second>>
    : std::bool_constant<TVQIsRelocatable<First>::value && TVQIsRelocatable<Second>::value> {};
