// CVQCRC beside the CRCs in CVQCRC_peers.cpp.
#include "CVQCRC_workload.h"

#include <CVQCRC.h>

namespace {

template <CVQCRC::eType type>
unsigned take(const unsigned char* bytes, std::size_t count) {
    CVQCRC crc(type);
    crc.addBytes(bytes, count);
    return crc.getCRC();
}

MARLIX_BENCH("CVQCRC_CRC32", "ours", 64, 4096, 1048576) {
    bench::timeCRC(state, 0xCBF43926, take<CVQCRC::CRC32>);
}
MARLIX_BENCH("CVQCRC_CCITTFalse", "ours", 64, 4096, 1048576) {
    bench::timeCRC(state, 0x29B1, take<CVQCRC::CRC16_CCITT_FALSE>);
}
MARLIX_BENCH("CVQCRC_CCITTReflected", "ours", 64, 4096, 1048576) {
    bench::timeCRC(state, 0x1DBA, take<CVQCRC::CRC16_CCITT_REFLECTED>);
}
MARLIX_BENCH("CVQCRC_XModem", "ours", 64, 4096, 1048576) {
    bench::timeCRC(state, 0x31C3, take<CVQCRC::CRC16_XMODEM>);
}

}  // namespace
