// SlogRecord: what slogf, vslogf, slogi and slogb send to the socket named by NTO_SLOG. Host only.
//   Shape    one datagram a record: this header of 40 bytes, then `size` bytes of text or data and nothing else.
//            Every field has a fixed width and the layout no gaps, so 32-bit and 64-bit processes of one machine
//            can write to the same reader. Numbers are in the machine's byte order.
//   Content  TEXT: the formatted text without a terminating zero, at most kSlogTextMax bytes.
//            INTS: 32-bit integers, at most kSlogIntsMax. BYTES: raw data, at most kSlogBytesMax bytes.
//   Versions a reader drops a datagram whose magic or version it does not know.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace host {

constexpr uint32_t kSlogMagic = 0x474F4C53;  // "SLOG" in the memory of a little-endian machine
constexpr uint16_t kSlogVersion = 1;

constexpr uint32_t kSlogTextMax = 2047;
constexpr uint32_t kSlogIntsMax = 32;
constexpr uint32_t kSlogBytesMax = 255 * 4;

enum class SlogKind : uint16_t { TEXT = 1, INTS = 2, BYTES = 3 };

struct SlogRecord {
    uint32_t magic;
    uint16_t version;
    SlogKind kind;
    uint32_t opcode;   // major code in the low 20 bits, minor code in the upper 12
    int32_t severity;  // 0 to 7 as in <sys/slog.h>; whatever else the caller gave is kept
    int32_t pid;
    int32_t tid;
    uint64_t timeNs;  // CLOCK_REALTIME, nanoseconds since 1970
    uint32_t size;    // bytes that follow
    uint32_t reserved;
};

static_assert(sizeof(SlogRecord) == 40, "the datagram's header is the same for all processes of the machine");
static_assert(offsetof(SlogRecord, timeNs) == 24 && offsetof(SlogRecord, size) == 32, "no gaps");

constexpr size_t kSlogDatagramMax = sizeof(SlogRecord) + kSlogTextMax;

constexpr uint32_t slogMajor(const SlogRecord& record) {
    return record.opcode & 0xFFFFF;
}

constexpr uint32_t slogMinor(const SlogRecord& record) {
    return record.opcode >> 20;
}

/// True when a datagram of `datagramSize` bytes that begins with `record` is one whole record that this header
/// describes. A reader looks at nothing else of the datagram before it knows that.
constexpr bool isWholeSlogRecord(const SlogRecord& record, size_t datagramSize) {
    if (datagramSize < sizeof(SlogRecord) || record.magic != kSlogMagic || record.version != kSlogVersion ||
        record.size != datagramSize - sizeof(SlogRecord))
        return false;
    switch (record.kind) {
    case SlogKind::TEXT:
        return record.size <= kSlogTextMax;
    case SlogKind::INTS:
        return record.size <= kSlogIntsMax * sizeof(int32_t) && record.size % sizeof(int32_t) == 0;
    case SlogKind::BYTES:
        return record.size <= kSlogBytesMax;
    }
    return false;
}

}  // namespace host
