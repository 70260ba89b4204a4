// Keys: numbers in no order.
#pragma once

namespace bench {

/// A different number for each, and 0 for 0 only; every bit of it depends on all bits of `number`.
inline unsigned mixed(unsigned number) {
    number *= 0x9E3779B9U;
    number = (number ^ (number >> 16U)) * 0x85EBCA6BU;
    number = (number ^ (number >> 13U)) * 0xC2B2AE35U;
    return number ^ (number >> 16U);
}

}  // namespace bench
