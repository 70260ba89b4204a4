// CVQFix16: a signed fixed-point number with 16 integer and 16 fraction bits.
//
//   Units    value = raw / 65,536; from -32,768.0 to 32,767.99998 in steps of 0.000015. Angles in radians.
//   Shape    one signed 32-bit word. Every operation but the conversions from and to `double` uses integers only.
//   Errors   overflow and arguments outside a function's domain are assertions of the unit "CVQFix16"; the
//            operation then goes on with the wrapped or substitute result that is stated. Nothing else is reported.
//   Threads  plain value: one thread at a time. There is no shared state.
//   Accuracy products and quotients are cut towards zero. `sin` is within 2 steps for angles up to PI; each full
//            turn in the angle adds up to one more. `sqrt` is within one step from 0.25 to 181 squared, within 181
//            below and within 1,268 above.
//   Source   `sin`: Taylor's series, stopped where a term is less than a step; `sqrt`: the result of bisecting
//            0 to 181.0, the whole root of the largest value.
//   Kept     fix16-report-lines: the line numbers in reports are those that log readers know.
//            fix16-sqrt-start: bisection stops at the first number whose square, cut to a step, is the argument, so
//            that sqrt(0) is 181 steps. Of a negative number it is 1 step.
//            fix16-sqrt-top: above 181 squared the root is 181.0, at 181 squared one step less.
//            fix16-pi: PI is cut, not rounded, and half of it is cut again; the angle functions inherit both
//            (docs/kept.md).
#pragma once

#include <VQExport.h>

class VQ_EXPORT CVQFix16 {
public:
    static const CVQFix16 PI;
    static const CVQFix16 MINVALUE;  ///< -32,768.0
    static const CVQFix16 MAXVALUE;  ///< one step below 32,768.0

    constexpr CVQFix16() = default;
    /// From -32,768 to 32,767; the low 16 bits of any other number, which is reported.
    explicit constexpr CVQFix16(int value) : mRaw(static_cast<int>(static_cast<unsigned>(value) << kFractionBits)) {
        if (VQ_UNLIKELY(value < -0x8000 || value > 0x7FFF)) {
            report(kLineFromInt);
        }
    }
    /// The nearest step, halves away from zero. What is out of range becomes the nearer limit, what is no number
    /// becomes 0; both are reported.
    explicit CVQFix16(double value);

    static constexpr CVQFix16 fromRaw(int raw) {
        CVQFix16 result;
        result.mRaw = raw;
        return result;
    }

    constexpr int getRaw() const { return mRaw; }
    /// Towards zero.
    constexpr int toInt() const { return mRaw / kOne; }
    constexpr double toDouble() const { return mRaw * (1.0 / kOne); }

    constexpr bool operator==(const CVQFix16& other) const { return mRaw == other.mRaw; }
    constexpr bool operator!=(const CVQFix16& other) const { return mRaw != other.mRaw; }
    constexpr bool operator<(const CVQFix16& other) const { return mRaw < other.mRaw; }
    constexpr bool operator<=(const CVQFix16& other) const { return mRaw <= other.mRaw; }
    constexpr bool operator>(const CVQFix16& other) const { return mRaw > other.mRaw; }
    constexpr bool operator>=(const CVQFix16& other) const { return mRaw >= other.mRaw; }

    /// A sum that does not fit is reported and wraps.
    CVQFix16 operator+(const CVQFix16& other) const {
        int sum = 0;
        if (VQ_UNLIKELY(__builtin_add_overflow(mRaw, other.mRaw, &sum))) {
            report(mRaw < 0 ? kLineSumTooSmall : kLineSumTooLarge);
        }
        return fromRaw(sum);
    }
    CVQFix16& operator+=(const CVQFix16& other) { return *this = *this + other; }

    /// MINVALUE is reported and stays.
    CVQFix16 operator-() const { return fromRaw(negate(mRaw, kLineNegation)); }
    /// The sum with the negation, and so with the reports of both.
    CVQFix16 operator-(const CVQFix16& other) const { return *this + -other; }

    CVQFix16 operator*(const CVQFix16& other) const { return MulDiv(*this, other, fromRaw(kOne)); }
    CVQFix16 operator/(const CVQFix16& other) const { return MulDiv(*this, fromRaw(kOne), other); }

    /// The remainder of the division that truncates: it has this number's sign. Reports what its division, its
    /// product and its difference report.
    CVQFix16 operator%(const CVQFix16& other) const {
        // A divisor above 1.0 lets nothing overflow, and then the steps come to the remainder of the raws. MINVALUE
        // is left to them: its difference with a product that equals it is reported.
        if (VQ_LIKELY((other.mRaw > kOne || other.mRaw < -kOne) && mRaw != kMinRaw)) {
            return fromRaw(mRaw % other.mRaw);
        }
        return remainderBySteps(other);
    }

    /// a * b / c with a 64-bit product, cut towards zero. A `c` of 0 is reported and gives MAXVALUE; a quotient
    /// that does not fit is reported and wraps.
    static CVQFix16 MulDiv(const CVQFix16& a, const CVQFix16& b, const CVQFix16& c) {
        if (VQ_UNLIKELY(c.mRaw == 0)) {
            report(kLineDivisionByZero);
            return fromRaw(kMaxRaw);
        }
        const long long quotient = static_cast<long long>(a.mRaw) * b.mRaw / c.mRaw;
        const int result = static_cast<int>(quotient);
        if (VQ_UNLIKELY(result != quotient)) {
            report(kLineQuotientOverflow);
        }
        return fromRaw(result);
    }

    /// MINVALUE is reported and stays.
    static CVQFix16 abs(const CVQFix16& x) { return fromRaw(x.mRaw < 0 ? negate(x.mRaw, kLineAbsolute) : x.mRaw); }
    /// -1, 0 or 1.
    static constexpr int sgn(const CVQFix16& x) { return (x.mRaw > 0 ? 1 : 0) - (x.mRaw < 0 ? 1 : 0); }
    /// Towards minus infinity.
    static constexpr int floor(const CVQFix16& x) { return x.mRaw >> kFractionBits; }
    /// Towards plus infinity.
    static constexpr int ceil(const CVQFix16& x) {
        return (x.mRaw >> kFractionBits) + ((x.mRaw & (kOne - 1)) != 0 ? 1 : 0);
    }
    /// To the nearest whole number, halves away from zero; 32,767.5 and more give 32,768.
    static constexpr int round(const CVQFix16& x) {
        const int half = x.mRaw < 0 ? kOne / 2 - 1 : kOne / 2;
        return (x.mRaw >> kFractionBits) + (((x.mRaw & (kOne - 1)) + half) >> kFractionBits);
    }

    static CVQFix16 mod(const CVQFix16& a, const CVQFix16& b) { return a % b; }

    /// A negative number is reported. Kept: fix16-sqrt-start, fix16-sqrt-top.
    static CVQFix16 sqrt(const CVQFix16& x);
    static CVQFix16 sin(const CVQFix16& x);
    /// sin(x + PI / 2), with the report of that sum.
    static CVQFix16 cos(const CVQFix16& x);
    /// A cosine of 0 is reported twice, here and by the division, and gives MAXVALUE.
    static CVQFix16 tan(const CVQFix16& x);

    /// An angle in degrees, from 0.0 to below 360.0.
    static CVQFix16 rad2deg(const CVQFix16& x);
    /// An angle in radians, from 0.0 to below 2 PI.
    static CVQFix16 deg2rad(const CVQFix16& x);

private:
    static constexpr int kFractionBits = 16;
    static constexpr int kOne = 1 << kFractionBits;
    static constexpr int kMinRaw = -0x7FFFFFFF - 1;
    static constexpr int kMaxRaw = 0x7FFFFFFF;

    // Kept: fix16-report-lines. A report is known by its number, wherever its check stands.
    static constexpr unsigned kLineDivisionByZero = 45;
    static constexpr unsigned kLineQuotientOverflow = 54;
    static constexpr unsigned kLineSumTooSmall = 73;
    static constexpr unsigned kLineSumTooLarge = 79;
    static constexpr unsigned kLineNegation = 136;
    static constexpr unsigned kLineAbsolute = 187;
    static constexpr unsigned kLineTangent = 300;
    static constexpr unsigned kLineNegativeRoot = 327;
    static constexpr unsigned kLineFromInt = 401;
    static constexpr unsigned kLineFromDouble = 402;

    VQ_COLD static void report(unsigned line);

    static int negate(int raw, unsigned line) {
        if (VQ_UNLIKELY(raw == kMinRaw)) {
            report(line);
        }
        return static_cast<int>(0U - static_cast<unsigned>(raw));
    }

    CVQFix16 remainderBySteps(const CVQFix16& divisor) const;

    int mRaw = 0;
};
