// TVQIntrusiveList: a doubly linked list of objects that carry the links themselves.
//   Use      class CTimer : public VQIntrusive::SVQListBaseHook { ... };
//            TVQIntrusiveList<CTimer, VQIntrusive::TVQListBaseHookAccessor<CTimer>> timers;
//   Shape    next, then previous, in the head as in each hook. A ring through the head: an empty list's head points
//            at itself both ways. The links of an object in no list are null.
//   Owners   the list owns nothing. Whoever destroys an object erases it first; a list that ends lets its objects go.
//   Invalid  an iterator is good while its object is in the list.
//   Errors   inserting an object that is in a list, and erasing one that is in none, is the critical error "invalid
//            iterator position", which ends the process.
//   Threads  one thread at a time for a list and all its objects.
#pragma once

#include <VQError.h>
#include <VQExport.h>

#include <cstddef>
#include <iterator>

namespace VQIntrusive {

/// The links: a base of whatever is to be in a list. A copy of an object is in no list.
struct SVQListBaseHook {
    SVQListBaseHook() noexcept = default;
    SVQListBaseHook(const SVQListBaseHook&) noexcept {}
    SVQListBaseHook& operator=(const SVQListBaseHook&) noexcept { return *this; }

    SVQListBaseHook* mNext = nullptr;
    SVQListBaseHook* mPrevious = nullptr;
};

/// Finds the links in an object that has them as its base, and the object around them.
template <class T>
struct TVQListBaseHookAccessor {
    using HookType = SVQListBaseHook;
    static HookType& getHook(T& element) noexcept { return element; }
    static T& getElement(HookType& hook) noexcept { return static_cast<T&>(hook); }
};

}  // namespace VQIntrusive

template <class T, class Hook>
class TVQIntrusiveList {
    using Link = typename Hook::HookType;

public:
    class iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = T*;
        using reference = T&;

        iterator() = default;
        reference operator*() const { return Hook::getElement(*mLink); }
        pointer operator->() const { return &**this; }
        iterator& operator++() {
            mLink = mLink->mNext;
            return *this;
        }
        iterator operator++(int) {
            const iterator before(*this);
            mLink = mLink->mNext;
            return before;
        }
        friend bool operator==(iterator left, iterator right) { return left.mLink == right.mLink; }
        friend bool operator!=(iterator left, iterator right) { return left.mLink != right.mLink; }

    private:
        friend class TVQIntrusiveList;
        explicit iterator(Link* link) : mLink(link) {}

        Link* mLink = nullptr;
    };

    TVQIntrusiveList() noexcept { mHead.mNext = mHead.mPrevious = &mHead; }
    TVQIntrusiveList(const TVQIntrusiveList&) = delete;
    TVQIntrusiveList& operator=(const TVQIntrusiveList&) = delete;
    ~TVQIntrusiveList() {
        while (!isEmpty()) {
            unlink(*mHead.mNext);
        }
    }

    bool isEmpty() const noexcept { return mHead.mNext == &mHead; }
    /// Null when the list is empty.
    T* front() noexcept { return isEmpty() ? nullptr : &Hook::getElement(*mHead.mNext); }

    iterator begin() noexcept { return iterator(mHead.mNext); }
    iterator end() noexcept { return iterator(&mHead); }

    /// Inserts before `position`.
    void insert(iterator position, T& element) {
        Link& link = Hook::getHook(element);
        if (VQ_UNLIKELY(link.mNext != nullptr)) {
            VQError::criticalError(0, "invalid iterator position");
        }
        Link* const next = position.mLink;
        link.mNext = next;
        link.mPrevious = next->mPrevious;
        next->mPrevious->mNext = &link;
        next->mPrevious = &link;
    }

    void push_back(T& element) { insert(end(), element); }

    /// Returns the position behind it.
    iterator erase(T& element) {
        Link& link = Hook::getHook(element);
        if (VQ_UNLIKELY(link.mNext == nullptr)) {
            VQError::criticalError(0, "invalid iterator position");
        }
        const iterator next(link.mNext);
        unlink(link);
        return next;
    }

private:
    static void unlink(Link& link) noexcept {
        link.mPrevious->mNext = link.mNext;
        link.mNext->mPrevious = link.mPrevious;
        link.mNext = link.mPrevious = nullptr;
    }

    Link mHead;
};
