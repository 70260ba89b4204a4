// VQInteropHash: what is equal has one hash, whatever else differs; what differs has another; use in std's tables and
// in this library's.
#include <VQInteropHash.h>
#include <VQInteropStringView.h>

#include <TVQHashArray.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

using namespace std::string_view_literals;
using VQInterop::fromStringView;

namespace {

template <class T>
std::size_t hashOf(const T& value) {
    return std::hash<T>()(value);
}

/// Equal values have one hash, and of different ones at least all but one in a hundred differ.
template <class T>
void expectConsistent(const std::vector<T>& values) {
    std::set<std::size_t> hashes;
    std::size_t different = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        hashes.insert(hashOf(values[i]));
        bool isFirst = true;
        for (std::size_t j = 0; j < i; ++j) {
            if (values[i] == values[j]) {
                isFirst = false;
                ASSERT_EQ(hashOf(values[i]), hashOf(values[j])) << i << ' ' << j;
            }
        }
        different += isFirst ? 1 : 0;
    }
    EXPECT_GE(hashes.size() * 100, different * 99);
    EXPECT_LE(hashes.size(), different);
}

}  // namespace

TEST(VQInteropHash, EqualTextsHaveOneHashWhereverTheirBytesLie) {
    EXPECT_EQ(hashOf(CVQString("Grüße")), hashOf(CVQString("Gr") + CVQString("üße")));
    CVQString roomy("Grüße");
    roomy.reserve(1000);
    EXPECT_EQ(hashOf(CVQString("Grüße")), hashOf(roomy));
    EXPECT_EQ(hashOf(CVQString()), hashOf(CVQString("")));
}

TEST(VQInteropHash, TextsThatAreEqualUpToAZeroByteHaveOneHash) {
    const CVQString a = fromStringView("same\0one"sv), b = fromStringView("same\0two"sv);
    ASSERT_TRUE(a == b);
    EXPECT_EQ(hashOf(a), hashOf(b));
    EXPECT_NE(getHashValueForString(a), getHashValueForString(b));  // which is why it is not that one
}

TEST(VQInteropHash, ATextsHashIsThatOfItsView) {
    for (const char* text : {"", "a", "Grüße", "a longer text, which no register holds"})
        EXPECT_EQ(hashOf(std::string_view(text)), hashOf(CVQString(text)));
}

TEST(VQInteropHash, DifferentTextsRarelyMeet) {
    std::vector<CVQString> texts;
    for (int i = 0; i < 1000; ++i)
        texts.emplace_back(("name " + std::to_string(i % 900)).c_str());
    expectConsistent(texts);
}

TEST(VQInteropHash, PathsThatAreEqualHaveOneHash) {
    const CVQPath plain("/usr/lib"), untidy("//usr///lib/");
    ASSERT_TRUE(plain == untidy);
    EXPECT_EQ(hashOf(plain), hashOf(untidy));
    EXPECT_NE(hashOf(plain), hashOf(CVQPath("/usr/bin")));
    EXPECT_EQ(hashOf(CVQPath()), hashOf(CVQPath("")));
}

TEST(VQInteropHash, BuffersHashTheirBytes) {
    CVQBuffer one, other;
    const char bytes[] = "bytes\0and more";
    one.copyTo(bytes, sizeof bytes, 0);
    other.copyTo(bytes, sizeof bytes, 0);
    ASSERT_TRUE(one == other);
    EXPECT_EQ(hashOf(one), hashOf(other));
    EXPECT_EQ(hashOf(one), hashOf(one.getMemoryBuffer()));
    const char last = '!';
    other.copyTo(&last, 1, sizeof bytes - 1);
    EXPECT_NE(hashOf(one), hashOf(other));
    EXPECT_EQ(hashOf(CVQBuffer()), hashOf(CVQBuffer(0)));
}

TEST(VQInteropHash, DatesTimesAndSpansHashAllTheirFields) {
    std::vector<CVQDateAndTime::SVQDate> dates;
    std::vector<CVQDateAndTime::SVQTime> times;
    std::vector<CVQTimeSpan::Span> spans;
    for (unsigned i = 0; i < 1000; ++i) {
        const auto small = static_cast<unsigned char>(i % 7), other = static_cast<unsigned char>(i / 7 % 11);
        const auto third = static_cast<unsigned char>(i / 77 % 5);
        dates.emplace_back(static_cast<unsigned short>(1970 + third), small, other);
        times.emplace_back(small, other, third, i % 3);
        spans.emplace_back(i % 2 != 0, i % 3, small, other, third, i % 5);
    }
    expectConsistent(dates);
    expectConsistent(times);
    expectConsistent(spans);
}

TEST(VQInteropHash, HoursCountOnEveryWidthOfAHash) {
    using Time = CVQDateAndTime::SVQTime;
    EXPECT_NE(hashOf(Time(1, 0, 0, 0)), hashOf(Time(2, 0, 0, 0)));
    EXPECT_NE(hashOf(Time(0, 0, 0, 1)), hashOf(Time(0, 0, 1, 0)));
}

TEST(VQInteropHash, FixedPointNumbersHashEveryStep) {
    std::vector<CVQFix16> numbers;
    for (int i = -500; i < 500; ++i) {
        numbers.push_back(CVQFix16::fromRaw(i));
        numbers.push_back(CVQFix16::fromRaw(i * 65536));
    }
    expectConsistent(numbers);
}

TEST(VQInteropHash, PointersHashWhereTheyLead) {
    struct SCounted {
        void addReference() {}
        void removeReference() {}
    } counted;
    const TVQRefCountPointer<SCounted> one(&counted), other(&counted), none;
    EXPECT_EQ(hashOf(one), hashOf(other));
    EXPECT_NE(hashOf(one), hashOf(none));
}

TEST(VQInteropHash, ServesTheTablesOfStd) {
    std::unordered_map<CVQString, int> counts;
    for (const char* word : {"one", "two", "one", "drei", "one"})
        ++counts[word];
    EXPECT_EQ(3, counts["one"]);
    EXPECT_EQ(3u, counts.size());
    std::unordered_set<CVQDateAndTime::SVQDate> days = {{2009, 3, 7}, {2009, 3, 8}, {2009, 3, 7}};
    EXPECT_EQ(2u, days.size());
    EXPECT_EQ(1u, days.count({2009, 3, 8}));
}

TEST(VQInteropHash, ServesTheTablesOfThisLibrary) {
    TVQHashArray<CVQDateAndTime::SVQDate, int> table;
    for (unsigned char day = 1; day <= 31; ++day)
        EXPECT_TRUE(table.insert({2009, 3, day}, day));
    EXPECT_FALSE(table.insert({2009, 3, 7}, 0));
    EXPECT_EQ(7, *table.find({2009, 3, 7}));
}
