#include <VQSlist.h>

namespace VQPrivate {

static_assert(sizeof(CVQSlistNodeBase) == sizeof(void*), "next");

const CVQSlistNodeBase* slistPrevious(const CVQSlistNodeBase* head, const CVQSlistNodeBase* node) noexcept {
    while (head != nullptr && head->mNext != node) {
        head = head->mNext;
    }
    return head;
}

CVQSlistNodeBase* slistPrevious(CVQSlistNodeBase* head, const CVQSlistNodeBase* node) noexcept {
    const CVQSlistNodeBase* const first = head;
    return const_cast<CVQSlistNodeBase*>(slistPrevious(first, node));
}

void slistSpliceAfter(CVQSlistNodeBase* position, CVQSlistNodeBase* beforeFirst,
                      CVQSlistNodeBase* beforeLast) noexcept {
    if (position == beforeFirst || position == beforeLast || beforeFirst == beforeLast) {
        return;
    }
    CVQSlistNodeBase* const first = beforeFirst->mNext;
    beforeFirst->mNext = beforeLast->mNext;
    beforeLast->mNext = position->mNext;
    position->mNext = first;
}

void slistSpliceAfter(CVQSlistNodeBase* position, CVQSlistNodeBase* head) noexcept {
    CVQSlistNodeBase* last = head;
    while (last != position && last->mNext != nullptr) {
        last = last->mNext;
    }
    // The last node's next is null, as the head's next then is to be: this is a splice of everything.
    slistSpliceAfter(position, head, last);
}

CVQSlistNodeBase* slistReverse(CVQSlistNodeBase* first) noexcept {
    CVQSlistNodeBase* reversed = nullptr;
    while (first != nullptr) {
        CVQSlistNodeBase* const next = first->mNext;
        first->mNext = reversed;
        reversed = first;
        first = next;
    }
    return reversed;
}

unsigned int slistSize(const CVQSlistNodeBase* node) noexcept {
    unsigned int count = 0;
    for (; node != nullptr; node = node->mNext) {
        ++count;
    }
    return count;
}

}  // namespace VQPrivate
