// VQSlist: functions on singly linked nodes.
//   Shape    a node is one pointer, null at the end of a chain. A list is a head, which is no element, and the
//            chain behind it.
//   Owners   nodes carry nothing and own nothing.
//   Errors   none; a pointer is tested for null only where that is said.
//   Threads  one thread at a time for all nodes of a list.
#pragma once

#include <VQExport.h>

namespace VQPrivate {

/// The link of a singly linked list; derive nodes from it.
struct CVQSlistNodeBase {
    CVQSlistNodeBase* mNext = nullptr;
};

/// Inserts `node` behind `previous`, and returns it.
inline CVQSlistNodeBase* slistMakeLink(CVQSlistNodeBase* previous, CVQSlistNodeBase* node) noexcept {
    node->mNext = previous->mNext;
    previous->mNext = node;
    return node;
}

/// The node, from `head` on, whose next is `node`; for a null `node` the last one. Null when there is none, and for
/// a null `head`.
VQ_EXPORT CVQSlistNodeBase* slistPrevious(CVQSlistNodeBase* head, const CVQSlistNodeBase* node) noexcept;
VQ_EXPORT const CVQSlistNodeBase* slistPrevious(const CVQSlistNodeBase* head,
                                                const CVQSlistNodeBase* node) noexcept;

/// Moves the nodes behind `beforeFirst` up to and including `beforeLast` to behind `position`, which is not among
/// them, unless it is `beforeLast`: then, when it is `beforeFirst`, and for an empty range, nothing changes.
VQ_EXPORT void slistSpliceAfter(CVQSlistNodeBase* position, CVQSlistNodeBase* beforeFirst,
                                CVQSlistNodeBase* beforeLast) noexcept;

/// Moves all nodes behind `head` to behind `position`. Nothing changes when there are none, and when `position` is
/// `head` or one of them.
VQ_EXPORT void slistSpliceAfter(CVQSlistNodeBase* position, CVQSlistNodeBase* head) noexcept;

/// Turns round the chain that starts with `first`, and returns its former last node. Null gives null.
VQ_EXPORT CVQSlistNodeBase* slistReverse(CVQSlistNodeBase* first) noexcept;

/// The number of nodes from `node` on, which may be null.
VQ_EXPORT unsigned int slistSize(const CVQSlistNodeBase* node) noexcept;

}  // namespace VQPrivate
