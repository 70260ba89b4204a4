// StringModel: a few strings that share buffers, each beside its plain version. Every step changes one of them in
// one of all the ways there are and compares everything that can be seen.
//   Use      the tests choose at random, the fuzz target by its input.
//   Errors   throws Disagreement.
#pragma once

#include "MemoryStream.h"
#include "PlainText.h"
#include "StringInternals.h"

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace strings {

class Disagreement : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

class StringModel {
public:
    /// `below(bound)` is a number in [0, bound), `bytes()` a few bytes.
    StringModel(std::function<std::size_t(std::size_t)> below, std::function<std::string()> bytes)
        : mBelow(std::move(below)), mBytes(std::move(bytes)) {}

    void step() {
        const std::size_t way = mBelow(kWays);
        change(way, any(), any());
        for (const Pair& pair : mPairs)
            compare(way, pair);
        search(any(), any());
    }

private:
    using Text = plain::Text;

    struct Pair {
        CVQString real;
        Text plain;
    };

    static constexpr std::size_t kWays = 22;
    static constexpr std::size_t kMostBytes = 400;

    Pair& any() { return mPairs[mBelow(mPairs.size())]; }

    static void agree(bool equal, const std::string& about) {
        if (!equal)
            throw Disagreement(about);
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

    void change(std::size_t way, Pair& target, Pair& other) {
        const std::string source = mBytes();
        const std::size_t offset = mBelow(target.plain.bytes.size() + 1);
        const std::size_t count = mBelow(5);
        auto position = positionAt(target.real, offset);
        const bool stands = target.plain.holds(offset);
        switch (way) {
        case 0:
            target.real = CVQString(source.c_str());
            target.plain = Text(source);
            break;
        case 1:
            target.real = CVQString(source.data(), source.size());
            target.plain = Text(source);
            break;
        case 2:
            target.real.append(source.c_str());
            target.plain.append(source);
            break;
        case 3:
            target.real.append(source.c_str(), count);
            target.plain.append(source, count);
            break;
        case 4:
            target.real.append(other.real);
            target.plain.append(other.plain);
            break;
        case 5:  // a part of itself
            target.real.append(target.real.c_str() + offset, count);
            target.plain.append(target.plain.bytes.substr(offset), count);
            break;
        case 6:
            target.real.insert(position, other.real);
            target.plain.insert(offset, other.plain);
            agree(!stands || offsetOf(target.real, position) == offset, "position after insert");
            break;
        case 7:
            target.real.remove(position, count);
            target.plain.remove(offset, count);
            agree(!stands || offsetOf(target.real, position) == offset, "position after remove");
            break;
        case 8:
            target.real.replace(position, count, other.real);
            target.plain.replace(offset, count, other.plain);
            agree(!stands || offsetOf(target.real, position) == offset, "position after replace");
            break;
        case 9: {
            const CVQString pattern = other.real.getLeft(count);
            const Text plainPattern = other.plain.left(count);
            target.real.replaceAll(pattern, mPairs[0].real);
            target.plain.replaceAll(plainPattern, mPairs[0].plain);
            break;
        }
        case 10:
            target.real.replaceArg(other.real);
            target.plain.replaceArg(other.plain);
            break;
        case 11:
            target.real.truncate(count * 3);
            target.plain.truncate(count * 3);
            break;
        case 12:
            target.real.trim();
            target.plain.trim();
            break;
        case 13:
            target.plain = other.plain.left(count * 4);
            target.real = other.real.getLeft(count * 4);
            break;
        case 14:
            if (passesForAscii(other.plain))
                break;
            target.real = other.real.getRight(count * 4);
            target.plain = other.plain.right(count * 4);
            break;
        case 15: {
            const std::size_t from = mBelow(other.plain.bytes.size() + 1);
            const CVQString part = other.real.getMid(positionAt(other.real, from), count * 4);
            target.plain = other.plain.mid(from, count * 4);
            target.real = part;
            break;
        }
        case 16:
            target.real = other.real;
            target.plain = other.plain;
            break;
        case 17:
            target.real.reserve(target.plain.bytes.size() + count * 8);
            break;
        case 18:
            target.real.swap(other.real);
            std::swap(target.plain, other.plain);
            break;
        case 19:
            target.real.clear();
            target.plain = Text();
            break;
        case 20:
        case 21:
            receive(target, source, way == 21);
            break;
        }
        if (target.plain.bytes.size() > kMostBytes) {
            target.real.truncate(30);
            target.plain.truncate(30);
        }
    }

    /// Reads a text whose announced length need not be true.
    void receive(Pair& target, const std::string& source, bool message) {
        const std::size_t announced = mBelow(source.size() + 3);
        const MemoryStream stream(lengthOf(static_cast<unsigned>(announced)) + source);
        if (message)
            CVQString::fromQRVStream(stream, target.real);
        else
            stream >> target.real;
        if (announced == 0 || announced > source.size()) {
            target.plain.truncate(0);
        } else {
            target.plain = Text();
            target.plain.appendValid(source.substr(0, announced));
        }
        MemoryStream back;
        static_cast<IVQOStream&>(back) << target.real;
        agree(back.bytes == lengthOf(target.real.getByteLength()) + target.plain.bytes, "stream form");
    }

    static void compare(std::size_t way, const Pair& pair) {
        const std::string after = " after way " + std::to_string(way);
        agree(pair.plain.bytes == bytesOf(pair.real), "bytes" + after);
        agree(pair.plain.characters == pair.real.getCharacterCount(), "characters" + after);
        agree(pair.real.c_str()[pair.real.getByteLength()] == '\0', "terminator" + after);
        agree(pair.real.c_str()[-1] == '\0', "sentinel" + after);
        agree(pair.real.getByteLength() <= pair.real.getCapacity(), "capacity" + after);
        agree(pair.plain.hash() == getHashValueForString(pair.real), "hash" + after);
    }

    void search(const Pair& one, const Pair& other) {
        agree((one.plain == other.plain) == (one.real == other.real), "equality");
        const CVQString pattern = other.real.getLeft(1 + mBelow(3));
        Text plainPattern;
        plainPattern.bytes = bytesOf(pattern);
        plainPattern.characters = pattern.getCharacterCount();
        const std::size_t from = mBelow(one.plain.bytes.size() + 1);
        const auto position = positionAt(one.real, from);
        agree(one.plain.find(plainPattern, from) == offsetOf(one.real, one.real.find(pattern, position)), "find");
        if (one.plain.bytes.find('\0') == std::string::npos)
            agree(one.plain.findBack(plainPattern, from) ==
                      offsetOf(one.real, one.real.findString(position, pattern, false)),
                  "find backward");
        if (!passesForAscii(one.plain)) {
            std::size_t at = 0;
            for (std::size_t index = 0; index < 10; ++index) {
                agree(one.plain.codeAt(at) == one.real[index], "index");
                at = one.plain.next(at);
            }
        }
    }

    std::function<std::size_t(std::size_t)> mBelow;
    std::function<std::string()> mBytes;
    std::vector<Pair> mPairs = std::vector<Pair>(6);
};

}  // namespace strings
