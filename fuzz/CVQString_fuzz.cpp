// Arbitrary bytes through the constructors, both stream forms, and all changes of a few strings that share buffers:
// everything that can be seen has to agree with a plain version of the string after each step.
//   Input    the first byte says how; then, for a text, all other bytes; for a sequence of changes, bytes that choose
//            and that are the texts.
#include "Fuzz.h"
#include "string/StringModel.h"

#include <cstdint>

namespace {

using fuzz::require;
using strings::bytesOf;

void requireSame(const plain::Text& expected, const CVQString& text) {
    require(expected.bytes == bytesOf(text));
    require(expected.characters == text.getCharacterCount());
    int characters = 0;
    for (auto position = text.begin(); *position.getPosition() != '\0'; ++position)
        ++characters;
    require(characters == text.end() - text.begin() || expected.bytes.find('\0') != std::string::npos);
    auto back = text.end();
    for (std::size_t steps = expected.bytes.size() + 2; steps > 0; --steps)
        --back;
    require(back.getPosition() >= text.c_str() - 1);
}

void readText(const std::string& source) {
    const plain::Text expected(source);
    requireSame(expected, CVQString(source.c_str()));
    requireSame(expected, CVQString(source.data(), source.size()));

    plain::Text all;
    all.appendValid(source);
    CVQString plainForm("old"), message("old");
    strings::MemoryStream stream(strings::lengthOf(static_cast<unsigned>(source.size())) + source);
    stream >> plainForm;
    requireSame(all, plainForm);
    stream.position = 0;
    CVQString::fromQRVStream(stream, message);
    requireSame(all, message);

    CVQString formatted;
    require(formatted.format("%s", plainForm.c_str()) == (all.upToZero().size() <= 256));
    requireSame(plain::Text(all.upToZero().substr(0, 256)), formatted);
}

/// What the input chooses; zeros once it is used up.
class Choices {
public:
    explicit Choices(std::string input) : mInput(std::move(input)) {}

    bool used() const { return mAt >= mInput.size(); }
    std::size_t below(std::size_t bound) { return used() ? 0 : static_cast<unsigned char>(mInput[mAt++]) % bound; }
    std::string bytes() {
        const std::string taken = mInput.substr(std::min(mAt + 1, mInput.size()), below(24));
        mAt += taken.size();
        return taken;
    }

private:
    std::string mInput;
    std::size_t mAt = 0;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return fuzz::prepare(fuzz::Assertions::EndTheRun);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string input(reinterpret_cast<const char*>(data + 1), size - 1);
    if (data[0] % 2 == 0) {
        readText(input);
        return 0;
    }
    Choices choices(input);
    strings::StringModel model([&](std::size_t bound) { return choices.below(bound); },
                               [&] { return choices.bytes(); });
    while (!choices.used())
        model.step();
    return 0;
}
