// Concerns: threads that share a buffer; use before main, while exiting and in a forked child; no memory;
// capacities and texts that only a 64-bit host can ask for.
#include "StringInternals.h"
#include "support/ChildProcess.h"
#include "support/Sanitizers.h"

#include <CVQAsserter.h>

#include <atomic>
#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace strings;
using testing::Contains;
using testing::IsEmpty;
using testing::Pair;

constexpr bool k64Bit = sizeof(void*) == 8;

// ---- threads

TEST(CVQString, IsCopiedChangedAndDroppedByManyThreadsAtOnce) {
    const std::string source = "shared \xC3\xA4 text ";
    CVQString text(source.c_str());
    std::vector<std::thread> threads;
    std::atomic<int> wrong{0};
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&wrong, &source, number, own = text]() mutable {
            for (int round = 0; round < 5000; ++round) {
                CVQString copy(own);
                CVQString changed(copy);
                changed.append(number % 2 == 0 ? "even" : "odd");
                changed.truncate(3);
                CVQString assigned;
                assigned = copy;
                own = CVQString(assigned);
                wrong += copy == assigned && bytesOf(copy) == source && bytesOf(changed) == "sha" ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    threads.clear();
    EXPECT_EQ(0, wrong);
    EXPECT_EQ(1u, ownersOf(text));
    EXPECT_EQ(source, bytesOf(text));
}

TEST(CVQString, IsFreedByExactlyOneOfTheThreadsThatDropIt) {
    // A block that nobody freed would show up in the heap's size, one freed twice would end the process.
    const std::string source(50000, 'x');
    const auto before = mallinfo2().uordblks;
    constexpr int kThreads = 4, kRounds = 1000;
    std::vector<CVQString> held(kThreads);
    std::atomic<int> ready{0}, round{0};
    std::vector<std::thread> threads;
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&, number] {
            for (int mine = 1; mine <= kRounds; ++mine) {
                while (round.load() < mine)
                    std::this_thread::yield();
                held[static_cast<std::size_t>(number)] = CVQString();
                ++ready;
            }
        });
    }
    for (int mine = 1; mine <= kRounds; ++mine) {
        {
            const CVQString text(source.c_str());
            for (CVQString& share : held)
                share = text;
        }
        ready = 0;
        ++round;
        while (ready.load() < kThreads)
            std::this_thread::yield();
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_LT(mallinfo2().uordblks, before + 20 * source.size());
}

TEST(CVQString, WritesInPlaceOnlyBehindAllThatOtherOwnersDid) {
    for (int round = 0; round < 200; ++round) {
        CVQString text("a text that others read");
        text.reserve(1000);
        std::atomic<unsigned> hash{0};
        std::thread reader([&hash, share = text]() mutable {
            hash = getHashValueForString(share);
            share = CVQString();
        });
        // As soon as the reader has dropped its share, this writes into the bytes that it read.
        while (text.getByteLength() < 900)
            text.append("x");
        reader.join();
        EXPECT_EQ(getHashValueForString("a text that others read"), hash);
    }
}

// ---- the life of a process

/// Built before the constructors of all other units, this library's users' included.
struct Early {
    CVQString built{"\xC3\xA4 text that was validated before main, longer than any vector of bytes \xE2\x82\xAC"};
    CVQString empty{CVQString::null};
    CVQString formatted;
    Early() {
        built.append(CVQString::null);
        formatted.format("%d", 42);
    }
};
__attribute__((init_priority(101))) const Early sEarly;

TEST(CVQString, WorksBeforeMain) {
    EXPECT_EQ(75u, sEarly.built.getByteLength());
    EXPECT_EQ(72u, sEarly.built.getCharacterCount());
    EXPECT_EQ("42", bytesOf(sEarly.formatted));
    EXPECT_EQ(&CVQString::nullData, &blockOf(sEarly.empty));
}

TEST(CVQString, WorksWhileTheProcessExits) {
    struct Late {
        CVQString text{"late"};
        ~Late() {
            text.append(" \xC3\xA4 ").append(CVQString("text") + CVQString::null);
            CVQString shown;
            shown.format("<%s>", text.c_str());
            EXPECT_EQ(shown.getByteLength(), write(STDOUT_FILENO, shown.c_str(), shown.getByteLength()));
        }
    };
    const auto child = support::runInChild([] {
        static const Late late;
        std::exit(0);
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
    EXPECT_EQ("<late \xC3\xA4 text>", child.out);
}

TEST(CVQString, WorksInAForkedChild) {
    CVQString text("parent");
    const CVQString copy(text);
    const auto child = support::runInChild([&] {
        text.append(" and child");
        EXPECT_EQ("parent and child", bytesOf(text));
        EXPECT_EQ(1u, ownersOf(copy));
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
    EXPECT_EQ("parent", bytesOf(text));
    EXPECT_EQ(2u, ownersOf(copy));
}

TEST(CVQString, EndsTheProcessWhereThereIsNoMemory) {
    if (support::kIsSanitized || support::isEmulated())
        GTEST_SKIP() << "the address space cannot be limited here";
    Reports reports;
    const auto child = support::runInChild([] {
        const rlimit limit{1u << 30, 1u << 30};
        EXPECT_EQ(0, setrlimit(RLIMIT_AS, &limit));
        CVQString text("text");
        text.reserve(0x70000000u);
    });
    EXPECT_TRUE(child.exitedWith(EXIT_FAILURE)) << child;
    std::vector<std::string> texts;
    for (const auto& line : reports.lines())
        texts.push_back(line.second);
    EXPECT_THAT(texts, Contains(testing::HasSubstr("failed to allocate 1879048212 bytes (err: 12)")));
}

// ---- capacities at the end of 32 bits

TEST(CVQString, TakesTheLargestValidCapacityWithoutAReport) {
    if (!k64Bit)
        GTEST_SKIP() << "no such block here";
    Reports reports;
    const auto child = support::runInChild([] {
        EXPECT_EQ(kFirstInvalid - 1, CVQString(kFirstInvalid - 1).getCapacity());
        CVQString text("text");
        text.reserve(kFirstInvalid - 1);
        EXPECT_EQ(kFirstInvalid - 1, text.getCapacity());
        const CVQString copy(text);
        text.clear();
        EXPECT_EQ(kFirstInvalid - 1, text.getCapacity());
    });
    EXPECT_TRUE(child.exitedWith(0)) << child;
    EXPECT_THAT(reports.lines(), IsEmpty());
}

TEST(CVQString, Kept_AnInvalidCapacityIsAskedForAllTheSame) {  // string-asked-anyway
    Reports reports;
    const auto child = support::runInChild([] {
        CVQString text("text");
        text.reserve(kFirstInvalid);
        EXPECT_EQ(kFirstInvalid, text.getCapacity());
        EXPECT_EQ("text", bytesOf(text));
        text.append("!");
        EXPECT_EQ("text!", bytesOf(text));
    });
    const auto lines = reports.lines();
    const auto expected = Reports::assertion(1263, "CVQString::addReference: Capacity -20 not valid!");
    ASSERT_GE(lines.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(expected[i].first, lines[i].first);
        EXPECT_THAT(lines[i].second, testing::EndsWith(expected[i].second));
    }
    if (k64Bit) {
        EXPECT_TRUE(child.exitedWith(0)) << child;
    } else {
        EXPECT_TRUE(child.exitedWith(EXIT_FAILURE)) << child;  // never a block that is too short
        EXPECT_THAT(lines[2].second, testing::EndsWith("failed to allocate 4294967295 bytes (err: 12)"));
    }
}

TEST(CVQString, ReportsAnInvalidCapacityOfItsOwnBufferWhereItReplacesAndTrims) {
    Reports reports;
    CVQString text(" abc ");
    blockOf(text).mCapacity = kFirstInvalid;  // as if it had been granted
    auto position = text.begin();
    text.replace(position, 1, "x");
    EXPECT_EQ("xabc ", bytesOf(text));
    text.trim();
    EXPECT_EQ("xabc", bytesOf(text));
    text.replaceAll("b", "c");
    EXPECT_EQ("xacc", bytesOf(text));
    auto expected = Reports::assertion(538, "CVQString::replace: Capacity -20 not valid!");
    for (const auto& line : Reports::assertion(831, "CVQString::trim: Capacity -20 not valid!"))
        expected.push_back(line);
    for (const auto& line : Reports::assertion(538, "CVQString::replace: Capacity -20 not valid!"))
        expected.push_back(line);
    EXPECT_EQ(expected, reports.lines());
}

TEST(CVQString, ReportsAnInvalidCapacityOfTheBlockThatItTakesToTrimASharedText) {
    Reports reports;
    const auto child = support::runInChild([] {
        CVQString text(" abc ");
        const CVQString copy(text);
        blockOf(text).mCapacity = 0xFFFFFFFFu;
        EXPECT_EQ("abc", bytesOf(text.trim()));
        EXPECT_EQ(0xFFFFFFFDu, text.getCapacity());
        EXPECT_EQ(" abc ", bytesOf(copy));
    });
    EXPECT_TRUE(child.exitedWith(k64Bit ? 0 : EXIT_FAILURE)) << child;
    auto expected = Reports::assertion(831, "CVQString::trim: Capacity -1 not valid!");
    for (const auto& line : Reports::assertion(1263, "CVQString::addReference: Capacity -3 not valid!"))
        expected.push_back(line);
    const auto lines = reports.lines();
    ASSERT_GE(lines.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(expected[i].first, lines[i].first);
        EXPECT_THAT(lines[i].second, testing::EndsWith(expected[i].second));
    }
}

TEST(CVQString, Kept_ClearReportsAnInvalidCapacityInAddReferencesName) {  // string-clear-message
    Reports reports;
    const auto child = support::runInChild([] {
        CVQString text("text");
        const CVQString copy(text);
        blockOf(text).mCapacity = kFirstInvalid;
        text.clear();
        EXPECT_TRUE(text.isEmpty());
        EXPECT_EQ(kFirstInvalid, text.getCapacity());
    });
    EXPECT_TRUE(child.exitedWith(k64Bit ? 0 : EXIT_FAILURE)) << child;
    const auto lines = reports.lines();
    ASSERT_GE(lines.size(), 1u);
    EXPECT_THAT(
        lines[0].second,
        testing::EndsWith("CVQString:954: ASSERTION \"CVQString::addReference: Capacity -20 not valid!\" failed"));
}

TEST(CVQString, RefusesATextOf4GiBAndMore) {
    if (!k64Bit)
        GTEST_SKIP() << "no such text here";
    // The same 16 MiB all over, and a page of zero bytes behind them.
    constexpr std::size_t kPiece = std::size_t{1} << 24, kPieces = 256;
    const int file = memfd_create("text", MFD_CLOEXEC);
    ASSERT_EQ(0, ftruncate(file, kPiece));
    auto* const area = static_cast<char*>(mmap(nullptr, kPieces * kPiece + 4096, PROT_READ | PROT_WRITE,
                                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    ASSERT_NE(MAP_FAILED, static_cast<void*>(area));
    for (std::size_t i = 0; i < kPieces; ++i)
        ASSERT_NE(MAP_FAILED,
                  mmap(area + i * kPiece, kPiece, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0));
    std::memset(area, 'a', kPiece);

    Reports reports;
    CVQString text("text");
    text.append(area);
    EXPECT_EQ("text", bytesOf(text));
    EXPECT_EQ(Reports::assertion(1263, "CVQString::addReference: Capacity -1 not valid!"), reports.lines());
    EXPECT_EQ("texta", bytesOf(text.append(area, 1)));

    munmap(area, kPieces * kPiece + 4096);
    close(file);
}

}  // namespace
