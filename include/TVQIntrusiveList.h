// TVQIntrusiveList: a doubly linked list of objects that carry the links themselves.
//   Use      class CTimer : public VQIntrusive::SVQListBaseHook { ... };
//            TVQIntrusiveList<CTimer, VQIntrusive::TVQListBaseHookAccessor<CTimer>> timers;
//   Shape    next, then previous, in the head as in each hook. A ring through the head: an empty list's head points
//            at itself both ways. The links of an object in no list are null.
//   Owners   the list owns nothing. Whoever destroys an object erases it first; a list that ends lets its objects
//            go.
//   Invalid  an iterator is good while its object is in the list.
//   Errors   inserting an object that is in a list, and erasing one that is in none, is the critical error "invalid
//            iterator position", which ends the process.
//   Threads  one thread at a time for a list and all its objects.
#pragma once

#include <VQError.h>
#include <VQExport.h>
#include <VQIntrusive.h>

namespace VQIntrusive {

/// The links: a base of whatever is to be in a list. A copy of an object is in no list.
struct SVQListBaseHook {
    SVQListBaseHook() noexcept = default;
    SVQListBaseHook(const SVQListBaseHook&) noexcept {}
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): the links are not assigned
    SVQListBaseHook& operator=(const SVQListBaseHook&) noexcept { return *this; }

    SVQListBaseHook* mNext = nullptr;
    SVQListBaseHook* mPrevious = nullptr;
};

template <class T>
using TVQListBaseHookAccessor = TVQBaseHookAccessor<T, SVQListBaseHook>;

}  // namespace VQIntrusive

template <class T, class Hook>
class TVQIntrusiveList {
    using Link = typename Hook::HookType;

public:
    using iterator = VQIntrusive::TVQIterator<T, Hook>;

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
    /// The position of an object that is in a list.
    static iterator iteratorTo(T& element) noexcept { return iterator(&Hook::getHook(element)); }

    /// Inserts before `position`.
    void insert(iterator position, T& element) {
        Link& link = Hook::getHook(element);
        if (VQ_UNLIKELY(link.mNext != nullptr)) {
            VQError::criticalError(0, "invalid iterator position");
        }
        Link* const next = position.getLink();
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
