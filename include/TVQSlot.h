// TVQSlot: how a value lies in the pointer-sized place that the untyped engines have for it.
//   Shape    a value that fits the place, and whose bytes may be moved about, lies in it; the bytes beside it are
//            zero. Every other value is a block of its own, and the place points to it.
//   Errors   none; without memory the process ends (operator new).
//   Threads  one thread at a time.
#pragma once

#include <TVQIsRelocatable.h>

#include <cstring>
#include <new>
#include <type_traits>

template <class T>
class TVQSlot {
public:
    static constexpr bool kInPlace =
        // NOLINTNEXTLINE(misc-redundant-expression): it takes sizes and alignments for the same
        sizeof(T) <= sizeof(void*) && alignof(T) <= alignof(void*) && TVQIsRelocatable<T>::value;
    /// Whether equal values are equal places and the other way round.
    static constexpr bool kEqualAsPointers = kInPlace && std::has_unique_object_representations_v<T>;
    /// Whether `destroy` has nothing to do.
    static constexpr bool kNothingToDestroy = kInPlace && std::is_trivially_destructible_v<T>;

    /// The value in a place that stays where it is.
    static T& get(void** slot) noexcept {
        if constexpr (kInPlace) {
            return *std::launder(reinterpret_cast<T*>(slot));
        } else {
            return *static_cast<T*>(*slot);
        }
    }

    /// What a place would hold, without owning anything: good as long as `value` lives.
    static void* borrow(const T& value) noexcept {
        if constexpr (kInPlace) {
            void* content = nullptr;
            std::memcpy(&content, static_cast<const void*>(&value), sizeof(T));
            return content;
        } else {
            return const_cast<void*>(static_cast<const void*>(&value));
        }
    }

    /// Puts a default value there.
    static void construct(void** slot) {
        if constexpr (kInPlace) {
            *slot = nullptr;
            ::new (static_cast<void*>(slot)) T();
        } else {
            *slot = new T();
        }
    }

    /// Replaces borrowed content by a copy that the place owns.
    static void copy(void** slot) {
        if constexpr (!kInPlace) {
            *slot = new T(*static_cast<const T*>(*slot));
        } else if constexpr (!std::is_trivially_copyable_v<T>) {
            const CView borrowed(*slot);
            ::new (static_cast<void*>(slot)) T(borrowed.get());
        }
    }

    static void destroy(void** slot) noexcept {
        if constexpr (!kInPlace) {
            delete static_cast<T*>(*slot);
        } else if constexpr (!std::is_trivially_destructible_v<T>) {
            get(slot).~T();
        }
    }

    /// Looks at the value in what a place holds, given by itself.
    class CView {
    public:
        explicit CView(const void* content) noexcept {
            if constexpr (kInPlace) {
                std::memcpy(mBytes, &content, sizeof(T));
            } else {
                mValue = static_cast<const T*>(content);
            }
        }
        const T& get() const noexcept {
            if constexpr (kInPlace) {
                return *std::launder(reinterpret_cast<const T*>(mBytes));
            } else {
                return *mValue;
            }
        }

    private:
        union {
            alignas(void*) unsigned char mBytes[sizeof(void*)];
            const T* mValue;
        };
    };
};
