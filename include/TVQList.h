// TVQList: a doubly linked list of values.
//   Shape    the list's end and a count; a node on the heap for each element. A list without elements holds no
//            memory. Elements never move: not when others come and go, and not when they are spliced to another
//            list or the list itself is moved or swapped.
//   Invalid  an iterator, and a pointer or reference to an element, is good until that element is erased; spliced,
//            moved and swapped elements take theirs along. The end position belongs to the list object.
//   Errors   erasing or splicing the end position or a null one, inserting before a null one, and a range that does
//            not lead from its first to its last position, are the assertion "Invalid iterator position" of
//            TVQList; the list stays as it was. Dereferencing the end position is not checked.
//   Threads  one thread at a time.
//   Elements may not throw from what the list calls: copies, moves, destructors, ==.
#pragma once

#include <CVQListBase.h>
#include <VQContainerAssertions.h>

#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <type_traits>
#include <utility>

template <class T>
class TVQList {
    struct SNode : CVQListNodeBase {
        template <class... Arguments>
        explicit SNode(Arguments&&... arguments) : mElement(std::forward<Arguments>(arguments)...) {}
        T mElement;
    };

    template <class E>
    class TIterator;

public:
    using value_type = T;
    using iterator = TIterator<T>;
    using const_iterator = TIterator<const T>;

    TVQList() noexcept = default;
    TVQList(std::initializer_list<T> elements) {
        for (const T& element : elements) {
            push_back(element);
        }
    }
    TVQList(const TVQList& other) {
        for (const T& element : other) {
            push_back(element);
        }
    }
    /// Leaves `other` empty.
    TVQList(TVQList&& other) noexcept { swap(other); }
    ~TVQList() { clear(); }

    TVQList& operator=(const TVQList& other) {
        if (this != &other) {
            TVQList copy(other);
            swap(copy);
        }
        return *this;
    }
    /// Leaves `other` empty.
    TVQList& operator=(TVQList&& other) noexcept {
        TVQList taken(std::move(other));
        swap(taken);
        return *this;
    }

    unsigned int size() const noexcept { return mSize; }
    bool isEmpty() const noexcept { return mSize == 0; }

    /// Null when the list is empty.
    T* front() noexcept { return isEmpty() ? nullptr : &elementOf(mEnd.mNext); }
    const T* front() const noexcept { return const_cast<TVQList*>(this)->front(); }
    T* back() noexcept { return isEmpty() ? nullptr : &elementOf(mEnd.mPrevious); }
    const T* back() const noexcept { return const_cast<TVQList*>(this)->back(); }

    void push_back(const T& element) { link(&mEnd, new SNode(element)); }
    void push_back(T&& element) { link(&mEnd, new SNode(std::move(element))); }
    void push_front(const T& element) { link(mEnd.mNext, new SNode(element)); }
    void push_front(T&& element) { link(mEnd.mNext, new SNode(std::move(element))); }

    /// False when the list is empty.
    bool pop_back() noexcept { return !isEmpty() && unlink(mEnd.mPrevious); }
    bool pop_front() noexcept { return !isEmpty() && unlink(mEnd.mNext); }

    /// Inserts before `position`, and returns where; the end after a report.
    iterator insert(const_iterator position, const T& element) {
        return checkPosition(position) ? link(position.mNode, new SNode(element)) : end();
    }
    iterator insert(const_iterator position, T&& element) {
        return checkPosition(position) ? link(position.mNode, new SNode(std::move(element))) : end();
    }

    /// Returns the position behind it; the end after a report.
    iterator erase(const_iterator position) {
        // The second look is for the compiler, which cannot see into the first and warns of a deleted list.
        if (!mEnd.checkNode(position.mNode, kLineErase) || position.mNode == &mEnd) {
            return end();
        }
        CVQListNodeBase* const next = position.mNode->mNext;
        unlink(position.mNode);
        return iterator(next);
    }
    /// Erases from `first` up to, not including, `last`, which it returns; the end after a report.
    iterator erase(const_iterator first, const_iterator last) {
        unsigned int count = 0;
        if (!measure(mEnd, first, last, nullptr, count)) {
            return end();
        }
        while (first != last) {
            first = erase(first);
        }
        return iterator(last.mNode);
    }

    /// Moves all elements of `other` to before `position`. Nothing changes when `other` is this list.
    void splice(const_iterator position, TVQList& other) {
        if (this != &other && checkPosition(position)) {
            move(position.mNode, other, other.mEnd.mNext, &other.mEnd, other.mSize);
        }
    }
    void splice(const_iterator position, TVQList&& other) { splice(position, other); }

    /// Moves the one at `element` of `other`, which may be this list, to before `position`.
    void splice(const_iterator position, TVQList& other, const_iterator element) {
        if (checkPosition(position) && other.mEnd.checkNode(element.mNode, kLineSplice)) {
            move(position.mNode, other, element.mNode, element.mNode->mNext, 1);
        }
    }

    /// Moves those from `first` up to, not including, `last`, of `other`, which may be this list, to before
    /// `position`, which may not be one of them, but for the first: then nothing changes. Walks the range.
    void splice(const_iterator position, TVQList& other, const_iterator first, const_iterator last) {
        unsigned int count = 0;
        if (checkPosition(position) && measure(other.mEnd, first, last, position.mNode, count)) {
            move(position.mNode, other, first.mNode, last.mNode, count);
        }
    }

    void reverse() noexcept { mEnd.reverse(); }

    void clear() noexcept {
        while (pop_front()) {
        }
    }

    void swap(TVQList& other) noexcept {
        CVQListNodeBase::swap(mEnd, other.mEnd);
        std::swap(mSize, other.mSize);
    }

    iterator begin() noexcept { return iterator(mEnd.mNext); }
    iterator end() noexcept { return iterator(&mEnd); }
    const_iterator begin() const noexcept { return const_cast<TVQList*>(this)->begin(); }
    const_iterator end() const noexcept { return const_cast<TVQList*>(this)->end(); }

    /// Equal are lists with equal elements in the same order.
    friend bool operator==(const TVQList& left, const TVQList& right) {
        if (left.mSize != right.mSize) {
            return false;
        }
        for (const_iterator l = left.begin(), r = right.begin(); l != left.end(); ++l, ++r) {
            if (!(*l == *r)) {
                return false;
            }
        }
        return true;
    }
    friend bool operator!=(const TVQList& left, const TVQList& right) { return !(left == right); }

private:
    static constexpr unsigned int kLineInsert = 1;
    static constexpr unsigned int kLineErase = 2;
    static constexpr unsigned int kLineSplice = 3;
    static constexpr unsigned int kLineRange = 4;

    template <class E>
    class TIterator {
    public:
        using iterator_category = std::bidirectional_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = E*;
        using reference = E&;

        TIterator() = default;
        /// From an iterator that may write to one that may not.
        template <class Other, class = std::enable_if_t<std::is_same_v<const Other, E>>>
        TIterator(const TIterator<Other>& other) noexcept : mNode(other.mNode) {}

        reference operator*() const noexcept { return elementOf(mNode); }
        pointer operator->() const noexcept { return &elementOf(mNode); }
        TIterator& operator++() noexcept {
            mNode = mNode->mNext;
            return *this;
        }
        TIterator operator++(int) noexcept {
            const TIterator before(*this);
            mNode = mNode->mNext;
            return before;
        }
        TIterator& operator--() noexcept {
            mNode = mNode->mPrevious;
            return *this;
        }
        TIterator operator--(int) noexcept {
            const TIterator before(*this);
            mNode = mNode->mPrevious;
            return before;
        }
        friend bool operator==(const TIterator& left, const TIterator& right) noexcept {
            return left.mNode == right.mNode;
        }
        friend bool operator!=(const TIterator& left, const TIterator& right) noexcept {
            return left.mNode != right.mNode;
        }

    private:
        friend class TVQList;
        template <class Other>
        friend class TIterator;
        explicit TIterator(CVQListNodeBase* node) noexcept : mNode(node) {}

        CVQListNodeBase* mNode = nullptr;
    };

    static T& elementOf(CVQListNodeBase* node) noexcept { return static_cast<SNode*>(node)->mElement; }

    static bool checkPosition(const_iterator position) {
        return VQListAssertions::checkNode(position.mNode, kLineInsert);
    }

    /// Counts the range [first, last) of the list that ends in `listEnd`. False, after a report, when `last` is not
    /// reached, and when `inserted` lies behind the first of the range.
    static bool measure(const CVQListNodeBase& listEnd, const_iterator first, const_iterator last,
                        const CVQListNodeBase* inserted, unsigned int& count) {
        const CVQListNodeBase* node = first.mNode;
        while (node != last.mNode) {
            if (node == nullptr || node == &listEnd || (count != 0 && node == inserted)) {
                return VQListAssertions::doAssert(VQContainerAssertions::INVALID_ITERATOR_POSITION, kLineRange);
            }
            node = node->mNext;
            ++count;
        }
        return VQListAssertions::checkNode(node, kLineRange);
    }

    iterator link(CVQListNodeBase* position, SNode* node) noexcept {
        node->hook(position);
        ++mSize;
        return iterator(node);
    }

    bool unlink(CVQListNodeBase* node) noexcept {
        node->unhook();
        --mSize;
        delete static_cast<SNode*>(node);
        return true;
    }

    void move(CVQListNodeBase* position, TVQList& other, CVQListNodeBase* first, CVQListNodeBase* last,
              unsigned int count) noexcept {
        position->transfer(first, last);
        other.mSize -= count;
        mSize += count;
    }

    CVQListBase mEnd;
    unsigned int mSize = 0;
};
