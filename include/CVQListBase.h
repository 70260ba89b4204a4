// CVQListNodeBase, CVQListBase: the links of a doubly linked list, and the list's end.
//   Shape    a node is two pointers, previous and next. A list is a ring of nodes through its CVQListBase, which is
//            no element but the end position: its next is the first element, its previous the last, and in an empty
//            list both are itself.
//   Owners   nodes carry nothing and own nothing. Whoever builds on them allocates, and unhooks before destroying.
//   Errors   `checkNode` reports; everything else trusts its arguments. Destroying a node leaves null in both
//            links, so that a stray step from it meets null and not what is put there next.
//   Threads  one thread at a time for all nodes of a list.
#pragma once

#include <VQExport.h>

class VQ_EXPORT CVQListNodeBase {
public:
    constexpr CVQListNodeBase() noexcept = default;
    CVQListNodeBase(const CVQListNodeBase&) = delete;
    CVQListNodeBase& operator=(const CVQListNodeBase&) = delete;
    ~CVQListNodeBase() {
        // Volatile, or the compiler drops stores to an object that is about to end.
        *const_cast<CVQListNodeBase* volatile*>(&mPrevious) = nullptr;
        *const_cast<CVQListNodeBase* volatile*>(&mNext) = nullptr;
    }

    /// Links this node in before `position`.
    void hook(CVQListNodeBase* position) noexcept {
        mNext = position;
        mPrevious = position->mPrevious;
        mPrevious->mNext = this;
        position->mPrevious = this;
    }

    /// Joins the neighbours; the node's own links stay as they were.
    void unhook() noexcept {
        mPrevious->mNext = mNext;
        mNext->mPrevious = mPrevious;
    }

    /// Moves the nodes from `first` up to, not including, `last`, of this list or another, to before this node.
    /// This node is not among them, unless it is `first`: then, and for an empty range, nothing changes.
    void transfer(CVQListNodeBase* first, CVQListNodeBase* last) noexcept {
        if (this == last || first == last || this == first) {
            return;
        }
        last->mPrevious->mNext = this;
        first->mPrevious->mNext = last;
        mPrevious->mNext = first;
        CVQListNodeBase* const before = mPrevious;
        mPrevious = last->mPrevious;
        last->mPrevious = first->mPrevious;
        first->mPrevious = before;
    }

    /// Turns round the ring that this node, usually the list's end, belongs to.
    void reverse() noexcept;

    /// Exchanges the elements of two lists, given by their ends.
    static void swap(CVQListNodeBase& a, CVQListNodeBase& b) noexcept;

    CVQListNodeBase* mPrevious = nullptr;
    CVQListNodeBase* mNext = nullptr;
};

/// The end of a list, which is linked into a ring with its nodes.
class VQ_EXPORT CVQListBase : public CVQListNodeBase {
public:
    CVQListBase() noexcept { reset(); }
    ~CVQListBase() = default;

    /// Makes the list empty; what was in it keeps its links.
    void reset() noexcept { mPrevious = mNext = this; }

    bool isEmpty() const noexcept { return mNext == this; }

    /// Whether `node` may be dereferenced or erased. Null and the end position are reported as an invalid iterator
    /// position of `TVQList`, with `line`.
    bool checkNode(const CVQListNodeBase* node, unsigned int line) const;
};
