// SRecord: one line of a text, as it travels.
//   Shape    serialised: the sequence number (4 bytes), the time (8), the text's length in bytes (4) and its bytes.
#pragma once

#include <CVQString.h>
#include <IVQIStream.h>
#include <IVQOStream.h>

struct SRecord {
    unsigned sequence = 0;
    unsigned long long micros = 0;  // since 1970
    CVQString text;

    unsigned long long getSerialisedSize() const { return 4 + 8 + 4 + 1ULL * text.getByteLength(); }
};

inline IVQOStream& operator<<(IVQOStream& stream, const SRecord& record) {
    return stream << record.sequence << record.micros << record.text;
}

inline const IVQIStream& operator>>(const IVQIStream& stream, SRecord& record) {
    return stream >> record.sequence >> record.micros >> record.text;
}
