// Concerns: long random sequences of changes, held against the plain version step by step.
#include "StringModel.h"

#include <gtest/gtest.h>
#include <random>

namespace {

using namespace strings;

class CVQStringModel : public testing::Test {
protected:
    std::mt19937 random{424242};

    std::size_t below(std::size_t bound) { return random() % bound; }

    std::string regularPiece() {
        static const char* const kPieces[] = {
            "a", "b", " ", "%1", "%0", "\t", "ab", "%", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"};
        return kPieces[below(11)];
    }

    std::string irregularPiece() {
        static const char* const kPieces[] = {"\xC3\xC3", "\xE2\xC3\xA4", "\xF8\x80\x80\x80\x80", "\xFF", "\x80",
                                              "\xC3",     "\xE2\x82",     "\xC3\xA4\xF0"};
        return below(8) == 0 ? std::string(1, '\0') : kPieces[below(8)];
    }

    void run(std::size_t irregularOfTen) {
        const support::ScopedEnvironment noLog("NTO_SLOG", "/nonexistent");
        StringModel model([this](std::size_t bound) { return below(bound); },
                          [this, irregularOfTen] {
                              std::string bytes;
                              for (std::size_t left = below(12); left > 0; --left)
                                  bytes += below(10) < irregularOfTen ? irregularPiece() : regularPiece();
                              return bytes;
                          });
        for (int step = 0; step < 30000; ++step)
            ASSERT_NO_THROW(model.step()) << "step " << step;
    }
};

TEST_F(CVQStringModel, AgreesOnWellFormedText) {
    run(0);
}

TEST_F(CVQStringModel, AgreesOnTextWithIrregularAndInvalidPieces) {
    run(2);
}

TEST_F(CVQStringModel, AgreesOnGarbage) {
    run(10);
}

}  // namespace
