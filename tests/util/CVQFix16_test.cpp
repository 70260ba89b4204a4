// CVQFix16: every operation against a restatement in 64-bit numbers that follows each step as it is defined and
// notes each report; over all pairs of boundary values, over random ones, and where a function has one argument
// over every value or nearly so. Then the reports themselves, line by line.
#include <CVQFix16.h>

#include <CVQAsserter.h>
#include <VQSyslog.h>

#include "support/ChildProcess.h"
#include "support/SlogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

static_assert(sizeof(CVQFix16) == 4 && std::is_trivially_copyable_v<CVQFix16>);

namespace {

constexpr long long kOne = 65'536;
constexpr long long kLowest = INT_MIN;
constexpr long long kHighest = INT_MAX;
constexpr long long kPi = 205'887;
constexpr long long kTwoPi = 411'774;
constexpr long long kHalfPi = 102'943;

/// The operations on raw values, step by step in 64-bit numbers; `lines` are the reports so far.
class Restatement {
public:
    std::vector<unsigned> lines;

    long long add(long long a, long long b) {
        if (a <= 0 && b < kLowest - a) {
            lines.push_back(73);
        }
        if (a >= 0 && kHighest - a < b) {
            lines.push_back(79);
        }
        return wrapped(a + b);
    }

    long long negate(long long a) {
        if (a == kLowest) {
            lines.push_back(136);
        }
        return wrapped(-a);
    }

    long long subtract(long long a, long long b) { return add(a, negate(b)); }

    long long mulDiv(long long a, long long b, long long c) {
        if (c == 0) {
            lines.push_back(45);
            return kHighest;
        }
        const long long product = a * b;
        const bool isNegative = (product < 0) != (c < 0);
        const long long size = std::llabs(product) / std::llabs(c);
        const long long quotient = isNegative ? -size : size;
        if (quotient < kLowest || quotient > kHighest) {
            lines.push_back(54);
        }
        return wrapped(quotient);
    }

    long long multiply(long long a, long long b) { return mulDiv(a, b, kOne); }
    long long divide(long long a, long long b) { return mulDiv(a, kOne, b); }

    long long remainder(long long a, long long b) {
        const long long quotient = divide(a, b);
        const long long whole = quotient < 0 ? -(-quotient / kOne) : quotient / kOne;
        return subtract(a, multiply(whole * kOne, b));
    }

    long long absolute(long long a) {
        if (a == kLowest) {
            lines.push_back(187);
            return kLowest;
        }
        return a < 0 ? -a : a;
    }

    long long sqrt(long long x) {
        if (x < 0) {
            lines.push_back(327);
        }
        long long result = kOne;
        long long low = 0;
        long long high = 181 * kOne;
        while (low < high) {
            result = std::min(divide(add(low, high), 2 * kOne), 181 * kOne);
            const long long square = multiply(result, result);
            if (square > x) {
                high = result;
            } else if (square < x) {
                low = result;
            } else {
                low = high;
            }
            if (high - low < 2) {
                low = high;
            }
        }
        return x > 181 * 181 * kOne ? 181 * kOne : result;
    }

    long long sin(long long x) {
        long long r = remainder(x, kTwoPi);
        const bool isNegative = r < 0;
        if (isNegative) {
            r = negate(r);
        }
        const bool isInLowerHalf = r >= kPi;
        if (isInLowerHalf) {
            r = subtract(kTwoPi, r);
        }
        if (r >= kHalfPi) {
            r = subtract(kPi, r);
        }
        long long sum = r;
        long long term = negate(divide(multiply(multiply(r, r), r), 6 * kOne));
        int terms = 1;
        for (long long k = 5; term != 0; k += 2) {
            sum = add(sum, term);
            term = negate(divide(multiply(multiply(term, r), r), (k - 1) * k * kOne));
            if (++terms > 16) {
                lines.push_back(267);
            }
        }
        sum = std::min(sum, kOne);
        return isInLowerHalf != isNegative ? negate(sum) : sum;
    }

    long long cos(long long x) { return sin(add(x, kHalfPi)); }

    long long tan(long long x) {
        const long long cosine = cos(x);
        if (cosine == 0) {
            lines.push_back(300);
        }
        return divide(sin(x), cosine);
    }

    long long rad2deg(long long x) {
        long long r = remainder(x, kTwoPi);
        if (r < 0) {
            r = add(r, kTwoPi);
        }
        return divide(multiply(r, 360 * kOne), kTwoPi);
    }

    long long deg2rad(long long x) {
        long long r = remainder(x, 360 * kOne);
        if (r < 0) {
            r = add(r, 360 * kOne);
        }
        return divide(multiply(multiply(r, 2 * kOne), kPi), 360 * kOne);
    }

private:
    static long long wrapped(long long value) {
        const long long modulus = 1LL << 32;
        const long long rest = (value % modulus + modulus) % modulus;
        return rest > kHighest ? rest - modulus : rest;
    }
};

CVQFix16 raw(long long value) {
    return CVQFix16::fromRaw(static_cast<int>(value));
}

struct Binary {
    const char* name;
    CVQFix16 (*ours)(const CVQFix16&, const CVQFix16&);
    long long (Restatement::*stated)(long long, long long);
};

const Binary kBinary[] = {
    {"+", [](const CVQFix16& a, const CVQFix16& b) { return a + b; }, &Restatement::add},
    {"+=", [](const CVQFix16& a, const CVQFix16& b) { return CVQFix16(a) += b; }, &Restatement::add},
    {"-", [](const CVQFix16& a, const CVQFix16& b) { return a - b; }, &Restatement::subtract},
    {"*", [](const CVQFix16& a, const CVQFix16& b) { return a * b; }, &Restatement::multiply},
    {"/", [](const CVQFix16& a, const CVQFix16& b) { return a / b; }, &Restatement::divide},
    {"%", [](const CVQFix16& a, const CVQFix16& b) { return a % b; }, &Restatement::remainder},
    {"mod", &CVQFix16::mod, &Restatement::remainder},
};

struct Unary {
    const char* name;
    CVQFix16 (*ours)(const CVQFix16&);
    long long (Restatement::*stated)(long long);
};

const Unary kUnary[] = {
    {"-", [](const CVQFix16& a) { return -a; }, &Restatement::negate},
    {"abs", &CVQFix16::abs, &Restatement::absolute},
    {"sqrt", &CVQFix16::sqrt, &Restatement::sqrt},
    {"sin", &CVQFix16::sin, &Restatement::sin},
    {"cos", &CVQFix16::cos, &Restatement::cos},
    {"tan", &CVQFix16::tan, &Restatement::tan},
    {"rad2deg", &CVQFix16::rad2deg, &Restatement::rad2deg},
    {"deg2rad", &CVQFix16::deg2rad, &Restatement::deg2rad},
};

/// Around zero, around the limits, around every power of two and the constants, on both sides of zero.
std::vector<long long> boundaries() {
    std::set<long long> values = {0, kLowest, kLowest + 1, kHighest - 1, kHighest};
    std::vector<long long> centres = {kPi, kHalfPi, kTwoPi, 181 * kOne, 181 * 181 * kOne, 360 * kOne, 6 * kOne};
    for (int bit = 0; bit != 31; ++bit) {
        centres.push_back(1LL << bit);
    }
    for (const long long centre : centres) {
        for (const long long value : {centre - 1, centre, centre + 1}) {
            values.insert(value);
            values.insert(-value);
        }
    }
    return {values.begin(), values.end()};
}

}  // namespace

class CVQFix16Test : public ::testing::Test {
protected:
    // Reports are only counted: nothing is logged.
    void SetUp() override {
        CVQAsserter::setExpectedAssertions(UINT_MAX);
        CVQAsserter::setOccuredAssertions(0);
    }
    void TearDown() override { CVQAsserter::setExpectedAssertions(0); }

    static unsigned reports() { return CVQAsserter::getOccuredAssertions(); }

    static bool agrees(const Binary& operation, long long a, long long b) {
        Restatement stated;
        const unsigned before = reports();
        const int result = operation.ours(raw(a), raw(b)).getRaw();
        return result == (stated.*operation.stated)(a, b) && reports() - before == stated.lines.size();
    }

    static bool agrees(const Unary& operation, long long x) {
        Restatement stated;
        const unsigned before = reports();
        const int result = operation.ours(raw(x)).getRaw();
        return result == (stated.*operation.stated)(x) && reports() - before == stated.lines.size();
    }

    static const Unary& unary(const std::string& name) {
        for (const Unary& operation : kUnary) {
            if (operation.name == name) {
                return operation;
            }
        }
        throw std::logic_error(name);
    }
};

TEST_F(CVQFix16Test, ConstantsHaveTheirRawValues) {
    EXPECT_EQ(CVQFix16::PI.getRaw(), 205'887);
    EXPECT_EQ(CVQFix16::MINVALUE.getRaw(), INT_MIN);
    EXPECT_EQ(CVQFix16::MAXVALUE.getRaw(), INT_MAX);
    EXPECT_EQ((CVQFix16::PI * CVQFix16(2)).getRaw(), kTwoPi);
    EXPECT_EQ((CVQFix16::PI / CVQFix16(2)).getRaw(), kHalfPi);
}

TEST_F(CVQFix16Test, StartsAtZero) {
    EXPECT_EQ(CVQFix16().getRaw(), 0);
}

TEST_F(CVQFix16Test, ComesFromWholeNumbers) {
    EXPECT_EQ(CVQFix16(1).getRaw(), 0x10000);
    EXPECT_EQ(CVQFix16(-1).getRaw(), -0x10000);
    EXPECT_EQ(CVQFix16(32'767).getRaw(), 0x7FFF0000);
    EXPECT_EQ(CVQFix16(-32'768).getRaw(), INT_MIN);
    static_assert(CVQFix16(181).getRaw() == 0xB50000);
    EXPECT_EQ(reports(), 0U);
}

TEST_F(CVQFix16Test, ReportsAndWrapsWholeNumbersThatDoNotFit) {
    EXPECT_EQ(CVQFix16(32'768).getRaw(), INT_MIN);
    EXPECT_EQ(CVQFix16(-32'769).getRaw(), 0x7FFF0000);
    EXPECT_EQ(CVQFix16(INT_MAX).getRaw(), -0x10000);
    EXPECT_EQ(CVQFix16(INT_MIN).getRaw(), 0);
    EXPECT_EQ(reports(), 4U);
}

TEST_F(CVQFix16Test, ComesFromDoublesAsTheNearestStep) {
    EXPECT_EQ(CVQFix16(1.5).getRaw(), 0x18000);
    EXPECT_EQ(CVQFix16(-1.5).getRaw(), -0x18000);
    EXPECT_EQ(CVQFix16(0.5 / 65'536).getRaw(), 1);
    EXPECT_EQ(CVQFix16(-0.5 / 65'536).getRaw(), -1);
    EXPECT_EQ(CVQFix16(std::nextafter(0.5, 0) / 65'536).getRaw(), 0);
    EXPECT_EQ(CVQFix16(3.14159265358979).getRaw(), 205'887);
    EXPECT_EQ(CVQFix16(-32'768.0).getRaw(), INT_MIN);
    EXPECT_EQ(CVQFix16(std::nextafter(-32'768 - 0.5 / 65'536, 0)).getRaw(), INT_MIN);
    EXPECT_EQ(CVQFix16(std::nextafter(32'768 - 0.5 / 65'536, 0)).getRaw(), INT_MAX);
    EXPECT_EQ(reports(), 0U);
}

TEST_F(CVQFix16Test, ReportsDoublesThatDoNotFitAndTakesTheNearerLimit) {
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(CVQFix16(32'768 - 0.5 / 65'536).getRaw(), INT_MAX);
    EXPECT_EQ(CVQFix16(-32'768 - 0.5 / 65'536).getRaw(), INT_MIN);
    EXPECT_EQ(CVQFix16(1e300).getRaw(), INT_MAX);
    EXPECT_EQ(CVQFix16(infinity).getRaw(), INT_MAX);
    EXPECT_EQ(CVQFix16(-infinity).getRaw(), INT_MIN);
    EXPECT_EQ(CVQFix16(std::numeric_limits<double>::quiet_NaN()).getRaw(), 0);
    EXPECT_EQ(reports(), 6U);
}

TEST_F(CVQFix16Test, GoesBackToWholeNumbersAndDoubles) {
    EXPECT_EQ(raw(0x18000).toInt(), 1);
    EXPECT_EQ(raw(-0x18000).toInt(), -1);
    EXPECT_EQ(raw(-1).toInt(), 0);
    EXPECT_EQ(CVQFix16::MINVALUE.toInt(), -32'768);
    EXPECT_EQ(CVQFix16::MAXVALUE.toInt(), 32'767);
    EXPECT_EQ(raw(0x18000).toDouble(), 1.5);
    EXPECT_EQ(raw(-1).toDouble(), -1.0 / 65'536);
    std::mt19937 random(1);
    for (int i = 0; i != 10'000; ++i) {
        const CVQFix16 value = raw(static_cast<int>(random()));
        ASSERT_EQ(CVQFix16(value.toDouble()), value);
    }
}

TEST_F(CVQFix16Test, Compares) {
    const CVQFix16 small = CVQFix16::MINVALUE;
    const CVQFix16 large = CVQFix16::MAXVALUE;
    EXPECT_TRUE(small == small && !(small == large));
    EXPECT_TRUE(small != large && !(small != small));
    EXPECT_TRUE(small < large && !(large < small) && !(small < small));
    EXPECT_TRUE(small <= large && small <= small && !(large <= small));
    EXPECT_TRUE(large > small && !(small > large) && !(large > large));
    EXPECT_TRUE(large >= small && large >= large && !(small >= large));
}

TEST_F(CVQFix16Test, RoundsToWholeNumbersInThreeWays) {
    std::vector<long long> values = boundaries();
    for (const double value : {2.5, -2.5, -0.5, 2.0, 0.5, 1.49999, -1.49999}) {
        values.push_back(static_cast<long long>(value * kOne));
    }
    std::mt19937 random(2);
    for (int i = 0; i != 10'000; ++i) {
        values.push_back(static_cast<int>(random()));
    }
    for (const long long value : values) {
        const double exact = static_cast<double>(value) / kOne;
        ASSERT_EQ(CVQFix16::floor(raw(value)), std::floor(exact)) << value;
        ASSERT_EQ(CVQFix16::ceil(raw(value)), std::ceil(exact)) << value;
        ASSERT_EQ(CVQFix16::round(raw(value)), std::round(exact)) << value;
        ASSERT_EQ(CVQFix16::sgn(raw(value)), value < 0 ? -1 : value > 0 ? 1 : 0) << value;
    }
    EXPECT_EQ(CVQFix16::round(CVQFix16(2.5)), 3);
    EXPECT_EQ(CVQFix16::round(CVQFix16(-2.5)), -3);
    EXPECT_EQ(CVQFix16::floor(CVQFix16(-0.5)), -1);
    EXPECT_EQ(CVQFix16::ceil(CVQFix16(-0.5)), 0);
    EXPECT_EQ(CVQFix16::ceil(CVQFix16(2)), 2);
    EXPECT_EQ(CVQFix16::round(CVQFix16::MAXVALUE), 32'768);
    EXPECT_EQ(CVQFix16::ceil(CVQFix16::MAXVALUE), 32'768);
    EXPECT_EQ(reports(), 0U);
}

TEST_F(CVQFix16Test, MultipliesAndDividesCuttingTowardsZero) {
    EXPECT_EQ(CVQFix16(1.5) * CVQFix16(2), CVQFix16(3));
    EXPECT_EQ((CVQFix16(1) / CVQFix16(3)).getRaw(), 21'845);
    EXPECT_EQ((CVQFix16(-1) / CVQFix16(3)).getRaw(), -21'845);
    EXPECT_EQ((raw(-1) * raw(1)).getRaw(), 0);
    EXPECT_EQ(CVQFix16::MulDiv(raw(7), raw(5), raw(-2)).getRaw(), -17);
    EXPECT_EQ(reports(), 0U);
}

TEST_F(CVQFix16Test, AProductThatDoesNotFitIsReportedAndWraps) {
    EXPECT_EQ((CVQFix16(200) * CVQFix16(200)).getRaw(), -1'673'527'296);
    EXPECT_EQ(reports(), 1U);
}

TEST_F(CVQFix16Test, DividingByZeroIsReportedOnceAndGivesTheLargestValue) {
    EXPECT_EQ(CVQFix16(-5) / CVQFix16(0), CVQFix16::MAXVALUE);
    EXPECT_EQ(reports(), 1U);
    EXPECT_EQ(CVQFix16(0) / CVQFix16(0), CVQFix16::MAXVALUE);
    EXPECT_EQ(reports(), 2U);
}

TEST_F(CVQFix16Test, ARemainderHasTheSignOfTheDividend) {
    EXPECT_EQ(CVQFix16(7) % CVQFix16(2), CVQFix16(1));
    EXPECT_EQ(CVQFix16(-7) % CVQFix16(2), CVQFix16(-1));
    EXPECT_EQ(CVQFix16(7) % CVQFix16(-2), CVQFix16(1));
    EXPECT_EQ(CVQFix16(-7) % CVQFix16(-2), CVQFix16(-1));
    EXPECT_EQ(CVQFix16::mod(CVQFix16(7.25), CVQFix16(0.5)), CVQFix16(0.25));
    EXPECT_EQ(reports(), 0U);
}

TEST_F(CVQFix16Test, EveryPairOfBoundaryValuesComesOutAsStated) {
    const std::vector<long long> values = boundaries();
    for (const Binary& operation : kBinary) {
        for (const long long a : values) {
            for (const long long b : values) {
                ASSERT_TRUE(agrees(operation, a, b)) << a << ' ' << operation.name << ' ' << b;
            }
        }
    }
}

TEST_F(CVQFix16Test, RandomPairsComeOutAsStated) {
    std::mt19937 random(3);
    for (int i = 0; i != 100'000; ++i) {
        // Shifted by a random amount, so that small numbers are as frequent as large ones.
        const int a = static_cast<int>(random()) >> (random() % 32);
        const int b = static_cast<int>(random()) >> (random() % 32);
        for (const Binary& operation : kBinary) {
            ASSERT_TRUE(agrees(operation, a, b)) << a << ' ' << operation.name << ' ' << b;
        }
    }
}

TEST_F(CVQFix16Test, EveryBoundaryValueComesOutAsStated) {
    for (const Unary& operation : kUnary) {
        for (const long long x : boundaries()) {
            ASSERT_TRUE(agrees(operation, x)) << operation.name << ' ' << x;
        }
    }
}

TEST_F(CVQFix16Test, RandomValuesComeOutAsStated) {
    std::mt19937 random(4);
    for (int i = 0; i != 50'000; ++i) {
        const int x = static_cast<int>(random()) >> (random() % 32);
        for (const Unary& operation : kUnary) {
            ASSERT_TRUE(agrees(operation, x)) << operation.name << ' ' << x;
        }
    }
}

TEST_F(CVQFix16Test, MulDivComesOutAsStatedForBoundaryAndRandomTriples) {
    const auto check = [](long long a, long long b, long long c) {
        Restatement stated;
        const unsigned before = reports();
        const int result = CVQFix16::MulDiv(raw(a), raw(b), raw(c)).getRaw();
        return result == stated.mulDiv(a, b, c) && reports() - before == stated.lines.size();
    };
    const long long few[] = {kLowest, kLowest + 1, -kOne - 1, -kOne, -kOne + 1, -3,           -2,
                             -1,      0,           1,         2,     kOne,      kHighest - 1, kHighest};
    for (const long long a : few) {
        for (const long long b : few) {
            for (const long long c : few) {
                ASSERT_TRUE(check(a, b, c)) << a << ' ' << b << ' ' << c;
            }
        }
    }
    std::mt19937 random(5);
    for (int i = 0; i != 100'000; ++i) {
        const int a = static_cast<int>(random()) >> (random() % 32);
        const int b = static_cast<int>(random()) >> (random() % 32);
        const int c = static_cast<int>(random()) >> (random() % 32);
        ASSERT_TRUE(check(a, b, c)) << a << ' ' << b << ' ' << c;
    }
}

TEST_F(CVQFix16Test, EveryAngleOfTwoFullTurnsHasTheStatedSine) {
    // All remainders of the full turn, of both signs: a sine depends on nothing else.
    const Unary& sine = unary("sin");
    for (long long x = -kTwoPi; x <= kTwoPi; ++x) {
        ASSERT_TRUE(agrees(sine, x)) << x;
    }
    EXPECT_EQ(reports(), 0U);
}

TEST_F(CVQFix16Test, ASineDependsOnTheRemainderOfTheFullTurnAlone) {
    for (long long turn = -5'000; turn <= 5'000; turn += 7) {
        const long long angle = turn * 37 % kTwoPi;
        ASSERT_EQ(CVQFix16::sin(raw(turn * kTwoPi + angle)), CVQFix16::sin(raw(angle))) << turn;
    }
}

TEST_F(CVQFix16Test, EverySquareRootUpToOneAndAroundEveryBlockComesOutAsStated) {
    const Unary& root = unary("sqrt");
    for (long long x = 0; x <= kOne; ++x) {
        ASSERT_TRUE(agrees(root, x)) << x;
    }
    // The bisection treads on the multiples of 181 first: all values whose root is next to one of them.
    for (long long block = 1; block <= kOne; ++block) {
        const long long square = 181 * block * (181 * block) / kOne;
        for (long long x = std::max(square - 1, 0LL); x <= square + 1; ++x) {
            ASSERT_TRUE(agrees(root, x)) << x;
        }
    }
    EXPECT_EQ(reports(), 0U);
}

TEST_F(CVQFix16Test, SquareRootsAreWithinAStepFromAQuarterOn) {
    for (long long x = kOne / 4; x <= 181 * 181 * kOne; x += 9'973) {
        const double exact = std::sqrt(static_cast<double>(x) * kOne);
        ASSERT_NEAR(CVQFix16::sqrt(raw(x)).getRaw(), exact, 1.0) << x;
    }
    EXPECT_NEAR(CVQFix16::sqrt(CVQFix16(4)).getRaw(), 2 * kOne, 2);
}

TEST_F(CVQFix16Test, SquareRootsAreWithin181StepsBelowAQuarterAndWithin1268AboveTheLargestSquare) {
    for (long long x = 0; x < kOne / 4; ++x) {
        ASSERT_NEAR(CVQFix16::sqrt(raw(x)).getRaw(), std::sqrt(static_cast<double>(x) * kOne), 181.0) << x;
    }
    for (const long long x : {181 * 181 * kOne + 1, 32'765 * kOne, kHighest}) {
        ASSERT_NEAR(CVQFix16::sqrt(raw(x)).getRaw(), std::sqrt(static_cast<double>(x) * kOne), 1'268.0) << x;
    }
}

TEST_F(CVQFix16Test, SinesAreWithinTwoStepsUpToPi) {
    for (long long x = -kPi; x <= kPi; ++x) {
        ASSERT_NEAR(CVQFix16::sin(raw(x)).getRaw(), std::sin(static_cast<double>(x) / kOne) * kOne, 2.0) << x;
    }
}

TEST_F(CVQFix16Test, SinesAndCosinesOfQuarterTurns) {
    const CVQFix16 halfPi = CVQFix16::PI / CVQFix16(2);
    EXPECT_EQ(CVQFix16::sin(CVQFix16(0)), CVQFix16(0));
    EXPECT_LE(CVQFix16::sin(halfPi), CVQFix16(1));
    EXPECT_GT(CVQFix16::sin(halfPi), CVQFix16(0.9999));
    EXPECT_EQ(CVQFix16::sin(-halfPi), -CVQFix16::sin(halfPi));
    EXPECT_EQ(CVQFix16::cos(CVQFix16(0)), CVQFix16::sin(halfPi));
    EXPECT_EQ(reports(), 0U);
}

TEST_F(CVQFix16Test, NoSineIsLargerThanOne) {
    for (long long x = -kTwoPi; x <= kTwoPi; ++x) {
        ASSERT_LE(CVQFix16::abs(CVQFix16::sin(raw(x))), CVQFix16(1)) << x;
    }
}

TEST_F(CVQFix16Test, CosineReportsTheSumThatDoesNotFit) {
    CVQFix16::cos(CVQFix16::MAXVALUE);
    EXPECT_EQ(reports(), 1U);
    CVQFix16::cos(raw(kHighest - kHalfPi));
    EXPECT_EQ(reports(), 1U);
}

TEST_F(CVQFix16Test, TheTangentOfAQuarterTurnIsReportedTwiceAndIsTheLargestValue) {
    EXPECT_EQ(CVQFix16::cos(raw(kHalfPi + 1)), CVQFix16(0));
    EXPECT_EQ(CVQFix16::tan(raw(kHalfPi + 1)), CVQFix16::MAXVALUE);
    EXPECT_EQ(reports(), 2U);
}

TEST_F(CVQFix16Test, ConvertsAnglesIntoOneTurn) {
    EXPECT_NEAR(CVQFix16::rad2deg(-(CVQFix16::PI / CVQFix16(2))).toDouble(), 270, 0.001);
    EXPECT_NEAR(CVQFix16::deg2rad(CVQFix16(-90)).toDouble(), 1.5 * 3.14159265, 0.001);
    EXPECT_EQ(CVQFix16::rad2deg(CVQFix16(0)), CVQFix16(0));
    EXPECT_EQ(CVQFix16::rad2deg(raw(kTwoPi)), CVQFix16(0));
    EXPECT_EQ(CVQFix16::deg2rad(CVQFix16(360)), CVQFix16(0));
    EXPECT_EQ(CVQFix16::deg2rad(CVQFix16(-180)).getRaw(), kPi);
    std::mt19937 random(6);
    for (int i = 0; i != 10'000; ++i) {
        const CVQFix16 x = raw(static_cast<int>(random()));
        ASSERT_GE(CVQFix16::rad2deg(x), CVQFix16(0));
        ASSERT_LT(CVQFix16::rad2deg(x), CVQFix16(360));
        ASSERT_GE(CVQFix16::deg2rad(x), CVQFix16(0));
        ASSERT_LT(CVQFix16::deg2rad(x).getRaw(), kTwoPi);
    }
    EXPECT_EQ(reports(), 0U);
}

TEST_F(CVQFix16Test, TheSmallestValueHasNoNegation) {
    EXPECT_EQ(-CVQFix16::MINVALUE, CVQFix16::MINVALUE);
    EXPECT_EQ(reports(), 1U);
    EXPECT_EQ(CVQFix16::abs(CVQFix16::MINVALUE), CVQFix16::MINVALUE);
    EXPECT_EQ(reports(), 2U);
}

TEST_F(CVQFix16Test, AssignsASumOfANumberWithItself) {
    CVQFix16 value(3);
    value += value;
    EXPECT_EQ(value, CVQFix16(6));
}

TEST_F(CVQFix16Test, Kept_BisectionStopsAtTheFirstSquareThatIsCutToItsArgument) {  // id: fix16-sqrt-start
    EXPECT_EQ(CVQFix16::sqrt(CVQFix16(0)).getRaw(), 181);
    EXPECT_EQ(CVQFix16::sqrt(raw(1)).getRaw(), 362);
    EXPECT_EQ(CVQFix16::sqrt(raw(-1)).getRaw(), 1);
    EXPECT_EQ(CVQFix16::sqrt(CVQFix16::MINVALUE).getRaw(), 1);
    EXPECT_EQ(reports(), 2U);
}

TEST_F(CVQFix16Test, Kept_TheLargestRootIs181) {  // id: fix16-sqrt-top
    const long long square = 181 * 181 * kOne;
    EXPECT_EQ(CVQFix16::sqrt(CVQFix16::MAXVALUE), CVQFix16(181));
    EXPECT_EQ(CVQFix16::sqrt(raw(square + 1)), CVQFix16(181));
    EXPECT_EQ(CVQFix16::sqrt(raw(square)).getRaw(), 181 * kOne - 1);
    EXPECT_EQ(CVQFix16::sqrt(raw(square - 1)).getRaw(), 181 * kOne - 1);
}

TEST_F(CVQFix16Test, Kept_PiIsCutAndItsHalfAgain) {  // id: fix16-pi
    // 3.14158630 and 1.57078552: at half of PI the angle is mirrored to one step more.
    EXPECT_EQ(CVQFix16::sin(raw(kHalfPi)), CVQFix16::sin(raw(kHalfPi + 1)));
    EXPECT_EQ(CVQFix16::sin(CVQFix16::PI), CVQFix16(0));
    EXPECT_EQ(CVQFix16::rad2deg(CVQFix16::PI), CVQFix16(180));
}

// The log in the order in which the operations reported, from a process in which nothing is expected.
TEST(CVQFix16, Kept_EachReportNamesTheUnitAndItsLine) {  // id: fix16-report-lines
    support::SlogCapture log;
    const auto operate = [] {
        const CVQFix16 low = CVQFix16::MINVALUE;
        const CVQFix16 high = CVQFix16::MAXVALUE;
        CVQFix16::MulDiv(high, high, raw(0));  // 45
        CVQFix16(200) * CVQFix16(200);         // 54
        low + raw(-1);                         // 73
        high + raw(1);                         // 79
        -low;                                  // 136
        CVQFix16::abs(low);                    // 187
        CVQFix16::tan(raw(kHalfPi + 1));       // 300, 45
        CVQFix16::sqrt(raw(-1));               // 327
        low - low;                             // 136, 73
        low % CVQFix16(-1);                    // 54, 54, 136, 73
        low % low;                             // 136, 73
        CVQFix16(7) % CVQFix16(0);             // 45
        CVQFix16::cos(high);                   // 79
        CVQFix16(40'000);                      // 401
        CVQFix16(40'000.0);                    // 402
    };
    const unsigned lines[] = {45, 54, 73,  79, 136, 187, 300, 45, 327, 136, 73,
                              54, 54, 136, 73, 136, 73,  45,  79, 401, 402};

    support::ChildOptions options;
    options.environment = {{"VQ_ASSERTION_BACKTRACE_MAX", "-1"}, {"VQ_ENABLE_ABORT_ON_ASSERTION", std::nullopt}};
    const support::ChildResult child = support::runInChild(operate, options);
    ASSERT_TRUE(child.exitedWith(0)) << child;

    std::vector<std::string> expected;
    for (const unsigned line : lines) {
        expected.push_back("pid " + std::to_string(child.pid) + ": CVQFix16:" + std::to_string(line) +
                           ": ASSERTION failed");
    }
    std::vector<std::string> logged;
    for (const support::LoggedRecord& record : log.records()) {
        if (record.severity == VQSyslog::ERROR) {
            logged.push_back(record.text);
        }
    }
    EXPECT_THAT(logged, ElementsAreArray(expected));
}

TEST(CVQFix16, TheOrderOfReportsIsTheStatedOneForEveryPairOfExtremes) {
    support::SlogCapture log;
    const long long extremes[] = {kLowest, -181 * kOne, -kOne, -1, 0, 1, kHighest};
    const auto operate = [&] {
        for (const Binary& operation : kBinary) {
            for (const long long a : extremes) {
                for (const long long b : extremes) {
                    operation.ours(raw(a), raw(b));
                }
            }
        }
    };
    Restatement stated;
    for (const Binary& operation : kBinary) {
        for (const long long a : extremes) {
            for (const long long b : extremes) {
                (stated.*operation.stated)(a, b);
            }
        }
    }

    support::ChildOptions options;
    options.environment = {{"VQ_ASSERTION_BACKTRACE_MAX", "-1"}, {"VQ_ENABLE_ABORT_ON_ASSERTION", std::nullopt}};
    const support::ChildResult child = support::runInChild(operate, options);
    ASSERT_TRUE(child.exitedWith(0)) << child;

    std::vector<unsigned> logged;
    for (const support::LoggedRecord& record : log.records()) {
        unsigned line = 0;
        if (record.severity == VQSyslog::ERROR &&
            std::sscanf(record.text.c_str(), "pid %*d: CVQFix16:%u: ASSERTION failed", &line) == 1) {
            logged.push_back(line);
        }
    }
    EXPECT_GT(stated.lines.size(), 100U);
    EXPECT_EQ(logged, stated.lines);
}
