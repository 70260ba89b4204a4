// The Base64 codecs that one would pick instead of VQBase64, all into buffers that are ready.
#include "CVQCRC_workload.h"

#include <cstring>
#include <string>

#if BENCH_OPENSSL
#include <openssl/evp.h>
#endif
#if BENCH_GLIB
#include <glib.h>
#endif

namespace {

struct Work {
    explicit Work(benchmark::State& state)
        : bytes(bench::someBytes(static_cast<std::size_t>(state.range(0)) / 4 * 3)),
          text(static_cast<std::size_t>(state.range(0)) + 8), back(bytes.size() + 8) {
        static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (std::size_t i = 0; i < bytes.size(); i += 3) {
            const unsigned group = unsigned{bytes[i]} << 16 | unsigned{bytes[i + 1]} << 8 | bytes[i + 2];
            for (unsigned place = 0; place < 4; ++place)
                right += kAlphabet[group >> (18 - 6 * place) & 63];
        }
    }
    void checkText() const { bench::check(right.compare(0, right.size(), text.data(), right.size()) == 0, "text"); }
    void checkBytes() const { bench::check(std::memcmp(bytes.data(), back.data(), bytes.size()) == 0, "bytes"); }

    const std::vector<unsigned char> bytes;
    std::string right;
    std::vector<char> text;
    std::vector<unsigned char> back;
};

#if BENCH_OPENSSL
MARLIX_BENCH("VQBase64_Encode", "OpenSSL EVP", 4096, 1048576) {
    Work work(state);
    for (auto _ : state) {
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(work.text.data()), work.bytes.data(),
                        int(work.bytes.size()));
        benchmark::ClobberMemory();
    }
    work.checkText();
}
MARLIX_BENCH("VQBase64_Decode", "OpenSSL EVP", 4096, 1048576) {
    Work work(state);
    for (auto _ : state) {
        EVP_DecodeBlock(work.back.data(), reinterpret_cast<const unsigned char*>(work.right.data()),
                        int(work.right.size()));
        benchmark::ClobberMemory();
    }
    work.checkBytes();
}
#endif

#if BENCH_GLIB
MARLIX_BENCH("VQBase64_Encode", "GLib", 4096, 1048576) {
    Work work(state);
    for (auto _ : state) {
        gint first = 0, second = 0;
        const gsize length =
            g_base64_encode_step(work.bytes.data(), work.bytes.size(), FALSE, work.text.data(), &first, &second);
        g_base64_encode_close(FALSE, work.text.data() + length, &first, &second);
        benchmark::ClobberMemory();
    }
    work.checkText();
}
MARLIX_BENCH("VQBase64_Decode", "GLib", 4096, 1048576) {
    Work work(state);
    for (auto _ : state) {
        gint first = 0;
        guint second = 0;
        g_base64_decode_step(work.right.data(), work.right.size(), work.back.data(), &first, &second);
        benchmark::ClobberMemory();
    }
    work.checkBytes();
}
#endif

MARLIX_BENCH("VQBase64_Encode", "floor: memcpy of the text", 4096, 1048576) {
    Work work(state);
    for (auto _ : state) {
        std::memcpy(work.text.data(), work.right.data(), work.right.size());
        benchmark::ClobberMemory();
    }
    work.checkText();
}
MARLIX_BENCH("VQBase64_Decode", "floor: memcpy of the bytes", 4096, 1048576) {
    Work work(state);
    for (auto _ : state) {
        std::memcpy(work.back.data(), work.bytes.data(), work.bytes.size());
        benchmark::ClobberMemory();
    }
    work.checkBytes();
}

}  // namespace
