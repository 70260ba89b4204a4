#include "VQStringUtilities.h"

#include "CVQStringWriter.h"
#include "VQCodePoint.h"

namespace VQStringUtilities {
namespace {

class CDelimiters {
public:
    explicit CDelimiters(const CVQString& characters) : mCharacters(characters) {
        visit([this](unsigned code) {
            if (code < kAscii) {
                mAscii[code] = true;
            }
            return false;
        });
    }

    bool has(unsigned code) const {
        return code < kAscii ? mAscii[code] : visit([code](unsigned delimiter) { return code == delimiter; });
    }

private:
    static constexpr unsigned kAscii = 0x80;

    /// True as soon as `found` says so.
    template <class Found>
    bool visit(const Found& found) const {
        const char* place = mCharacters.c_str();
        for (std::size_t left = mCharacters.getByteLength(); left > 0;) {
            const VQUtf8::SCharacter character = VQUtf8::nextCharacter(place, left);
            if (found(character.code)) {
                return true;
            }
            place += character.bytes;
            left -= character.bytes;
        }
        return false;
    }

    const CVQString mCharacters;
    bool mAscii[kAscii] = {};
};

/// A string of exactly these bytes.
CVQString tokenOf(const char* text, std::size_t bytes, std::size_t characters) {
    CVQString token;
    if (bytes != 0) {
        CVQStringWriter writer(token);
        if (writer.makeRoom(bytes)) {
            std::memcpy(writer.text(), text, bytes);
            writer.setLengths(bytes, characters);
        }
    }
    return token;
}

}  // namespace

void split(TVQVector<CVQString>& out, const CVQString& text, const CVQString& delimiters, bool skipEmpty) {
    // Owned here as well, since `out` may hold both.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const CVQString source(text);
    const CDelimiters ends(delimiters);
    out.clear();
    const char* const begin = source.c_str();
    const char* const end = begin + source.getByteLength();
    const char* token = begin;
    std::size_t characters = 0;
    const auto finish = [&](const char* behind) {
        if (behind != token || !skipEmpty) {
            out.push_back(tokenOf(token, static_cast<std::size_t>(behind - token), characters));
        }
    };
    for (const char* place = begin; place != end;) {
        const VQUtf8::SCharacter character = VQUtf8::nextCharacter(place, static_cast<std::size_t>(end - place));
        if (ends.has(character.code)) {
            finish(place);
            token = place + character.bytes;
            characters = 0;
        } else {
            ++characters;
        }
        place += character.bytes;
    }
    finish(end);
}

}  // namespace VQStringUtilities
