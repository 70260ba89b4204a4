#include <CVQListBase.h>

#include <VQContainerAssertions.h>

namespace {

/// Gives the ring of `from`, which is not empty, to the end `to`; what `to` had before is forgotten.
void moveRing(CVQListNodeBase& to, CVQListNodeBase& from) noexcept {
    to.mNext = from.mNext;
    to.mPrevious = from.mPrevious;
    to.mNext->mPrevious = &to;
    to.mPrevious->mNext = &to;
    from.mNext = from.mPrevious = &from;
}

bool isAlone(const CVQListNodeBase& end) noexcept {
    return end.mNext == &end;
}

}  // namespace

static_assert(sizeof(CVQListNodeBase) == 2 * sizeof(void*) && sizeof(CVQListBase) == sizeof(CVQListNodeBase),
              "previous, next");

void CVQListNodeBase::reverse() noexcept {
    CVQListNodeBase* node = this;
    do {
        CVQListNodeBase* const next = node->mNext;
        node->mNext = node->mPrevious;
        node->mPrevious = next;
        node = next;
    } while (node != this);
}

void CVQListNodeBase::swap(CVQListNodeBase& a, CVQListNodeBase& b) noexcept {
    if (isAlone(a) && isAlone(b)) {
        return;
    }
    if (isAlone(a)) {
        moveRing(a, b);
    } else if (isAlone(b)) {
        moveRing(b, a);
    } else {
        CVQListNodeBase held;
        moveRing(held, a);
        moveRing(a, b);
        moveRing(b, held);
    }
}

bool CVQListBase::checkNode(const CVQListNodeBase* node, unsigned int line) const {
    if (VQ_UNLIKELY(node == this)) {
        return VQListAssertions::doAssert(VQContainerAssertions::INVALID_ITERATOR_POSITION, line);
    }
    return VQListAssertions::checkNode(node, line);
}
