// toLength: a length that is known to fit 32 bits, in the width that travels.
#pragma once

/// A template, since on the target, where nothing is left to convert, a plain cast would be reported as useless.
template <class T>
constexpr unsigned int toLength(T length) {
    return static_cast<unsigned int>(length);
}
