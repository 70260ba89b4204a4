// Arbitrary texts, decoded into destinations of the size that the first two bytes choose, held against the plain
// decoder of the tests: the count, and every byte of the destination. What was decoded is encoded again and has to
// come back.
#include "Fuzz.h"
#include "stream/PlainBase64.h"

#include <VQBase64.h>

#include <cstdint>
#include <memory>

namespace {

using fuzz::require;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return fuzz::prepare(fuzz::Assertions::EndTheRun);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2)
        return 0;
    const std::string given(reinterpret_cast<const char*>(data + 2), size - 2);
    const std::string text = given.substr(0, given.find('\0'));
    const std::size_t room = 1 + (data[0] | data[1] << 8) % (text.size() + 4);

    // Heap blocks of just the size, so that the address sanitizer sees every byte too many.
    const std::unique_ptr<char[]> block(new char[text.size() + 1]);
    std::copy_n(text.c_str(), text.size() + 1, block.get());
    constexpr unsigned char kFill = 0xEE;
    const std::unique_ptr<unsigned char[]> bytes(new unsigned char[room]);
    std::fill_n(bytes.get(), room, kFill);

    const std::size_t count = VQBase64::decode(block.get(), bytes.get(), room);
    const plain::Decoded expected = plain::decode(text, room, kFill);
    require(count == expected.count, "the count");
    require(std::equal(expected.destination.begin(), expected.destination.end(), bytes.get()), "the destination");

    const std::size_t length = (count + 2) / 3 * 4;
    const std::unique_ptr<char[]> again(new char[length + 1]);
    VQBase64::encode(bytes.get(), count, again.get(), length + 1);
    require(again[length] == '\0', "the terminator");
    require(VQBase64::calcDecodeLength(again.get()) == count, "the calculated length");
    // Room for the whole last group: a destination that is full before looks at no padding.
    const std::unique_ptr<unsigned char[]> back(new unsigned char[count + 3]);
    require(VQBase64::decode(again.get(), back.get(), count + 3) == count, "the count of the way back");
    require(std::equal(back.get(), back.get() + count, bytes.get()), "the way there and back");
    return 0;
}
