// Concerns: long random sequences of changes on several strings that share buffers, each held against the plain
// version after every step: bytes, counts, owners and invariants.
#include "PlainText.h"
#include "StringInternals.h"

#include <gtest/gtest.h>
#include <random>

namespace {

using namespace strings;
using plain::Text;

struct Pair {
    CVQString real;
    Text plain;
};

class CVQStringModel : public testing::Test {
protected:
    std::mt19937 random{424242};

    std::size_t below(std::size_t bound) { return random() % bound; }

    std::string someBytes(bool regular) {
        static const char* const kRegular[] = {
            "a", "b", " ", "%1", "%0", "\t", "ab", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80", "%"};
        static const char* const kIrregular[] = {"\xC3\xC3", "\xE2\xC3\xA4", "\xF8\x80\x80\x80\x80", "\xFF", "\x80",
                                                 "\xC3",     "\xE2\x82",     "\xC3\xA4\xF0"};
        std::string bytes;
        for (std::size_t left = below(12); left > 0; --left)
            bytes += !regular && below(4) == 0 ? kIrregular[below(8)] : kRegular[below(11)];
        return bytes;
    }

    static CVQString::const_iterator positionAt(const CVQString& text, std::size_t offset) {
        return positionOn(text.c_str() + offset);
    }

    /// Counts that say ASCII over bytes that are not: only unchecked parts of irregular text come to this. Indices
    /// are then taken for positions.
    static bool passesForAscii(const Text& text) {
        return text.characters == text.bytes.size() &&
               std::any_of(text.bytes.begin(), text.bytes.end(), [](char byte) { return (byte & 0x80) != 0; });
    }

    void expectSame(const Pair& pair) {
        ASSERT_EQ(pair.plain.bytes, bytesOf(pair.real));
        ASSERT_EQ(pair.plain.characters, pair.real.getCharacterCount());
        ASSERT_EQ('\0', pair.real.c_str()[pair.real.getByteLength()]);
        ASSERT_EQ('\0', pair.real.c_str()[-1]);
        ASSERT_LE(pair.real.getByteLength(), pair.real.getCapacity());
        ASSERT_EQ(pair.plain.hash(), getHashValueForString(pair.real));
    }

    void change(std::vector<Pair>& pairs, bool regular) {
        Pair& target = pairs[below(pairs.size())];
        const Pair& other = pairs[below(pairs.size())];
        const std::size_t offset = below(target.plain.bytes.size() + 1);
        const std::size_t count = below(5);
        const std::string source = someBytes(regular);
        auto position = positionAt(target.real, offset);
        const std::size_t length = target.plain.bytes.size();
        switch (below(18)) {
        case 0:
            target.real.append(source.c_str());
            target.plain.append(source);
            break;
        case 1:
            target.real.append(source.c_str(), count);
            target.plain.append(source, count);
            break;
        case 2:
            target.real.append(other.real);
            target.plain.append(other.plain);
            break;
        case 3:
            target.real.append(target.real.c_str() + offset, count);  // a part of itself
            target.plain.append(target.plain.bytes.substr(offset), count);
            break;
        case 4:
            target.real.insert(position, other.real);
            target.plain.insert(offset, other.plain);
            break;
        case 5:
            target.real.remove(position, count);
            target.plain.remove(offset, count);
            break;
        case 6:
            target.real.replace(position, count, other.real);
            target.plain.replace(offset, count, other.plain);
            break;
        case 7: {
            const CVQString pattern = other.real.getLeft(count);
            Text plainPattern = other.plain.left(count);
            target.real.replaceAll(pattern, pairs[0].real);
            target.plain.replaceAll(plainPattern, pairs[0].plain);
            break;
        }
        case 8:
            target.real.replaceArg(other.real);
            target.plain.replaceArg(other.plain);
            break;
        case 9:
            target.real.truncate(count * 3);
            target.plain.truncate(count * 3);
            break;
        case 10:
            target.real.trim();
            target.plain.trim();
            break;
        case 11:
            if (passesForAscii(other.plain))
                break;
            target.real = other.real.getRight(count * 4);
            target.plain = other.plain.right(count * 4);
            break;
        case 12:
            target.plain = other.plain.mid(offset, count * 4);
            target.real = offset <= other.real.getByteLength()
                              ? other.real.getMid(positionAt(other.real, offset), count * 4)
                              : CVQString();
            break;
        case 13:
            target = other;
            break;
        case 14:
            target.real.reserve(length + count);
            break;
        case 15: {
            Pair& second = const_cast<Pair&>(other);
            target.real.swap(second.real);
            std::swap(target.plain, second.plain);
            break;
        }
        case 16:
            target.real = CVQString(source.c_str());
            target.plain = Text(source);
            break;
        case 17:
            target.real.clear();
            target.plain = Text();
            break;
        }
        if (target.plain.bytes.size() > 400) {
            target.real.truncate(30);
            target.plain.truncate(30);
        }
    }

    void compare(const std::vector<Pair>& pairs) {
        const Pair& one = pairs[below(pairs.size())];
        const Pair& other = pairs[below(pairs.size())];
        ASSERT_EQ(one.plain == other.plain, one.real == other.real);
        const Text pattern = other.plain.left(1 + below(3));
        const CVQString realPattern = other.real.getLeft(0).append(pattern.bytes.c_str(), pattern.bytes.size());
        if (bytesOf(realPattern) != pattern.bytes)
            return;
        const std::size_t from = below(one.plain.bytes.size() + 1);
        ASSERT_EQ(one.plain.find(pattern, from),
                  offsetOf(one.real, one.real.find(realPattern, positionAt(one.real, from))));
        if (!plain::following(plain::byteAt(one.plain.bytes, from))) {
            ASSERT_EQ(one.plain.findBack(pattern, from),
                      offsetOf(one.real, one.real.findString(positionAt(one.real, from), realPattern, false)));
        }
        if (passesForAscii(one.plain))
            return;
        std::size_t at = 0;
        for (std::size_t index = 0; index < 10; ++index) {
            ASSERT_EQ(one.plain.codeAt(at), one.real[index]);
            at = one.plain.next(at);
        }
    }

    void run(bool regular, int rounds) {
        std::vector<Pair> pairs(6);
        for (int round = 0; round < rounds; ++round) {
            ASSERT_NO_FATAL_FAILURE(change(pairs, regular));
            for (const Pair& pair : pairs)
                ASSERT_NO_FATAL_FAILURE(expectSame(pair)) << "round " << round;
            ASSERT_NO_FATAL_FAILURE(compare(pairs)) << "round " << round;
        }
    }
};

TEST_F(CVQStringModel, AgreesOnWellFormedText) {
    run(true, 30000);
}

TEST_F(CVQStringModel, AgreesOnIrregularAndInvalidText) {
    const support::ScopedEnvironment noLog("NTO_SLOG", "/nonexistent");
    run(false, 30000);
}

}  // namespace
