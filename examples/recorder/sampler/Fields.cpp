#include "sampler/Fields.h"

#include <cstring>

namespace {

constexpr char kSeparators[] = " \t:";

struct SWord {
    const char* begin;
    const char* end;

    bool operator==(const CVQString& text) const {
        const auto length = static_cast<std::size_t>(end - begin);
        return length == text.getByteLength() && std::memcmp(begin, text.c_str(), length) == 0;
    }
};

/// The words of one line, one after the other.
class CLine {
public:
    explicit CLine(const char* begin) : mNext(begin) {}

    bool next(SWord& word) {
        mNext += std::strspn(mNext, kSeparators);
        word.begin = mNext;
        mNext += std::strcspn(mNext, " \t:\n");
        word.end = mNext;
        return word.begin != word.end;
    }
    bool skip(unsigned count) {
        SWord word{};
        for (; count > 0 && next(word); --count) {
        }
        return count == 0;
    }

private:
    const char* mNext;
};

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

/// A decimal number; digits behind the third after the point are dropped.
bool readThousandths(const SWord& word, long long& value) {
    const bool isNegative = *word.begin == '-';
    const char* at = word.begin + (isNegative ? 1 : 0);
    if (at == word.end || !isDigit(*at)) {
        return false;
    }
    value = 0;
    int decimals = -1;  // behind the point; none yet
    for (; at != word.end && (isDigit(*at) || (*at == '.' && decimals < 0)); ++at) {
        if (*at == '.') {
            decimals = 0;
        } else if (decimals < 3) {
            if (__builtin_mul_overflow(value, 10, &value) || __builtin_add_overflow(value, *at - '0', &value)) {
                return false;
            }
            decimals += decimals >= 0 ? 1 : 0;
        }
    }
    for (decimals = decimals < 0 ? 0 : decimals; decimals < 3; ++decimals) {
        if (__builtin_mul_overflow(value, 10, &value)) {
            return false;
        }
    }
    value = isNegative ? -value : value;
    return at == word.end;
}

}  // namespace

bool sumField(const char* text, const CVQString& row, unsigned field, long long& thousandths) {
    const bool takesAll = row == CVQString("*");
    bool isFound = false;
    thousandths = 0;
    for (const char* line = text; line != nullptr && *line != '\0'; line = std::strchr(line, '\n')) {
        line += *line == '\n' ? 1 : 0;
        SWord word{};
        if (!CLine(line).next(word) || !(takesAll || word == row)) {
            continue;
        }
        CLine words(line);
        long long value = 0;
        if (words.skip(field) && words.next(word) && readThousandths(word, value)) {
            isFound = true;
            if (__builtin_add_overflow(thousandths, value, &thousandths)) {
                return false;
            }
        }
    }
    return isFound;
}
