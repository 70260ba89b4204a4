// CVQTimeSpan: setters, getters and the broken-down form, from both sides of zero and at the ends of 64 bits.
#include <CVQTimeSpan.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <limits>
#include <random>
#include <type_traits>

using Span = CVQTimeSpan::Span;

namespace {

constexpr long long kLowestCount = std::numeric_limits<long long>::min();
constexpr long long kHighestCount = std::numeric_limits<long long>::max();

Span partsOf(long long micros) {
    Span span(true, 1, 2, 3, 4, 5);  // every field must be overwritten
    CVQTimeSpan::getSpanFromMicros(micros, span);
    return span;
}

constexpr unsigned long long bits(long long value) {
    return static_cast<unsigned long long>(value);
}

}  // namespace

static_assert(std::is_trivially_copyable_v<CVQTimeSpan> && sizeof(CVQTimeSpan) == 8);
static_assert(std::is_trivially_copyable_v<Span> && sizeof(Span) == 12);
static_assert(offsetof(Span, negative) == 0 && offsetof(Span, hours) == 1 && offsetof(Span, minutes) == 2 &&
              offsetof(Span, seconds) == 3 && offsetof(Span, days) == 4 && offsetof(Span, microseconds) == 8);

TEST(CVQTimeSpan, StartsAtZero) {
    EXPECT_EQ(CVQTimeSpan().getMicroseconds(), 0U);
    EXPECT_EQ(Span(), Span(false, 0, 0, 0, 0, 0));
}

TEST(CVQTimeSpan, BreaksCountsIntoParts) {
    const struct {
        int line;
        long long micros;
        Span span;
    } rows[] = {
        {__LINE__, 0, Span(false, 0, 0, 0, 0, 0)},
        {__LINE__, 1, Span(false, 0, 0, 0, 0, 1)},
        {__LINE__, -1, Span(true, 0, 0, 0, 0, 1)},
        {__LINE__, 999'999, Span(false, 0, 0, 0, 0, 999'999)},
        {__LINE__, 1'000'000, Span(false, 0, 0, 0, 1, 0)},
        {__LINE__, 59'999'999, Span(false, 0, 0, 0, 59, 999'999)},
        {__LINE__, 60'000'000, Span(false, 0, 0, 1, 0, 0)},
        {__LINE__, 3'599'999'999, Span(false, 0, 0, 59, 59, 999'999)},
        {__LINE__, 3'600'000'000, Span(false, 0, 1, 0, 0, 0)},
        {__LINE__, 86'399'999'999, Span(false, 0, 23, 59, 59, 999'999)},
        {__LINE__, 86'400'000'000, Span(false, 1, 0, 0, 0, 0)},
        {__LINE__, 90'061'000'001, Span(false, 1, 1, 1, 1, 1)},
        {__LINE__, -90'061'000'001, Span(true, 1, 1, 1, 1, 1)},
        {__LINE__, kHighestCount, Span(false, 106'751'991, 4, 0, 54, 775'807)},
        {__LINE__, kLowestCount + 1, Span(true, 106'751'991, 4, 0, 54, 775'807)},
        {__LINE__, kLowestCount, Span(true, 106'751'991, 4, 0, 54, 775'808)},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        EXPECT_EQ(partsOf(row.micros), row.span);
        EXPECT_EQ(CVQTimeSpan::getMicrosFromSpan(row.span), row.micros);

        Span span;
        CVQTimeSpan(bits(row.micros)).getSpan(span);
        EXPECT_EQ(span, row.span);
        EXPECT_EQ(CVQTimeSpan(row.span).getMicroseconds(), bits(row.micros));
    }
}

TEST(CVQTimeSpan, EveryCountComesBackFromItsParts) {
    std::mt19937_64 random(52);
    for (int i = 0; i != 100'000; ++i) {
        const auto micros = static_cast<long long>(random() >> (random() % 64));
        for (const long long count : {micros, micros == kLowestCount ? micros : -micros}) {
            const Span span = partsOf(count);
            ASSERT_TRUE(span.isValid()) << count;
            ASSERT_EQ(span.negative, count < 0);
            ASSERT_EQ(CVQTimeSpan::getMicrosFromSpan(span), count);
        }
    }
}

TEST(CVQTimeSpan, SumsPartsThatAreOutOfRange) {
    EXPECT_EQ(CVQTimeSpan::getMicrosFromSpan(Span(false, 0, 0, 90, 0, 0)), 5'400'000'000);
    EXPECT_EQ(CVQTimeSpan::getMicrosFromSpan(Span(true, 0, 255, 255, 255, 4'294'967'295)),
              -((255LL * 3600 + 255 * 60 + 255) * 1'000'000 + 4'294'967'295));
}

TEST(CVQTimeSpan, WrapsPartsThatDoNotFit64Bits) {
    // 4,294,967,295 days are 371,085,174,288,000,000,000 microseconds.
    const unsigned long long wrapped = 4'294'967'295ULL * 86'400'000'000ULL;
    EXPECT_EQ(CVQTimeSpan(Span(false, 4'294'967'295, 0, 0, 0, 0)).getMicroseconds(), wrapped);
    EXPECT_EQ(CVQTimeSpan(Span(true, 4'294'967'295, 0, 0, 0, 0)).getMicroseconds(), 0 - wrapped);
    // 2^63 microseconds and the same before zero are one value.
    const Span highest(false, 106'751'991, 4, 0, 54, 775'808);
    const Span lowest(true, 106'751'991, 4, 0, 54, 775'808);
    EXPECT_EQ(CVQTimeSpan::getMicrosFromSpan(highest), kLowestCount);
    EXPECT_EQ(CVQTimeSpan::getMicrosFromSpan(lowest), kLowestCount);
}

TEST(CVQTimeSpan, ChecksEveryPartButDaysAndSign) {
    EXPECT_TRUE(Span(false, 4'000'000'000, 23, 59, 59, 999'999).isValid());
    EXPECT_TRUE(Span(true, 0, 0, 0, 0, 0).isValid());
    EXPECT_FALSE(Span(false, 0, 24, 0, 0, 0).isValid());
    EXPECT_FALSE(Span(false, 0, 0, 60, 0, 0).isValid());
    EXPECT_FALSE(Span(false, 0, 0, 0, 60, 0).isValid());
    EXPECT_FALSE(Span(false, 0, 0, 0, 0, 1'000'000).isValid());
    EXPECT_FALSE(CVQTimeSpan::isSpanValid(Span(false, 0, 255, 255, 255, 4'294'967'295)));
}

TEST(CVQTimeSpan, SpansAreEqualInAllSixFields) {
    const Span span(false, 1, 2, 3, 4, 5);
    const Span others[] = {Span(true, 1, 2, 3, 4, 5),  Span(false, 9, 2, 3, 4, 5), Span(false, 1, 9, 3, 4, 5),
                           Span(false, 1, 2, 9, 4, 5), Span(false, 1, 2, 3, 9, 5), Span(false, 1, 2, 3, 4, 9)};
    EXPECT_TRUE(span == Span(span));
    EXPECT_FALSE(span != Span(span));
    for (const Span& other : others) {
        EXPECT_FALSE(span == other);
        EXPECT_TRUE(span != other);
    }
}

TEST(CVQTimeSpan, GettersGiveTruncatedTotals) {
    const CVQTimeSpan span(Span(false, 1, 2, 59, 59, 999'999));
    EXPECT_EQ(span.getDays(), 1U);
    EXPECT_EQ(span.getHours(), 26U);
    EXPECT_EQ(span.getMinutes(), 26U * 60 + 59);
    EXPECT_EQ(span.getSeconds(), (26U * 60 + 59) * 60 + 59);
    EXPECT_EQ(span.getMicroseconds(), ((26ULL * 60 + 59) * 60 + 59) * 1'000'000 + 999'999);
}

TEST(CVQTimeSpan, SettersReplaceTheWholeValue) {
    CVQTimeSpan span;
    span.setDays(1);
    EXPECT_EQ(span.getMicroseconds(), 86'400'000'000U);
    span.setHours(1);
    EXPECT_EQ(span.getMicroseconds(), 3'600'000'000U);
    span.setMinutes(1);
    EXPECT_EQ(span.getMicroseconds(), 60'000'000U);
    span.setSeconds(1);
    EXPECT_EQ(span.getMicroseconds(), 1'000'000U);
    span.setMicroseconds(1);
    EXPECT_EQ(span.getMicroseconds(), 1U);
    span.setSpan(Span(true, 0, 0, 0, 0, 1));
    EXPECT_EQ(span.getMicroseconds(), bits(-1));
}

TEST(CVQTimeSpan, SettersTakeNegativeCounts) {
    CVQTimeSpan span;
    span.setDays(-1);
    EXPECT_EQ(span.getMicroseconds(), bits(-86'400'000'000));
    span.setHours(-2);
    EXPECT_EQ(span.getMicroseconds(), bits(-7'200'000'000));
    span.setMinutes(-3);
    EXPECT_EQ(span.getMicroseconds(), bits(-180'000'000));
    span.setSeconds(-4);
    EXPECT_EQ(span.getMicroseconds(), bits(-4'000'000));
}

TEST(CVQTimeSpan, SettersWrapModulo64Bits) {
    CVQTimeSpan span;
    span.setDays(std::numeric_limits<int>::max());
    EXPECT_EQ(span.getMicroseconds(), 2'147'483'647ULL * 86'400'000'000ULL);
    span.setDays(std::numeric_limits<int>::min());
    EXPECT_EQ(span.getMicroseconds(), 0 - 2'147'483'648ULL * 86'400'000'000ULL);
    span.setHours(kLowestCount);  // 2^63 times an even number
    EXPECT_EQ(span.getMicroseconds(), 0U);
    span.setMinutes(kHighestCount);
    EXPECT_EQ(span.getMicroseconds(), bits(-60'000'000));
    span.setSeconds(kHighestCount);
    EXPECT_EQ(span.getMicroseconds(), bits(-1'000'000));
}

TEST(CVQTimeSpan, ComparesToMinusOneZeroOrOne) {
    EXPECT_EQ(CVQTimeSpan(5).compareTo(CVQTimeSpan(5)), 0);
    EXPECT_EQ(CVQTimeSpan(5).compareTo(CVQTimeSpan(5'000'000'000'000)), -1);
    EXPECT_EQ(CVQTimeSpan(5'000'000'000'000).compareTo(CVQTimeSpan(5)), 1);
}

TEST(CVQTimeSpan, CanBeBuiltAtCompileTime) {
    constexpr CVQTimeSpan span(Span(false, 0, 0, 1, 30, 0));
    static_assert(span.getSeconds() == 90);
    static_assert(CVQTimeSpan(90'000'000).compareTo(span) == 0);
    static_assert(!Span(false, 0, 24, 0, 0, 0).isValid());
}

TEST(CVQTimeSpan, Kept_GettersAndCompareToReadANegativeSpanAsAVeryLargeOne) {  // id: timespan-unsigned
    CVQTimeSpan span;
    span.setHours(-1);
    EXPECT_EQ(span.getHours(), 5'124'095'575U);
    EXPECT_EQ(span.getDays(), 213'503'982U);
    EXPECT_EQ(span.getMinutes(), 307'445'734'501U);
    EXPECT_EQ(span.getSeconds(), 18'446'744'070'109U);

    CVQTimeSpan anHour;
    anHour.setHours(1);
    EXPECT_EQ(span.compareTo(anHour), 1);
    EXPECT_EQ(CVQTimeSpan(bits(kHighestCount)).compareTo(CVQTimeSpan(bits(kLowestCount))), -1);

    Span parts;
    span.getSpan(parts);
    EXPECT_EQ(parts, Span(true, 0, 1, 0, 0, 0));
}

TEST(CVQTimeSpan, Kept_ANegativeZeroBecomesPositiveAndDiffers) {  // id: timespan-negative-zero
    const Span negativeZero(true, 0, 0, 0, 0, 0);
    const CVQTimeSpan span(negativeZero);
    EXPECT_EQ(span.getMicroseconds(), 0U);

    Span parts;
    span.getSpan(parts);
    EXPECT_FALSE(parts.negative);
    EXPECT_FALSE(parts == negativeZero);
}
