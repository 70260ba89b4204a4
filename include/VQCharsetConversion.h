// VQCharsetConversion: between the UTF-8 of CVQString and ISO 8859-1, ISO 8859-15 and UTF-16.
//   Units    bytes for ISO 8859, 16-bit units in the machine's byte order for UTF-16; no byte-order mark is read or
//            written. Counts are std::size_t, which on the target is `unsigned`.
//   Errors   none are logged. A character that ISO 8859 lacks becomes the replacement byte; what is not well formed
//            makes the conversion to UTF-16 return false. A string that would need 2^32 - 20 bytes or more is the
//            string's assertion on its capacity; ISO 8859 text then gives the empty string, and UTF-16 that would
//            make it 2^32 - 1 bytes or more is refused.
//   Threads  any thread; the text that is written: one thread at a time.
//   Source   ISO/IEC 8859-1 and 8859-15; the table of well-formed byte sequences of the Unicode standard.
//   Kept     charset-zero-bytes: zero bytes of ISO 8859 text, and zero units of UTF-16, are dropped on the way into
//            a string; the capacity still counts the bytes.
//            charset-four-bytes: on the way to ISO 8859 three bytes of a four-byte character make one replacement,
//            and conversion goes on with its fourth.
//            charset-last-character: a text that fills the whole output loses its last character to the terminating
//            zero byte, and that character is counted all the same.
//            utf16-lone-surrogates: lone surrogates come in as three-byte characters, which do not go out again.
//            utf16-appends: UTF-16 is appended to what the string holds.
#pragma once

#include <CVQString.h>
#include <VQExport.h>

#include <cstddef>

/// From single bytes to UTF-8.
struct SVQConvTable {
    /// One character.
    struct SEntry {
        unsigned char mByteCount;  ///< of the UTF-8 form: 1 to 3
        unsigned char mBytes[3];   ///< that form, padded with zero bytes
    };
    SEntry mEntries[256];  ///< by the single byte
};

/// From UTF-8 to single bytes.
struct SVQReverseConvTable {
    /// One character.
    struct SEntry {
        unsigned char mBytes[3];  ///< the UTF-8 form, padded with zero bytes
        unsigned char mByte;      ///< the single byte
    };
    unsigned char mLastOneByteIndex;  ///< of the last entry whose form is one byte
    unsigned char mLastTwoByteIndex;  ///< of the last entry whose form is two bytes
    SEntry mEntries[256];             ///< sorted by their forms
};

static_assert(sizeof(SVQConvTable) == 1024 && sizeof(SVQReverseConvTable) == 1026, "four bytes an entry");

VQ_EXPORT extern const SVQConvTable sConvTable8859_1;
VQ_EXPORT extern const SVQConvTable sConvTable8859_15;
VQ_EXPORT extern const SVQReverseConvTable sReverseConvTable8859_1;
VQ_EXPORT extern const SVQReverseConvTable sReverseConvTable8859_15;

VQ_EXPORT CVQString VQConvertFrom8859_1(const char* bytes, std::size_t count);
VQ_EXPORT CVQString VQConvertFrom8859_15(const char* bytes, std::size_t count);

/// Writes at most `outSize` bytes, the last of them zero; `replacement` stands for each character that the target
/// lacks. Returns the number of characters converted, up to `outSize`. Kept: charset-last-character.
VQ_EXPORT unsigned VQConvertTo8859_1(const CVQString& text, char* out, std::size_t outSize, char replacement);
VQ_EXPORT unsigned VQConvertTo8859_15(const CVQString& text, char* out, std::size_t outSize, char replacement);

/// The text of `count` bytes according to `table`, in a string whose capacity is the sum of the forms' byte counts.
/// The forms are taken as they are, without validation. Null, like a count of 0, gives an empty string.
VQ_EXPORT CVQString convertStringToUTF8(const SVQConvTable* table, const char* bytes, std::size_t count);

/// The other way, as for VQConvertTo8859_1. Null, or an `outSize` of 0: returns 0 and writes nothing.
VQ_EXPORT unsigned convertUTF8ToString(const SVQReverseConvTable& table, const CVQString& text, char* out,
                                       std::size_t outSize, char replacement);

/// Writes the text and its terminating zero byte as UTF-16. `count`: in, the room; out, the units written, the 0
/// unit included. False when the text is not well-formed UTF-8, does not fit, or `out` is null: then nothing is
/// written and `count` stays. Surrogates and what lies above U+10FFFF are not well-formed either, so that nothing
/// is left that would have to become U+FFFD. Zero bytes inside a text are characters.
VQ_EXPORT bool convertUTF8ToUTF16(const CVQString& text, unsigned short* out, unsigned& count);

/// Appends `count` units to `text`. False for null (nothing is appended), and when the last unit is a high
/// surrogate (all before it is appended).
VQ_EXPORT bool convertUTF16ToUTF8(const unsigned short* units, CVQString& text, std::size_t count);
