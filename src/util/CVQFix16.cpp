#include <CVQFix16.h>

#include <CVQAsserter.h>

#include <cmath>

namespace {

constexpr char kUnit[] = "CVQFix16";

constexpr int kRawPi = 205'887;
constexpr int kRawHalfPi = kRawPi / 2;
constexpr int kRawTwoPi = kRawPi * 2;
constexpr int kRawFullTurn = 360 << 16;

// 0 to 181.0 halved 16 times falls into blocks of 181 steps, which are then halved like one another.
constexpr unsigned kBlock = 181;
constexpr int kRawRootLimit = kBlock << 16;
constexpr int kRawRootLimitSquare = (kBlock * kBlock) << 16;

// From 0.25 on no two neighbours have the same square.
constexpr int kRawQuarter = 1 << 14;

constexpr int squareOf(unsigned raw) {
    return static_cast<int>(static_cast<unsigned long long>(raw) * raw >> 16);
}

// For numbers of 32 bits whose first byte is 64 to 255: the first byte of the root of the middle one.
struct SRootTable {
    constexpr SRootTable() : roots() {
        unsigned root = 128;
        for (unsigned lead = 64; lead != 256; ++lead) {
            const unsigned middle = (lead << 8) + 128;
            while (root != 255 && (2 * root + 1) * (2 * root + 1) <= 4 * middle) {
                ++root;
            }
            roots[lead - 64] = static_cast<unsigned char>(root);
        }
    }
    unsigned char roots[192];
};
constexpr SRootTable kRootTable;

// The whole part of the root of value * 2^16; `value` is not 0. Each of the two steps of Newton's method doubles
// the correct bits; what it gives is never too small and here at most one too large.
unsigned wholeRoot(unsigned value) {
    const int shift = __builtin_clz(value) & ~1;
    const unsigned scaled = value << shift;
    const unsigned root8 = kRootTable.roots[(scaled >> 24) - 64];
    unsigned root16 = (root8 << 7) + (scaled >> 9) / root8;
    root16 -= static_cast<unsigned long long>(root16) * root16 > scaled ? 1 : 0;
    const unsigned root24 = (root16 << 8) + ((scaled - root16 * root16) << 7) / root16;
    const unsigned root = root24 >> (shift / 2);
    return root -
           (static_cast<unsigned long long>(root) * root > static_cast<unsigned long long>(value) << 16 ? 1 : 0);
}

// A root that is no number of steps lies between two: which of them does the bisection try last? 0 for the lower
// one, 1 for the upper one, by the lower one's place in its block.
struct SLastTried {
    constexpr SLastTried() : upper() {
        for (unsigned place = 0; place != kBlock; ++place) {
            unsigned low = 0;
            unsigned high = kBlock;
            unsigned tried = 0;
            while (high - low >= 2) {
                tried = (low + high) / 2;
                (tried <= place ? low : high) = tried;
            }
            upper[place] = tried > place ? 1 : 0;
        }
    }
    unsigned char upper[kBlock];
};
constexpr SLastTried kLastTried;

// Below 0.25 a range of numbers may have the same square: the bisection ends at the first of them that it tries.
// The block comes first. Of its two ends, which can have been tried before, the lower one is never right.
unsigned bisectBlock(unsigned low, int square) {
    unsigned high = low + kBlock;
    if (squareOf(high) == square) {
        return high;
    }
    unsigned tried = low;
    while (high - low >= 2) {
        tried = (low + high) / 2;
        const int squareOfTried = squareOf(tried);
        if (squareOfTried == square) {
            break;
        }
        (squareOfTried < square ? low : high) = tried;
    }
    return tried;
}

}  // namespace

VQ_CONSTINIT const CVQFix16 CVQFix16::PI = CVQFix16::fromRaw(kRawPi);
VQ_CONSTINIT const CVQFix16 CVQFix16::MINVALUE = CVQFix16::fromRaw(kMinRaw);
VQ_CONSTINIT const CVQFix16 CVQFix16::MAXVALUE = CVQFix16::fromRaw(kMaxRaw);

void CVQFix16::report(unsigned line) {
    doCheapAssert(line, kUnit);
}

CVQFix16::CVQFix16(double value) {
    const double steps = std::round(value * kOne);
    // What does not fit is compared before it is cast, which would be undefined. NaN fails both comparisons.
    if (VQ_LIKELY(steps >= kMinRaw && steps <= kMaxRaw)) {
        mRaw = static_cast<int>(steps);
        return;
    }
    report(kLineFromDouble);
    mRaw = value < 0 ? kMinRaw : value > 0 ? kMaxRaw : 0;
}

CVQFix16 CVQFix16::remainderBySteps(const CVQFix16& divisor) const {
    const CVQFix16 quotient = *this / divisor;
    return *this - CVQFix16(quotient.toInt()) * divisor;
}

CVQFix16 CVQFix16::sqrt(const CVQFix16& x) {
    if (VQ_UNLIKELY(x.mRaw < 0)) {
        report(kLineNegativeRoot);
        return fromRaw(1);  // where the bisection ends when every square is too large
    }
    // Kept: fix16-sqrt-top.
    if (VQ_UNLIKELY(x.mRaw >= kRawRootLimitSquare)) {
        return fromRaw(x.mRaw > kRawRootLimitSquare ? kRawRootLimit : kRawRootLimit - 1);
    }
    // Kept: fix16-sqrt-start. The first number on the way down whose square is less than a step.
    if (VQ_UNLIKELY(x.mRaw == 0)) {
        return fromRaw(kBlock);
    }

    const unsigned root = wholeRoot(static_cast<unsigned>(x.mRaw));
    const unsigned place = root % kBlock;
    if (VQ_UNLIKELY(x.mRaw < kRawQuarter)) {
        return fromRaw(static_cast<int>(bisectBlock(root - place, x.mRaw)));
    }
    unsigned upper = kLastTried.upper[place];
    upper = squareOf(root) == x.mRaw ? 0 : upper;
    upper = squareOf(root + 1) == x.mRaw ? 1 : upper;
    return fromRaw(static_cast<int>(root + upper));
}

CVQFix16 CVQFix16::sin(const CVQFix16& x) {
    int angle = x.mRaw % kRawTwoPi;
    bool isNegative = angle < 0;
    if (isNegative) {
        angle = -angle;
    }
    if (angle >= kRawPi) {
        isNegative = !isNegative;
        angle = kRawTwoPi - angle;
    }
    // Kept: fix16-pi. At exactly half of PI this gives one step more than half of PI.
    if (angle >= kRawHalfPi) {
        angle = kRawPi - angle;
    }

    // Every product and quotient is cut towards zero, so that the terms can be followed without their signs. The
    // fifth term after the angle is less than a step for every angle that is left: the series always ends there,
    // and the report of one with more than sixteen terms (line 267) has nothing to report.
    const auto times = [](unsigned a, unsigned b) {
        return static_cast<unsigned>(static_cast<unsigned long long>(a) * b >> kFractionBits);
    };
    const auto r = static_cast<unsigned>(angle);
    const unsigned third = times(times(r, r), r) / 6;
    const unsigned fifth = times(times(third, r), r) / 20;
    const unsigned seventh = times(times(fifth, r), r) / 42;
    const unsigned ninth = times(times(seventh, r), r) / 72;
    const auto sum = static_cast<int>(r - third + fifth - seventh + ninth);
    const int sine = sum < kOne ? sum : kOne;
    return fromRaw(isNegative ? -sine : sine);
}

CVQFix16 CVQFix16::cos(const CVQFix16& x) {
    return sin(x + fromRaw(kRawHalfPi));
}

CVQFix16 CVQFix16::tan(const CVQFix16& x) {
    const CVQFix16 cosine = cos(x);
    if (VQ_UNLIKELY(cosine.mRaw == 0)) {
        report(kLineTangent);
    }
    return sin(x) / cosine;
}

CVQFix16 CVQFix16::rad2deg(const CVQFix16& x) {
    const int angle = x.mRaw % kRawTwoPi;
    return MulDiv(fromRaw((angle < 0 ? angle + kRawTwoPi : angle) * 360), fromRaw(kOne), fromRaw(kRawTwoPi));
}

CVQFix16 CVQFix16::deg2rad(const CVQFix16& x) {
    const int angle = x.mRaw % kRawFullTurn;
    const CVQFix16 twice = fromRaw((angle < 0 ? angle + kRawFullTurn : angle) * 2);
    return MulDiv(twice * fromRaw(kRawPi), fromRaw(kOne), fromRaw(kRawFullTurn));
}
