#include "CVQString.h"

#include "VQUtf8.h"

#include <CVQAsserter.h>
#include <IVQIStream.h>
#include <IVQOStream.h>
#include <TVQFormatString.h>
#include <VQMemory.h>
#include <VQSyslog.h>
#include <diag/lengthenBlock.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr char kUnit[] = "CVQString";
constexpr unsigned kLineCtor = 202;
constexpr unsigned kLineReplace = 538;
constexpr unsigned kLineTrim = 831;
constexpr unsigned kLineClear = 954;
constexpr unsigned kLineAddReference = 1263;
constexpr unsigned kLineRemoveReference = 1314;

/// From here on a capacity and the block's overhead overflow 32 bits.
constexpr unsigned long long kFirstInvalidCapacity = 0x100000000ULL - SVQStringData::kOverhead;
/// A text and its terminating zero byte are counted in 32 bits when they travel.
constexpr unsigned long long kMaxTextBytes = 0xFFFFFFFEULL;

constexpr std::size_t kFormatBytes = 257;

/// Of the allocator's blocks, and so of the zero byte before a text.
constexpr std::uintptr_t kBlockAlignment = 8;
static_assert(offsetof(SVQStringData, mSentinel) % kBlockAlignment == 0, "isBeforeText goes by it");

/// Into a header field; the value was bounded where it entered.
constexpr unsigned field(unsigned long long value) {
    return static_cast<unsigned>(value);
}

constexpr std::size_t smaller(std::size_t a, std::size_t b) {
    return a < b ? a : b;
}

VQ_COLD void reportCapacity(unsigned line, const char* function, unsigned long long capacity) {
    const unsigned shown = capacity < UINT_MAX ? field(capacity) : UINT_MAX;
    const TVQFormatString<256> text("CVQString::%s: Capacity %d not valid!", function, static_cast<int>(shown));
    doAssert(line, kUnit, text);
}

void checkCapacity(unsigned line, const char* function, unsigned long long capacity) {
    if (VQ_UNLIKELY(capacity >= kFirstInvalidCapacity)) {
        reportCapacity(line, function, capacity);
    }
}

VQ_COLD void reportInvalidText() {
    // Kept: string-invalid-message. The log is searched for these words.
    VQSyslog::logMsg(0, VQSyslog::ERROR, "The character sequence contains a wrong coded UTF-8 sequence !");
}

/// Of a block. Where the sum does not fit, nothing less than everything is asked for: that request fails, as it must.
constexpr std::size_t lengthOf(std::size_t capacity) {
    return capacity <= SIZE_MAX - SVQStringData::kOverhead ? capacity + SVQStringData::kOverhead : SIZE_MAX;
}

/// A block with an empty text and one owner.
SVQStringData* newBlock(std::size_t capacity) {
    auto* const block = static_cast<SVQStringData*>(VQMemory::allocChecked(lengthOf(capacity)));
    block->mReferences = 1;
    block->mCapacity = field(capacity);
    block->mByteLength = 0;
    block->mCharacterCount = 0;
    block->mSentinel = '\0';
    *block->text() = '\0';
    return block;
}

/// Counts of irregular text may disagree with what is left of it; there are never more characters than bytes.
void setLengths(SVQStringData& block, std::size_t bytes, std::size_t characters) {
    block.mByteLength = field(bytes);
    block.mCharacterCount = field(smaller(characters, bytes));
    block.text()[bytes] = '\0';
}

/// The bytes of at most `characters` characters from byte `at` on.
VQUtf8::SExtent extentAt(const SVQStringData& block, std::size_t at, std::size_t characters) {
    return VQUtf8::measure(block.text() + at, block.mByteLength - at, characters);
}

/// Whether positions and indices are the same, so that nobody has to walk.
bool isAllSingleBytes(const SVQStringData& block) {
    return block.mByteLength == block.mCharacterCount;
}

/// Whether `place` stands in [text, text + bytes].
bool pointsInto(const char* place, const char* text, std::size_t bytes) {
    return reinterpret_cast<std::uintptr_t>(place) - reinterpret_cast<std::uintptr_t>(text) <= bytes;
}

constexpr bool isWhiteSpace(char byte) {
    return byte == ' ' || (byte >= '\t' && byte <= '\r');
}

SVQStringData* const kNullHandle = const_cast<SVQStringData*>(&CVQString::nullData);

/// Whether `place` is the zero byte before a text, not one in it or behind it. A position knows nothing but its
/// place, so what lies before that has to look like a header, its character count below 2^24. No text without zero
/// bytes does; one with them may, and the position then stays there.
bool isBeforeText(const char* place) {
    if (*place != '\0' || place[-1] != '\0' || reinterpret_cast<std::uintptr_t>(place) % kBlockAlignment != 0) {
        return false;
    }
    // A text that reaches such a place has seven bytes at least, so that these still lie in its block.
    unsigned lengths[3];
    std::memcpy(lengths, place - sizeof lengths, sizeof lengths);
    const auto [capacity, bytes, characters] = lengths;
    return characters <= bytes && bytes <= capacity;
}

void advance(const char** position, long long steps) {
    const char* place = *position;
    for (; steps > 0 && *place != '\0'; --steps) {
        do {
            ++place;
        } while (VQUtf8::isContinuation(*place));
    }
    for (; steps < 0 && !isBeforeText(place); ++steps) {
        do {
            --place;
        } while (VQUtf8::isContinuation(*place));
        if (*place == '\0') {
            break;
        }
    }
    *position = place;
}

}  // namespace

alignas(8) VQ_CONSTINIT const SVQStringData CVQString::nullData{2, 0, 0, 0, '\0', {}};

// A pointer that is looked at as the string that it makes up: a string object would be destroyed at exit.
const CVQString& CVQString::null = reinterpret_cast<const CVQString&>(kNullHandle);

// ---- positions

int CVQString::const_iterator::decode(const char* position) noexcept {
    const auto lead = static_cast<unsigned char>(*position);
    const unsigned length = VQUtf8::kSequenceLength[lead];
    if (length == VQUtf8::kNoLead) {
        return static_cast<signed char>(*position);  // Kept: string-signed-byte. Callers test for negative values.
    }
    unsigned value = lead & (0x7FU >> length);
    const char* next = position + 1;
    for (unsigned i = 1; i < length; ++i) {
        value <<= 6;
        if (*next != '\0') {  // a text that ends inside the character
            value |= static_cast<unsigned char>(*next++) & 0x3FU;
        }
    }
    return static_cast<int>(value);
}

void CVQString::const_iterator::incrementSteps(const char** position, int steps) noexcept {
    advance(position, steps);
}

CVQString::const_iterator& CVQString::const_iterator::operator-=(int steps) noexcept {
    advance(&mPosition, -static_cast<long long>(steps));
    return *this;
}

int operator-(const CVQString::const_iterator& to, const CVQString::const_iterator& from) noexcept {
    const char* low = from.getPosition();
    const char* high = to.getPosition();
    const bool negative = reinterpret_cast<std::uintptr_t>(high) < reinterpret_cast<std::uintptr_t>(low);
    if (negative) {
        const char* const swapped = low;
        low = high;
        high = swapped;
    }
    // A zero byte ends the walk, so that it stays in one text even when the two stand in different ones.
    unsigned distance = 0;
    while (reinterpret_cast<std::uintptr_t>(low) < reinterpret_cast<std::uintptr_t>(high) && *low != '\0') {
        advance(&low, 1);
        ++distance;
    }
    return static_cast<int>(negative ? 0 - distance : distance);
}

/// False for a position outside the text or inside a character.
bool CVQString::holds(const const_iterator& position, std::size_t& at) const noexcept {
    const char* const place = position.mPosition;
    if (!pointsInto(place, mData->text(), mData->mByteLength) || VQUtf8::isContinuation(*place)) {
        return false;
    }
    at = static_cast<std::size_t>(place - mData->text());
    return true;
}

// ---- blocks

void CVQString::moveToBlock(std::size_t capacity) {
    // Kept: string-asked-anyway. An assertion lets the process go on; that there is no memory ends it.
    checkCapacity(kLineAddReference, "addReference", capacity);
    // An empty text has nothing to bring along.
    if (mData == kNullHandle) {
        mData = newBlock(capacity);
        return;
    }
    // The text of an only owner stays in its block, which gets longer.
    if (capacity >= kLeastLengthened && capacity > mData->mCapacity && VQAtomic::load(mData->mReferences) == 1) {
        mData = static_cast<SVQStringData*>(lengthenBlock(mData, lengthOf(capacity)));
        mData->mCapacity = field(capacity);
        return;
    }
    SVQStringData* const block = newBlock(capacity);
    std::size_t bytes = mData->mByteLength;
    std::size_t characters = mData->mCharacterCount;
    if (bytes > capacity) {
        const VQUtf8::SExtent fitting = VQUtf8::measure(mData->text(), capacity, VQUtf8::kAll);
        bytes = fitting.bytes;
        characters = fitting.characters;
    }
    std::memcpy(block->text(), mData->text(), bytes);
    setLengths(*block, bytes, characters);
    adopt(block);
}

/// The end of removeReference, where no owner but this one was left.
void CVQString::releaseBlock(unsigned owners) noexcept {
    if (VQ_UNLIKELY(owners == 0)) {
        doCheapAssert(kLineRemoveReference, kUnit);
        return;
    }
    VQMemory::release(mData);
    pointAtNull();
}

void CVQString::adopt(SVQStringData* block) noexcept {
    removeReference();
    mData = block;
}

bool CVQString::makeRoom(unsigned long long bytes) {
    if (VQ_UNLIKELY(bytes > kMaxTextBytes)) {
        reportCapacity(kLineAddReference, "addReference", bytes);
        return false;
    }
    addReference(true, static_cast<std::size_t>(bytes));
    return true;
}

void CVQString::charConstruct(const char* text, std::size_t bytes, std::size_t atByte) {
    construct(text, bytes, atByte, 0);
}

/// charConstruct for a text whose first `asciiBytes` bytes are known to be ASCII.
void CVQString::construct(const char* text, std::size_t bytes, std::size_t atByte, std::size_t asciiBytes) {
    VQUtf8::SExtent valid{asciiBytes, asciiBytes};
    if (asciiBytes < bytes) {
        // Kept: string-lenient-utf8. Peers send overlong and six-byte forms, and their texts must not be cut.
        const VQUtf8::SExtent rest = VQUtf8::measure(text + asciiBytes, bytes - asciiBytes, VQUtf8::kAll);
        valid.bytes += rest.bytes;
        valid.characters += rest.characters;
        if (VQ_UNLIKELY(valid.bytes < bytes)) {
            reportInvalidText();
        }
    }
    char* const place = mData->text() + atByte;
    if (place != text) {
        std::memcpy(place, text, valid.bytes);
    }
    place[valid.bytes] = '\0';
    mData->mByteLength += field(valid.bytes);
    mData->mCharacterCount += field(valid.characters);
}

/// The one place where text moves: `bytes` bytes with `characters` characters at byte `at` make way for `inserted`.
/// False when the result would be too long; then nothing has changed.
bool CVQString::splice(std::size_t at, std::size_t bytes, std::size_t characters, const CVQString& inserted) {
    SVQStringData* const old = mData;
    const SVQStringData* const source = inserted.mData;
    const std::size_t coming = source->mByteLength;
    const std::size_t behind = old->mByteLength - at - bytes;
    const unsigned long long total = static_cast<unsigned long long>(at) + coming + behind;
    if (VQ_UNLIKELY(total > kMaxTextBytes)) {
        reportCapacity(kLineAddReference, "addReference", total);
        return false;
    }
    const std::size_t staying = old->mCharacterCount - smaller(characters, old->mCharacterCount);
    const std::size_t count = staying + source->mCharacterCount;

    const bool roomy = !isShared() && total <= old->mCapacity;
    if (roomy && source != old) {
        char* const place = old->text() + at;
        std::memmove(place + coming, place + bytes, behind);
        std::memcpy(place, source->text(), coming);
        setLengths(*old, static_cast<std::size_t>(total), count);
        return true;
    }
    const std::size_t capacity = roomy ? old->mCapacity : static_cast<std::size_t>(total);
    checkCapacity(kLineAddReference, "addReference", capacity);
    SVQStringData* const block = newBlock(capacity);
    char* const place = block->text() + at;
    std::memcpy(block->text(), old->text(), at);
    std::memcpy(place, source->text(), coming);
    std::memcpy(place + coming, old->text() + at + bytes, behind);
    setLengths(*block, static_cast<std::size_t>(total), count);
    adopt(block);
    return true;
}

/// Makes the `bytes` bytes from byte `at` on the whole text. An unshared buffer keeps its capacity, a shared one is
/// exchanged for one of `capacity`.
void CVQString::keep(std::size_t at, std::size_t bytes, std::size_t characters, std::size_t capacity) {
    SVQStringData* block = mData;
    if (isShared()) {
        checkCapacity(kLineAddReference, "addReference", capacity);
        block = newBlock(capacity);
    }
    std::memmove(block->text(), mData->text() + at, bytes);
    setLengths(*block, bytes, characters);
    if (block != mData) {
        adopt(block);
    }
}

/// A string of exactly these bytes of the text, in a block of its own.
CVQString CVQString::slice(std::size_t at, std::size_t bytes, std::size_t characters) const {
    CVQString part;
    part.mData = newBlock(bytes);
    std::memcpy(part.mData->text(), mData->text() + at, bytes);
    setLengths(*part.mData, bytes, characters);
    return part;
}

// ---- construction

CVQString::CVQString(const char* text) : CVQString() {
    append(text);
}

CVQString::CVQString(const char* text, std::size_t maxBytes) : CVQString() {
    append(text, maxBytes);
}

CVQString::CVQString(unsigned capacity) : CVQString() {
    if (VQ_UNLIKELY(capacity >= kFirstInvalidCapacity)) {
        reportCapacity(kLineCtor, "ctor", capacity);
        return;
    }
    mData = newBlock(capacity);
}

// ---- queries

int CVQString::operator[](std::size_t index) const noexcept {
    const char* place = mData->text();
    if (isAllSingleBytes(*mData)) {
        const std::size_t steps = smaller(index, mData->mByteLength);
        const void* const zero = std::memchr(place, '\0', steps);
        return zero != nullptr ? 0 : *const_iterator(place + steps);
    }
    advance(&place, static_cast<long long>(smaller(index, mData->mByteLength)));
    return *const_iterator(place);
}

bool CVQString::equals(const CVQString& other) const noexcept {
    // Kept: string-zero-bytes. strcmp, so that a text equals the one that C code reads from c_str().
    return mData->mCharacterCount == other.mData->mCharacterCount &&
           std::strcmp(mData->text(), other.mData->text()) == 0;
}

CVQString::const_iterator CVQString::find(const CVQString& pattern) const noexcept {
    return findString(begin(), pattern, true);
}

CVQString::const_iterator CVQString::find(const CVQString& pattern, const const_iterator& from) const noexcept {
    return findString(from, pattern, true);
}

CVQString::const_iterator CVQString::findString(const_iterator from, const CVQString& pattern,
                                                bool forward) const noexcept {
    const SVQStringData& wanted = *pattern.mData;
    const char* const first = wanted.text();
    const char* const behind = mData->text() + mData->mByteLength;
    const char* place = from.mPosition;
    if (!pointsInto(place, mData->text(), mData->mByteLength) || *first == '\0' || wanted.mCharacterCount == 0) {
        return end();
    }
    const auto matches = [&](const char* at) {
        return *at == *first && static_cast<std::size_t>(behind - at) >= wanted.mByteLength &&
               std::memcmp(at, first, wanted.mByteLength) == 0;
    };
    if (!forward) {
        if (place == behind) {
            advance(&place, -1);
        }
        for (; *place != '\0'; advance(&place, -1)) {
            if (matches(place)) {
                return const_iterator(place);
            }
        }
        return end();
    }
    // Characters start at no following byte, so that after `from` only a lead byte is ever found, wherever it is
    // looked for.
    if (matches(place)) {
        return const_iterator(place);
    }
    const char* const found =
        VQUtf8::isContinuation(*first) ? nullptr : VQUtf8::find(place, behind, first, wanted.mByteLength);
    return found != nullptr ? const_iterator(found) : end();
}

CVQString CVQString::getLeft(std::size_t characters) const {
    if (characters == 0 || mData->mByteLength == 0) {
        return CVQString();
    }
    const VQUtf8::SExtent left = extentAt(*mData, 0, smaller(characters, mData->mCharacterCount));
    return slice(0, left.bytes, left.characters);
}

CVQString CVQString::getLeft(const const_iterator& position) const {
    std::size_t at = 0;
    if (!holds(position, at) || at == 0) {
        return CVQString();
    }
    const VQUtf8::SExtent left = VQUtf8::measure(mData->text(), at, VQUtf8::kAll);
    return slice(0, left.bytes, left.characters);
}

CVQString CVQString::getRight(std::size_t characters) const {
    if (characters == 0 || mData->mByteLength == 0) {
        return CVQString();
    }
    const std::size_t count = smaller(characters, mData->mCharacterCount);
    std::size_t at = mData->mByteLength;
    if (isAllSingleBytes(*mData)) {
        at -= count;
    } else {
        for (std::size_t left = count; left > 0 && at > 0; --left) {
            do {
                --at;
            } while (at > 0 && VQUtf8::isContinuation(mData->text()[at]));
        }
    }
    return slice(at, mData->mByteLength - at, count);
}

CVQString CVQString::getRight(const const_iterator& position) const {
    std::size_t at = 0;
    if (!holds(position, at) || at == mData->mByteLength) {
        return CVQString();
    }
    const VQUtf8::SExtent right = extentAt(*mData, at, VQUtf8::kAll);
    return slice(at, right.bytes, right.characters);
}

CVQString CVQString::getMid(const const_iterator& from, std::size_t characters) const {
    std::size_t at = 0;
    if (characters == 0 || !holds(from, at) || at == mData->mByteLength) {
        return CVQString();
    }
    const VQUtf8::SExtent mid = extentAt(*mData, at, characters);
    return slice(at, mid.bytes, mid.characters);
}

unsigned getHashValueForString(const CVQString& text) noexcept {
    // Kept: string-signed-hash. Tables that peers built hold the values of signed bytes.
    const auto* byte = reinterpret_cast<const signed char*>(text.c_str());
    const auto at = [&byte](unsigned i) { return static_cast<unsigned>(byte[i]); };
    unsigned left = text.getByteLength();
    unsigned hash = 0;
    for (; left >= 4; left -= 4, byte += 4) {
        hash = hash * 625 + at(0) * 125 + at(1) * 25 + at(2) * 5 + at(3);
    }
    for (; left > 0; --left, ++byte) {
        hash = hash * 5 + at(0);
    }
    return hash;
}

// ---- changes

CVQString& CVQString::append(const char* text) {
    return append(text, VQUtf8::kAll);
}

CVQString& CVQString::append(const char* text, std::size_t maxBytes) {
    if (text == nullptr || maxBytes == 0) {
        return *this;
    }
    const VQUtf8::SReach reach = VQUtf8::reach(text, maxBytes);
    if (reach.bytes == 0) {
        return *this;
    }
    const std::size_t length = mData->mByteLength;
    const bool own = pointsInto(text, mData->text(), length);
    const auto offset = own ? text - mData->text() : 0;
    if (makeRoom(static_cast<unsigned long long>(length) + reach.bytes)) {
        construct(own ? mData->text() + offset : text, reach.bytes, length, reach.asciiBytes);
    }
    return *this;
}

CVQString& CVQString::append(const CVQString& other) {
    const std::size_t length = mData->mByteLength;
    const std::size_t bytes = other.mData->mByteLength;
    const unsigned characters = other.mData->mCharacterCount;
    if (characters != 0 && makeRoom(static_cast<unsigned long long>(length) + bytes)) {
        std::memcpy(mData->text() + length, other.mData->text(), bytes);
        setLengths(*mData, length + bytes, mData->mCharacterCount + characters);
    }
    return *this;
}

void CVQString::internalAppend(const char* text, std::size_t bytes) {
    const std::size_t length = mData->mByteLength;
    const bool own = pointsInto(text, mData->text(), length);
    const auto offset = own ? text - mData->text() : 0;
    if (bytes == 0 || !makeRoom(static_cast<unsigned long long>(length) + bytes)) {
        return;
    }
    char* const place = mData->text() + length;
    std::memcpy(place, own ? mData->text() + offset : text, bytes);
    unsigned characters = mData->mCharacterCount;
    for (std::size_t i = 0; i < bytes; ++i) {
        characters += VQUtf8::isLead(place[i]) ? 1U : 0U;
    }
    setLengths(*mData, length + bytes, characters);
}

CVQString CVQString::operator+(const CVQString& other) const {
    CVQString sum(*this);
    sum.append(other);
    return sum;
}

CVQString& CVQString::insert(const_iterator& position, const CVQString& text) {
    std::size_t at = 0;
    if (text.mData->mByteLength != 0 && holds(position, at) && splice(at, 0, 0, text)) {
        position.mPosition = mData->text() + at;
    }
    return *this;
}

CVQString& CVQString::remove(const_iterator& position, std::size_t characters) {
    std::size_t at = 0;
    if (!holds(position, at)) {
        return *this;
    }
    const VQUtf8::SExtent going = extentAt(*mData, at, characters);
    if (going.bytes != 0 && splice(at, going.bytes, going.characters, CVQString())) {
        position.mPosition = mData->text() + at;
    }
    return *this;
}

CVQString& CVQString::replace(const_iterator& position, std::size_t characters, const CVQString& replacement) {
    if (characters == 0) {
        return insert(position, replacement);
    }
    std::size_t at = 0;
    if (!holds(position, at)) {
        return *this;
    }
    const VQUtf8::SExtent going = extentAt(*mData, at, characters);
    if (going.bytes == 0) {
        return *this;
    }
    checkCapacity(kLineReplace, "replace", mData->mCapacity);
    if (splice(at, going.bytes, going.characters, replacement)) {
        position.mPosition = mData->text() + at;
    }
    return *this;
}

CVQString& CVQString::replaceAll(const CVQString& pattern, const CVQString& replacement) {
    const SVQStringData& wanted = *pattern.mData;
    const SVQStringData& coming = *replacement.mData;
    const auto next = [&](const char* from) { return find(pattern, const_iterator(from)).mPosition; };

    const char* const behind = mData->text() + mData->mByteLength;
    std::size_t places = 0;
    for (const char* place = next(mData->text()); place != behind; place = next(place + wanted.mByteLength)) {
        ++places;
    }
    if (places == 0) {
        return *this;
    }
    checkCapacity(kLineReplace, "replace", mData->mCapacity);
    const unsigned long long after = mData->mByteLength -
                                     places * static_cast<unsigned long long>(wanted.mByteLength) +
                                     places * static_cast<unsigned long long>(coming.mByteLength);
    if (VQ_UNLIKELY(after > kMaxTextBytes)) {
        reportCapacity(kLineAddReference, "addReference", after);
        return *this;
    }
    const auto bytes = static_cast<std::size_t>(after);
    const std::size_t going = smaller(places * wanted.mCharacterCount, mData->mCharacterCount);
    const std::size_t characters = mData->mCharacterCount - going + places * coming.mCharacterCount;
    // The capacity that one replacement after the other would leave: the first unshares, the others only grow it.
    const std::size_t first =
        isShared() ? std::size_t{mData->mByteLength} - wanted.mByteLength + coming.mByteLength : mData->mCapacity;
    const std::size_t capacity = first < bytes ? bytes : first;
    // What does not grow is moved where it lies, always behind the place that is searched.
    const bool inPlace =
        !isShared() && coming.mByteLength <= wanted.mByteLength && &coming != mData && &wanted != mData;
    if (!inPlace) {
        checkCapacity(kLineAddReference, "addReference", capacity);
    }
    SVQStringData* const block = inPlace ? mData : newBlock(capacity);
    char* out = block->text();
    const auto put = [&out](const char* text, std::size_t count) {
        std::memmove(out, text, count);
        out += count;
    };
    const char* from = mData->text();
    for (; places > 0; --places) {
        const char* const place = next(from);
        put(from, static_cast<std::size_t>(place - from));
        put(coming.text(), coming.mByteLength);
        from = place + wanted.mByteLength;
    }
    put(from, static_cast<std::size_t>(behind - from));
    setLengths(*block, bytes, characters);
    if (!inPlace) {
        adopt(block);
    }
    return *this;
}

CVQString& CVQString::replaceArg(const CVQString& argument) {
    const char* const text = mData->text();
    const char* const behind = text + mData->mByteLength;
    const char* lowest = nullptr;
    for (const char* from = text; from != behind; ++from) {
        from = static_cast<const char*>(std::memchr(from, '%', static_cast<std::size_t>(behind - from)));
        if (from == nullptr) {
            break;
        }
        const char digit = from[1];
        if (digit >= '0' && digit <= '9' && (lowest == nullptr || digit < lowest[1])) {
            lowest = from;
        }
    }
    if (lowest != nullptr) {
        splice(static_cast<std::size_t>(lowest - text), 2, 2, argument);
    }
    return *this;
}

CVQString& CVQString::truncate(std::size_t characters) {
    if (characters == 0 ? mData->mByteLength != 0 : characters < mData->mCharacterCount) {
        const VQUtf8::SExtent left = extentAt(*mData, 0, characters);
        keep(0, left.bytes, left.characters, left.bytes);
    }
    return *this;
}

CVQString& CVQString::truncate(const const_iterator& position) {
    std::size_t at = 0;
    if (holds(position, at) && at != mData->mByteLength) {
        const VQUtf8::SExtent left = VQUtf8::measure(mData->text(), at, VQUtf8::kAll);
        keep(0, left.bytes, left.characters, left.bytes);
    }
    return *this;
}

CVQString& CVQString::trim() {
    const char* const text = mData->text();
    std::size_t end = mData->mByteLength;
    std::size_t at = 0;
    while (at < end && isWhiteSpace(text[at])) {
        ++at;
    }
    while (end > at && isWhiteSpace(text[end - 1])) {
        --end;
    }
    const std::size_t removed = mData->mByteLength - (end - at);
    if (removed != 0) {
        checkCapacity(kLineTrim, "trim", mData->mCapacity);
        const std::size_t characters = mData->mCharacterCount - smaller(removed, mData->mCharacterCount);
        keep(at, end - at, characters, mData->mCapacity - removed);
    }
    return *this;
}

void CVQString::clear() {
    if (isShared()) {
        // Kept: string-clear-message. Logs are searched for that name.
        checkCapacity(kLineClear, "addReference", mData->mCapacity);
        adopt(newBlock(mData->mCapacity));
        return;
    }
    setLengths(*mData, 0, 0);
}

void CVQString::reserve(std::size_t capacity) {
    if (capacity <= mData->mCapacity) {
        return;
    }
    if (VQ_UNLIKELY(static_cast<unsigned long long>(capacity) > UINT_MAX)) {
        reportCapacity(kLineAddReference, "addReference", capacity);
        return;
    }
    addReference(true, capacity);
}

void CVQString::swap(CVQString& other) {
    // Kept: string-own-empty. Whoever holds one of the two buffers through a third string must not see the other's.
    addReference(true, mData->mCapacity);
    other.addReference(true, other.mData->mCapacity);
    exchange(other);
}

// ---- formatting

bool CVQString::format(const char* format, ...) {
    char scratch[kFormatBytes];  // Kept: string-format-256. Log lines are built to fit it.
    std::va_list arguments;
    va_start(arguments, format);
    const bool whole = doFormat(scratch, sizeof scratch, format, arguments);
    va_end(arguments);
    return whole;
}

bool CVQString::strprintf(char* buffer, std::size_t size, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const bool whole = doFormat(buffer, size, format, arguments);
    va_end(arguments);
    return whole;
}

bool CVQString::doFormat(char* scratch, std::size_t size, const char* format, std::va_list arguments) {
    int produced = -1;
    std::size_t bytes = 0;
    VQUtf8::SExtent kept{0, 0};
    if (scratch != nullptr && size != 0 && format != nullptr) {
        size = smaller(size, INT_MAX);
        produced = std::vsnprintf(scratch, size, format, arguments);
        scratch[size - 1] = '\0';
    }
    if (produced > 0) {
        bytes = smaller(static_cast<std::size_t>(produced), size - 1);
        kept = VQUtf8::measure(scratch, bytes, VQUtf8::kAll);
        if (VQ_UNLIKELY(kept.bytes < bytes)) {
            reportInvalidText();
        }
    }
    // Room for all of them, also for what is cut off as invalid: an appended text takes its room in the same way.
    if (isShared() || mData->mCapacity < bytes) {
        adopt(newBlock(bytes));
    }
    if (kept.bytes != 0) {
        std::memcpy(mData->text(), scratch, kept.bytes);
    }
    setLengths(*mData, kept.bytes, kept.characters);
    return produced >= 0 && static_cast<std::size_t>(produced) < size;
}

// ---- streams

IVQOStream& operator<<(IVQOStream& stream, const CVQString& text) {
    stream << text.getByteLength();
    if (!text.isEmpty()) {
        stream.write(text.c_str(), text.getByteLength());
    }
    return stream;
}

const IVQIStream& operator>>(const IVQIStream& stream, CVQString& text) {
    unsigned bytes = 0;
    stream >> bytes;
    text.receive(stream, bytes, 0);
    return stream;
}

IVQOStream& CVQString::toQRVStream(IVQOStream& stream, const CVQString& text) {
    stream.align(4);
    stream << text.getByteLength();
    stream.write(text.c_str(), text.getByteLength() + 1);
    return stream;
}

const IVQIStream& CVQString::fromQRVStream(const IVQIStream& stream, CVQString& text) {
    unsigned bytes = 0;
    stream.align(4);
    stream >> bytes;
    if (bytes == 0) {
        char terminator = '\0';
        stream >> terminator;
    }
    text.receive(stream, bytes, 1);
    return stream;
}

/// Reads a text of `bytes` bytes and its terminator, if it has one. What does not arrive whole, or is longer than a
/// string may be, leaves the string empty.
void CVQString::receive(const IVQIStream& stream, unsigned bytes, unsigned terminator) {
    if (bytes != 0) {
        CVQString text(bytes);
        if (text.mData->mCapacity == bytes && stream.read(text.mData->text(), bytes + terminator) >= bytes) {
            text.charConstruct(text.mData->text(), bytes, 0);
            exchange(text);
            return;
        }
    }
    truncate(0);
}
