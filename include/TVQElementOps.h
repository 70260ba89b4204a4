// TVQElementOps: the functions that the vector engine gets for elements of type T; the one place that knows T.
//   Kinds    an element that may be moved by copying its bytes (TVQIsRelocatable) is never constructed or destroyed
//            by growing, inserting or erasing. Others are moved by their move constructor, one at a time.
//   Errors   what T does must not throw; the program ends where it does.
//   Threads  any thread.
#pragma once

#include <CVQVectorBase.h>
#include <TVQIsRelocatable.h>
#include <VQExport.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

template <class T>
struct TVQElementOps {
    static_assert(sizeof(T) <= std::size_t{std::numeric_limits<int>::max()},
                  "the engine counts an element's bytes in int");
    static_assert(alignof(T) <= alignof(std::max_align_t), "slots are aligned as the heap aligns");

    static constexpr int kSize = static_cast<int>(sizeof(T));

    /// The first slot; null without a block.
    static T* slots(CVQVectorBase& base) noexcept {
        CVQVectorBase::SVectorData* const block = base.internal_block();
        return block == nullptr ? nullptr : static_cast<T*>(block->slots());
    }
    static const T* slots(const CVQVectorBase& base) noexcept {
        const CVQVectorBase::SVectorData* const block = base.internal_block();
        return block == nullptr ? nullptr : static_cast<const T*>(block->slots());
    }

    static int size(const CVQVectorBase& base) noexcept {
        const CVQVectorBase::SVectorData* const block = base.internal_block();
        return block == nullptr ? 0 : block->size;
    }
    static int capacity(const CVQVectorBase& base) noexcept {
        const CVQVectorBase::SVectorData* const block = base.internal_block();
        return block == nullptr ? 0 : block->capacity;
    }

    /// Appends a copy of an lvalue, or what an rvalue gives away: in line where there is a slot and nobody counts.
    template <class Item>
    static void pushBack(CVQVectorBase& base, Item&& item) {
        CVQVectorBase::SVectorData* const block = base.internal_block();
        if (VQ_LIKELY(block != nullptr && block->size < block->capacity && block->watch == nullptr)) {
            // Not read again behind the element, which for all that the compiler knows changes it where T is int:
            // in a loop each item would wait for the count of the one before to come back from memory.
            const int size = block->size;
            new (static_cast<void*>(static_cast<T*>(block->slots()) + size)) T(std::forward<Item>(item));
            block->size = size + 1;
            return;
        }
        if constexpr (TVQIsRelocatable<T>::value) {
            base.internal_append(kSize, std::addressof(item), constructor<Item>());
        } else {
            base.internal_push_back(kSize, std::addressof(item), constructor<Item>(), destroyer(), &relocate);
        }
    }

    /// Provides `slots` slots, more than there are.
    static void reserve(CVQVectorBase& base, int slots, bool exact) {
        if constexpr (TVQIsRelocatable<T>::value) {
            base.internal_extend(slots, kSize, exact);
        } else {
            base.internal_reserve(slots, kSize, exact, &relocate);
        }
    }

    /// Inserts one item, which may be an element, in the same way.
    template <class Item>
    static void insert(CVQVectorBase& base, int pos, Item&& item) {
        if constexpr (TVQIsRelocatable<T>::value) {
            CVQVectorBase::SVectorData* block = base.internal_block();
            if (VQ_LIKELY(block != nullptr && block->size < std::numeric_limits<int>::max() &&
                          block->watch == nullptr && pos >= 0 && pos <= block->size)) {
                // Built aside, as the item may be among the elements that move.
                alignas(T) unsigned char built[sizeof(T)];
                new (built) T(std::forward<Item>(item));
                if (VQ_UNLIKELY(block->size == block->capacity)) {
                    reserve(base, block->size + 1, /*exact*/ false);
                    block = base.internal_block();
                }
                T* const gap = static_cast<T*>(block->slots()) + pos;
                relocate(gap + 1, gap, block->size - pos);
                std::memcpy(static_cast<void*>(gap), built, sizeof(T));
                ++block->size;
                return;
            }
        }
        base.internal_insert(pos, 1, std::addressof(item), kSize, nullptr, constructor<Item>(), &relocate);
    }

    /// Takes the last element away. False when there is none.
    static bool popBack(CVQVectorBase& base) {
        CVQVectorBase::SVectorData* const block = base.internal_block();
        if (VQ_LIKELY(block != nullptr && block->watch == nullptr && block->size > 0)) {
            --block->size;
        } else if (!base.internal_pop_back()) {
            return false;
        }
        (slots(base) + size(base))->~T();
        return true;
    }

    /// Takes the first `count` slots, one at least, off the others. There are no elements in them any more.
    static void closeUp(CVQVectorBase& base, int count) {
        CVQVectorBase::SVectorData* const block = base.internal_block();
        if (VQ_LIKELY(block->watch == nullptr)) {
            block->size -= count;
            relocate(block->slots(), slots(base) + count, block->size);
        } else {
            base.internal_erase(0, count - 1, kSize, nullptr, nullptr, &relocate);
        }
    }

    /// Erases the elements `first` to `last`, both included: in line where there is no choice.
    static void erase(CVQVectorBase& base, int first, int last) {
        if constexpr (TVQIsRelocatable<T>::value) {
            CVQVectorBase::SVectorData* const block = base.internal_block();
            if (VQ_LIKELY(block != nullptr && block->watch == nullptr && first >= 0 && first <= last &&
                          last < block->size)) {
                T* const gap = static_cast<T*>(block->slots()) + first;
                T* const behind = static_cast<T*>(block->slots()) + last + 1;
                std::destroy(gap, behind);
                relocate(gap, behind, block->size - last - 1);
                block->size -= last - first + 1;
                return;
            }
        }
        base.internal_erase(first, last, kSize, nullptr, destroyer(), &relocate);
    }

    static bool copy(void* to, const void* from, int count) noexcept {
        std::uninitialized_copy_n(static_cast<const T*>(from), count, static_cast<T*>(to));
        return std::is_trivially_copyable_v<T>;
    }

    static void fill(void* to, const void* from, int count) noexcept {
        if constexpr (std::is_trivially_copyable_v<T>) {
            // What nobody chose a value for is zero, and the platform knows the quickest way to make zeros.
            const unsigned char* const bytes = static_cast<const unsigned char*>(from);
            const bool isZero = bytes[0] == 0 && std::memcmp(bytes, bytes + 1, sizeof(T) - 1) == 0;
            if (isZero) {
                std::memset(to, 0, static_cast<std::size_t>(count) * sizeof(T));
                return;
            }
        }
        std::uninitialized_fill_n(static_cast<T*>(to), count, *static_cast<const T*>(from));
    }

    /// Of a single item that the caller gives away.
    static bool take(void* to, const void* from, int /*count*/) noexcept {
        new (to) T(std::move(*static_cast<T*>(const_cast<void*>(from))));
        return false;
    }

    static bool relocate(void* to, const void* from, int count) noexcept {
        if constexpr (TVQIsRelocatable<T>::value) {
            if (count > 0) {
                std::memmove(to, from, static_cast<std::size_t>(count) * sizeof(T));
            }
        } else {
            T* const target = static_cast<T*>(to);
            T* const source = static_cast<T*>(const_cast<void*>(from));
            if (target < source) {
                for (int i = 0; i < count; ++i) {
                    relocateOne(target + i, source + i);
                }
            } else {
                for (int i = count - 1; i >= 0; --i) {
                    relocateOne(target + i, source + i);
                }
            }
        }
        return true;
    }

    /// Null where there is nothing to destroy.
    static constexpr auto destroyer() noexcept -> void (*)(void*, int) {
        if constexpr (std::is_trivially_destructible_v<T>) {
            return nullptr;
        } else {
            return &destroy;
        }
    }

    static void assign(void* to, const void* from, int count) noexcept {
        const T* const source = static_cast<const T*>(from);
        T* const target = static_cast<T*>(to);
        if (target < source) {
            std::copy(source, source + count, target);
        } else {
            std::copy_backward(source, source + count, target + count);
        }
    }

    static bool equal(const void* mine, const void* theirs, int count) noexcept {
        const T* const first = static_cast<const T*>(mine);
        return std::equal(first, first + count, static_cast<const T*>(theirs));
    }

private:
    template <class Item>
    static constexpr auto constructor() noexcept -> CVQVectorBase::CopyConstruct {
        if constexpr (std::is_lvalue_reference_v<Item>) {
            return &copy;
        } else {
            return &take;
        }
    }

    static void relocateOne(T* to, T* from) noexcept {
        new (static_cast<void*>(to)) T(std::move(*from));
        from->~T();
    }

    static void destroy(void* elements, int count) noexcept { std::destroy_n(static_cast<T*>(elements), count); }
};

namespace VQPrivate {

/// What a reference to an element leads to when the index is out of range: a fresh `T()`, one for each thread. It
/// serves static destructors and exit handlers as well.
template <class T>
T& neutralElement() {
    // Of a trivial kind, as the thread's other objects are gone when exit handlers run.
    struct SPlace {
        alignas(T) unsigned char bytes[sizeof(T)];
        T* element;
    };
    static thread_local SPlace place;
    struct SEnd {
        ~SEnd() { destroyElement(); }
        static void destroyElement() {
            if (T* const element = std::exchange(place.element, nullptr); element != nullptr) {
                element->~T();
            }
        }
    };
    static thread_local SEnd end;
    SEnd::destroyElement();
    place.element = new (place.bytes) T();
    return *place.element;
}

}  // namespace VQPrivate
