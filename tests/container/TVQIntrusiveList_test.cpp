// Concerns: the links of hooks and heads, to the pointer; order; objects in several lists; erasing what is not there and
// inserting what is; objects that are copied; lists that end before their objects.
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"

#include <TVQIntrusiveList.h>
#include <TVQIntrusiveSlist.h>

#include <algorithm>
#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using VQIntrusive::SVQListBaseHook;
using VQIntrusive::SVQSlistBaseHook;

static_assert(sizeof(SVQListBaseHook) == 2 * sizeof(void*) && offsetof(SVQListBaseHook, mNext) == 0 &&
                  offsetof(SVQListBaseHook, mPrevious) == sizeof(void*),
              "next, previous");
static_assert(sizeof(SVQSlistBaseHook) == sizeof(void*), "next");

struct Base {
    virtual ~Base() = default;
    int mPadding = 0;
};

/// In up to one list of each kind at a time; neither hook is where the object begins.
struct Element : Base, SVQListBaseHook, SVQSlistBaseHook {
    explicit Element(int number) : mNumber(number) {}
    int mNumber;
    SVQListBaseHook& ring() { return *this; }
    SVQSlistBaseHook& chain() { return *this; }
};

using List = TVQIntrusiveList<Element, VQIntrusive::TVQListBaseHookAccessor<Element>>;
using Slist = TVQIntrusiveSlist<Element, VQIntrusive::TVQSlistBaseHookAccessor<Element>>;

static_assert(sizeof(List) == sizeof(SVQListBaseHook) && sizeof(Slist) == sizeof(SVQSlistBaseHook), "the head");
static_assert(!std::is_copy_constructible_v<List> && !std::is_copy_constructible_v<Slist>,
              "objects know their list");

template <class AnyList>
std::vector<int> numbersOf(AnyList& list) {
    std::vector<int> numbers;
    for (Element& element : list)
        numbers.push_back(element.mNumber);
    return numbers;
}

/// The pointers of a list's head.
template <class Hook, class AnyList>
const Hook& headOf(const AnyList& list) {
    return *reinterpret_cast<const Hook*>(&list);
}

void expectCriticalError(void (*body)()) {
    support::SlogCapture log;
    const support::ChildResult result = support::runInChild(body);
    EXPECT_TRUE(result.exitedWith(EXIT_FAILURE)) << result;
    ASSERT_THAT(log.texts(), testing::SizeIs(2));
    EXPECT_EQ("pid " + std::to_string(result.pid) + ": invalid iterator position", log.texts()[0]);
    EXPECT_EQ(1, log.records()[0].severity);
}

TEST(TVQIntrusiveList, AnEmptyListsHeadPointsAtItselfBothWays) {
    List list;
    const auto& head = headOf<SVQListBaseHook>(list);
    EXPECT_EQ(&head, head.mNext);
    EXPECT_EQ(&head, head.mPrevious);
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(nullptr, list.front());
    EXPECT_EQ(list.begin(), list.end());
}

TEST(TVQIntrusiveList, InsertsBeforeAPositionAndAppends) {
    Element one(1), two(2), three(3);
    List list;
    list.push_back(one);
    list.push_back(three);
    list.insert(++list.begin(), two);
    EXPECT_THAT(numbersOf(list), ElementsAre(1, 2, 3));
    EXPECT_EQ(&one, list.front());
    EXPECT_EQ(&two.ring(), one.ring().mNext);
    EXPECT_EQ(&one.ring(), two.ring().mPrevious);
    EXPECT_EQ(&three.ring(), headOf<SVQListBaseHook>(list).mPrevious);
    EXPECT_EQ(2, (++list.begin())->mNumber);
    EXPECT_EQ(1, std::count_if(list.begin(), list.end(), [](const Element& each) { return each.mNumber == 2; }));
}

TEST(TVQIntrusiveList, EraseReturnsThePositionBehindAndClearsTheLinks) {
    Element one(1), two(2), three(3);
    List list;
    for (Element* element : {&one, &two, &three})
        list.push_back(*element);
    EXPECT_EQ(&three, &*list.erase(two));
    EXPECT_EQ(nullptr, two.ring().mNext);
    EXPECT_EQ(nullptr, two.ring().mPrevious);
    EXPECT_THAT(numbersOf(list), ElementsAre(1, 3));
    EXPECT_EQ(list.end(), list.erase(three));
    list.push_back(two);
    EXPECT_THAT(numbersOf(list), ElementsAre(1, 2));
    list.erase(one);
    list.erase(two);
    EXPECT_TRUE(list.isEmpty());
}

TEST(TVQIntrusiveList, IsEmptiedByErasingEachAsItIsWalkedOver) {
    Element one(1), two(2);
    List list;
    list.push_back(one);
    list.push_back(two);
    for (auto each = list.begin(); each != list.end();)
        each = list.erase(*each);
    EXPECT_TRUE(list.isEmpty());
}

TEST(TVQIntrusiveList, AListThatEndsLetsItsObjectsGo) {
    Element one(1), two(2);
    {
        List list;
        list.push_back(one);
        list.push_back(two);
    }
    EXPECT_EQ(nullptr, one.ring().mNext);
    EXPECT_EQ(nullptr, two.ring().mPrevious);
}

TEST(TVQIntrusiveList, ACopyOfAnObjectIsInNoList) {
    Element one(1), two(2);
    List list;
    list.push_back(one);
    const Element copy(one);
    EXPECT_EQ(nullptr, static_cast<const SVQListBaseHook&>(copy).mNext);
    EXPECT_EQ(nullptr, static_cast<const SVQSlistBaseHook&>(copy).mNext);
    one = two;
    EXPECT_THAT(numbersOf(list), ElementsAre(2)) << "assignment leaves it where it is";
}

TEST(TVQIntrusiveList, ErasingWhatIsInNoListIsACriticalError) {
    expectCriticalError([] {
        Element one(1);
        List list;
        list.erase(one);
    });
}

TEST(TVQIntrusiveList, InsertingWhatIsInAListIsACriticalError) {
    expectCriticalError([] {
        Element one(1);
        List list;
        list.push_back(one);
        list.push_back(one);
    });
}

TEST(TVQIntrusiveSlist, AnEmptyListsHeadPointsAtItself) {
    Slist list;
    const auto& head = headOf<SVQSlistBaseHook>(list);
    EXPECT_EQ(&head, head.mNext);
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(list.begin(), list.end());
}

TEST(TVQIntrusiveSlist, PushesAtTheFront) {
    Element one(1), two(2), three(3);
    Slist list;
    for (Element* element : {&one, &two, &three})
        list.push_front(*element);
    EXPECT_THAT(numbersOf(list), ElementsAre(3, 2, 1));
    EXPECT_EQ(&headOf<SVQSlistBaseHook>(list), one.chain().mNext) << "a ring through the head";
}

TEST(TVQIntrusiveSlist, FindsAnObjectByItsAddressAlone) {
    Element one(1), two(2), other(1);
    Slist list;
    list.push_front(one);
    list.push_front(two);
    EXPECT_EQ(&one, list.find(&one));
    EXPECT_EQ(&two, list.find(&two));
    EXPECT_EQ(nullptr, list.find(&other));
    EXPECT_EQ(nullptr, list.find(nullptr));
    EXPECT_EQ(nullptr, list.find(reinterpret_cast<const Element*>(0x10))) << "no object at all";
}

TEST(TVQIntrusiveSlist, ErasesFromAnywhere) {
    Element one(1), two(2), three(3);
    Slist list;
    for (Element* element : {&one, &two, &three})
        list.push_front(*element);
    list.erase(two);
    EXPECT_EQ(nullptr, two.chain().mNext);
    EXPECT_THAT(numbersOf(list), ElementsAre(3, 1));
    list.erase(three);
    list.erase(one);
    EXPECT_TRUE(list.isEmpty());
    list.push_front(two);
    EXPECT_THAT(numbersOf(list), ElementsAre(2));
}

TEST(TVQIntrusiveSlist, AListThatEndsLetsItsObjectsGo) {
    Element one(1), two(2);
    {
        Slist list;
        list.push_front(one);
        list.push_front(two);
    }
    EXPECT_EQ(nullptr, one.chain().mNext);
    EXPECT_EQ(nullptr, two.chain().mNext);
}

TEST(TVQIntrusiveSlist, ErasingWhatIsNotInTheListIsACriticalError) {
    expectCriticalError([] {
        Element one(1), two(2);
        Slist list;
        list.push_front(one);
        list.erase(two);
    });
    expectCriticalError([] {
        Slist list, other;
        Element one(1);
        other.push_front(one);
        list.erase(one);
    });
}

TEST(TVQIntrusiveSlist, InsertingWhatIsInAListIsACriticalError) {
    expectCriticalError([] {
        Element one(1);
        Slist list;
        list.push_front(one);
        list.push_front(one);
    });
}

}  // namespace
