// The CRCs that one would pick instead of CVQCRC. No library has the reflected CRC with the constant 1021 but
// Boost, which takes any. ISA-L's CRC of T10, another divisor of 16 bits, is what the hardware allows for those at
// best.
#include "CVQCRC_workload.h"

#if BENCH_ISAL
#include <isa-l.h>
#endif
#if BENCH_ZLIB
#include <zlib.h>
#endif
#if BENCH_BOOST
#include <boost/crc.hpp>
#endif

namespace {

#if BENCH_ISAL
MARLIX_BENCH("CVQCRC_CRC32", "ISA-L", 64, 4096, 1048576) {
    bench::timeCRC(state, 0xCBF43926,
                   [](const unsigned char* bytes, std::size_t count) { return crc32_gzip_refl(0, bytes, count); });
}

unsigned takeT10(const unsigned char* bytes, std::size_t count) {
    return crc16_t10dif(0, bytes, count);
}
MARLIX_BENCH("CVQCRC_CCITTFalse", "floor: ISA-L, T10", 64, 4096, 1048576) {
    bench::timeCRC(state, 0xD0DB, takeT10);
}
MARLIX_BENCH("CVQCRC_CCITTReflected", "floor: ISA-L, T10", 64, 4096, 1048576) {
    bench::timeCRC(state, 0xD0DB, takeT10);
}
MARLIX_BENCH("CVQCRC_XModem", "floor: ISA-L, T10", 64, 4096, 1048576) {
    bench::timeCRC(state, 0xD0DB, takeT10);
}
#endif

#if BENCH_ZLIB
MARLIX_BENCH("CVQCRC_CRC32", "zlib", 64, 4096, 1048576) {
    bench::timeCRC(state, 0xCBF43926, [](const unsigned char* bytes, std::size_t count) {
        return static_cast<unsigned>(crc32_z(0, bytes, count));
    });
}
#endif

#if BENCH_BOOST
template <class Crc>
unsigned takeBoost(const unsigned char* bytes, std::size_t count) {
    Crc crc;
    crc.process_bytes(bytes, count);
    return static_cast<unsigned>(crc.checksum());
}
MARLIX_BENCH("CVQCRC_CRC32", "Boost", 64, 4096, 1048576) {
    bench::timeCRC(state, 0xCBF43926, takeBoost<boost::crc_32_type>);
}
MARLIX_BENCH("CVQCRC_CCITTFalse", "Boost", 64, 4096, 1048576) {
    bench::timeCRC(state, 0x29B1, takeBoost<boost::crc_ccitt_false_t>);
}
MARLIX_BENCH("CVQCRC_CCITTReflected", "Boost", 64, 4096, 1048576) {
    bench::timeCRC(state, 0x1DBA, takeBoost<boost::crc_optimal<16, 0x8408, 0xFFFF, 0, true, true>>);
}
MARLIX_BENCH("CVQCRC_XModem", "Boost", 64, 4096, 1048576) {
    bench::timeCRC(state, 0x31C3, takeBoost<boost::crc_xmodem_t>);
}
#endif

}  // namespace
