// VQIntrusive: what the lists share whose objects carry the links themselves.
#pragma once

#include <cstddef>
#include <iterator>

namespace VQIntrusive {

/// Finds the links in an object that has them as its base, and the object around them.
template <class T, class HookBase>
struct TVQBaseHookAccessor {
    using HookType = HookBase;
    static HookType& getHook(T& element) noexcept { return element; }
    static T& getElement(HookType& hook) noexcept { return static_cast<T&>(hook); }
};

/// Goes along `mNext`. Good while its object is in the list.
template <class T, class Hook>
class TVQIterator {
    using Link = typename Hook::HookType;

public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = T*;
    using reference = T&;

    TVQIterator() = default;
    explicit TVQIterator(Link* link) : mLink(link) {}

    reference operator*() const { return Hook::getElement(*mLink); }
    pointer operator->() const { return &**this; }
    TVQIterator& operator++() {
        mLink = mLink->mNext;
        return *this;
    }
    TVQIterator operator++(int) {
        const TVQIterator before(*this);
        mLink = mLink->mNext;
        return before;
    }
    friend bool operator==(TVQIterator left, TVQIterator right) { return left.mLink == right.mLink; }
    friend bool operator!=(TVQIterator left, TVQIterator right) { return left.mLink != right.mLink; }

    /// The links of its object, or the list's head at the end.
    Link* getLink() const { return mLink; }

private:
    Link* mLink = nullptr;
};

}  // namespace VQIntrusive
