// CVQIndex: a position or a count as a container takes it, from whatever integer type the caller has.
//   Units    elements. Containers count in int; what int cannot hold arrives as -1, which every operation that
//            takes a position or a count refuses and reports. So a 64-bit size is never cut.
//   Shape    one int.
//   Threads  plain value: one thread at a time.
#pragma once

#include <type_traits>

class CVQIndex {
public:
    template <class Integer, class = std::enable_if_t<std::is_integral_v<Integer> || std::is_enum_v<Integer>>>
    constexpr CVQIndex(Integer value) noexcept : mValue(static_cast<int>(value)) {
        // Converted back it is the same number, of the same sign: then nothing was lost.
        if (static_cast<Integer>(mValue) != value || (mValue < 0) != (value < Integer{})) {
            mValue = -1;
        }
    }

    constexpr operator int() const noexcept { return mValue; }

private:
    int mValue;
};
