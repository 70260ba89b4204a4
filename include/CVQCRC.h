// CVQCRC: four fixed cyclic redundancy checks over bytes that arrive in any number of pieces.
//
//   Units    counts in bytes; values as wide as the type says, in the low bits.
//   Shape    two 32-bit words: the type and the current value, which is finished at any time (the final XOR is in).
//   Types    values in hexadecimal:
//
//                type                    width  bits        polynomial       start   final XOR    over "123456789"
//                CRC16_CCITT_FALSE       16     high first  1021             FFFF    0            29B1
//                CRC32                   32     low first   04C11DB7         0       FFFFFFFF     CBF43926
//                CRC16_CCITT_REFLECTED   16     low first   8408             FFFF    0            1DBA
//                CRC16_XMODEM            16     high first  1021             0       0            31C3
//
//            The start is a finished value as well: the register of CRC32 starts with all ones.
//   Errors   a null pointer to bytes is a cheap assertion (line 108) and changes nothing. Of a type only the two
//            low bits count.
//   Speed    long runs of bytes are folded with carry-less multiplications where the processor has them (asked
//            once, at the first use), else taken eight at a time through tables. All ways give the same values.
//   Threads  plain value: one thread at a time. The tables are constants.
//   Source   W. W. Peterson, D. T. Brown, "Cyclic Codes for Error Detection" (1961); catalogue of parametrised CRCs
//            (CRC-16/IBM-3740, CRC-32/ISO-HDLC, CRC-16/XMODEM) for the check values.
//   Kept     crc-unmasked-tables: the entries of the 16-bit tables that take the high bit first keep bits above bit
//            15.
//            crc-reflected-1021: the third type takes the low bit first, yet with the constant 1021 as it stands.
//            crc-finished-start: the start of CRC32 is the finished 0 (docs/kept.md).
#pragma once

#include <VQExport.h>

#include <cstddef>

class VQ_EXPORT CVQCRC {
public:
    /// The table above; the numbers are the indices of the tables below.
    enum eType { CRC16_CCITT_FALSE, CRC32, CRC16_CCITT_REFLECTED, CRC16_XMODEM };

    /// The parameters of each type.
    static const unsigned int mWidth[4];
    static const bool mReverseOrder[4];
    static const unsigned int mInitialValue[4];
    static const unsigned int mXorOutValue[4];
    /// What a byte does to an empty register, for each type. Kept: crc-unmasked-tables.
    static const unsigned int mCRCTab[4][256];

    /// CRC16_CCITT_FALSE.
    CVQCRC() noexcept : CVQCRC(CRC16_CCITT_FALSE) {}
    explicit CVQCRC(eType type) noexcept
        : mType(static_cast<eType>(static_cast<unsigned int>(type) & 3U)), mValue(mInitialValue[mType]) {}

    unsigned int getWidth() const noexcept { return mWidth[mType]; }
    unsigned int getInitialValue() const noexcept { return mInitialValue[mType]; }
    /// The value over all bytes since the beginning or the last `clearCRC`.
    unsigned int getCRC() const noexcept { return mValue; }

    void clearCRC() noexcept { mValue = mInitialValue[mType]; }
    void addByte(unsigned char byte) noexcept;
    void addBytes(const unsigned char* bytes, std::size_t count) noexcept;

private:
    eType mType;
    unsigned int mValue;
};

static_assert(sizeof(CVQCRC) == 8, "type and value");
