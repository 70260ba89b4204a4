// TVQIntrusiveSlist: a singly linked list of objects that carry the link themselves.
//   Use      class CTimer : public VQIntrusive::SVQSlistBaseHook { ... };
//            TVQIntrusiveSlist<CTimer, VQIntrusive::TVQSlistBaseHookAccessor<CTimer>> timers;
//   Shape    one pointer, in the head as in each hook. A ring through the head: an empty list's head points at
//            itself. The link of an object in no list is null.
//   Owners   the list owns nothing. Whoever destroys an object erases it first; a list that ends lets its objects
//            go.
//   Invalid  an iterator is good while its object is in the list.
//   Errors   inserting an object that is in a list, and erasing one that is not in this one, is the critical error
//            "invalid iterator position", which ends the process.
//   Threads  one thread at a time for a list and all its objects.
#pragma once

#include <VQError.h>
#include <VQExport.h>
#include <VQIntrusive.h>

namespace VQIntrusive {

/// The link: a base of whatever is to be in a list. A copy of an object is in no list.
struct SVQSlistBaseHook {
    SVQSlistBaseHook() noexcept = default;
    SVQSlistBaseHook(const SVQSlistBaseHook&) noexcept {}
    // NOLINTNEXTLINE(bugprone-unhandled-self-assignment): the links are not assigned
    SVQSlistBaseHook& operator=(const SVQSlistBaseHook&) noexcept { return *this; }

    SVQSlistBaseHook* mNext = nullptr;
};

template <class T>
using TVQSlistBaseHookAccessor = TVQBaseHookAccessor<T, SVQSlistBaseHook>;

}  // namespace VQIntrusive

template <class T, class Hook>
class TVQIntrusiveSlist {
    using Link = typename Hook::HookType;

public:
    using iterator = VQIntrusive::TVQIterator<T, Hook>;

    TVQIntrusiveSlist() noexcept { mHead.mNext = &mHead; }
    TVQIntrusiveSlist(const TVQIntrusiveSlist&) = delete;
    TVQIntrusiveSlist& operator=(const TVQIntrusiveSlist&) = delete;
    ~TVQIntrusiveSlist() {
        while (!isEmpty()) {
            unlinkBehind(mHead);
        }
    }

    bool isEmpty() const noexcept { return mHead.mNext == &mHead; }

    iterator begin() noexcept { return iterator(mHead.mNext); }
    iterator end() noexcept { return iterator(&mHead); }

    void push_front(T& element) {
        Link& link = Hook::getHook(element);
        if (VQ_UNLIKELY(link.mNext != nullptr)) {
            VQError::criticalError(0, "invalid iterator position");
        }
        link.mNext = mHead.mNext;
        mHead.mNext = &link;
    }

    /// `element` when it is in the list, else null. It is compared, never looked into: an address whose object is
    /// gone may be asked for.
    T* find(const T* element) noexcept {
        for (T& each : *this) {
            if (&each == element) {
                return &each;
            }
        }
        return nullptr;
    }

    /// Goes through the list for the element before it.
    void erase(T& element) {
        const Link* const link = &Hook::getHook(element);
        Link* before = &mHead;
        while (before->mNext != link) {
            before = before->mNext;
            if (VQ_UNLIKELY(before == &mHead)) {
                VQError::criticalError(0, "invalid iterator position");
            }
        }
        unlinkBehind(*before);
    }

private:
    static void unlinkBehind(Link& before) noexcept {
        Link* const link = before.mNext;
        before.mNext = link->mNext;
        link->mNext = nullptr;
    }

    Link mHead;
};
