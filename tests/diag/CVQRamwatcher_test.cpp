// CVQRamwatcher: enabling, elements per key and thread, the full table, the dump, giving the tables back while they
// are in use, and forked children. Each test runs in a child, whose watcher is a new one.
#include <CVQRamwatcher.h>

#include "LoggedLines.h"
#include "MemoryTesting.h"
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <VQOperatingSystem.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <set>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace memorytest;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr unsigned kTableSize = 512;

using sElement = CVQRamwatcher::sElement;

void expectInChild(const std::function<void()>& body, const std::optional<std::string>& variable = "") {
    support::ChildOptions options;
    options.environment = {{"ENABLE_RAMWATCH", variable}, {"VQ_ENABLE_ABORT_ON_ASSERTION", std::nullopt}};
    options.environment.emplace_back("VQ_ASSERTION_BACKTRACE_DIR", "/nowhere");
    const support::ChildResult r = support::runInChild(body, options);
    EXPECT_TRUE(r.exitedWith(0)) << r;
}

unsigned own(unsigned instances) {
    return instances + static_cast<unsigned>(VQOperatingSystem::getCurrentTID()) * 100000u;
}

void drop(sElement* element) {
    __atomic_fetch_sub(&element->instances, 1u, __ATOMIC_RELEASE);
}

}  // namespace

TEST(CVQRamwatcher, IsEnabledByThePresenceOfTheVariable) {
    for (const char* value : {"", "0", "yes"}) {
        expectInChild(
            [] {
                EXPECT_FALSE(CVQRamwatcher::mIsInitialized);
                EXPECT_TRUE(CVQRamwatcher::isEnabled());
                EXPECT_TRUE(CVQRamwatcher::mIsEnabled);
                EXPECT_TRUE(CVQRamwatcher::mIsInitialized);
                EXPECT_NE(nullptr, CVQRamwatcher::elements.load());
            },
            value);
    }
    expectInChild(
        [] {
            EXPECT_FALSE(CVQRamwatcher::isEnabled());
            EXPECT_TRUE(CVQRamwatcher::mIsInitialized);
            EXPECT_EQ(nullptr, CVQRamwatcher::elements.load());
        },
        std::nullopt);
}

TEST(CVQRamwatcher, LooksAtTheVariableOnceUnlessAskedAgain) {
    expectInChild(
        [] {
            EXPECT_FALSE(CVQRamwatcher::isEnabled());
            setenv("ENABLE_RAMWATCH", "", 1);
            EXPECT_FALSE(CVQRamwatcher::isEnabled());
            EXPECT_TRUE(CVQRamwatcher::evalIsEnabled());
            EXPECT_TRUE(CVQRamwatcher::isEnabled());
            unsetenv("ENABLE_RAMWATCH");
            EXPECT_TRUE(CVQRamwatcher::isEnabled());
            EXPECT_FALSE(CVQRamwatcher::evalIsEnabled());
            EXPECT_FALSE(CVQRamwatcher::isEnabled());
        },
        std::nullopt);
}

TEST(CVQRamwatcher, AllocatesItsTablesOnceAndGivesThemBack) {
    expectInChild([] {
        const unsigned before = total();
        CVQRamwatcher::evalIsEnabled();
        const unsigned once = total() - before;
        CVQRamwatcher::evalIsEnabled();
        const unsigned twice = total() - before;
        CVQRamwatcher::releaseElements();
        const unsigned after = total();
        EXPECT_EQ(counted(8192 + 2048), once);
        EXPECT_EQ(counted(8192 + 2048), twice);
        EXPECT_EQ(before, after);
        EXPECT_EQ(nullptr, CVQRamwatcher::elements.load());
    });
}

TEST(CVQRamwatcher, IndicesCountUpFromZeroAndOnPastTheTable) {
    expectInChild([] {
        for (unsigned i = 0; i < kTableSize + 10; ++i) {
            ASSERT_EQ(i, CVQRamwatcher::getNewIndex());
        }
        EXPECT_EQ(kTableSize + 10, CVQRamwatcher::mIndex);
    });
}

TEST(CVQRamwatcher, IndicesNeverBeginAnewAtElementsThatAreInUse) {
    expectInChild([] {
        CVQRamwatcher::evalIsEnabled();
        sElement* const first = CVQRamwatcher::getElement(1);
        first->counterA = 5;
        CVQRamwatcher::mIndex = UINT_MAX - 1;
        EXPECT_EQ(UINT_MAX - 1, CVQRamwatcher::getNewIndex());
        EXPECT_EQ(UINT_MAX, CVQRamwatcher::getNewIndex());
        EXPECT_EQ(UINT_MAX, CVQRamwatcher::getNewIndex());
        EXPECT_EQ(&CVQRamwatcher::dummyElement, CVQRamwatcher::getElement(2));
        EXPECT_EQ(first, CVQRamwatcher::getElement(1));
        EXPECT_EQ(5u, first->counterA);
    });
}

TEST(CVQRamwatcher, OneElementPerKeyCountsItsInstances) {
    expectInChild([] {
        CVQRamwatcher::evalIsEnabled();
        sElement* const four = CVQRamwatcher::getElement(4);
        EXPECT_EQ(1u, four->instances);
        EXPECT_EQ(0u, four->counterA);
        EXPECT_EQ(0u, four->counterB);
        EXPECT_EQ(4u, four->key);
        sElement* const zero = CVQRamwatcher::getElement(0);
        EXPECT_NE(four, zero);
        EXPECT_EQ(four, CVQRamwatcher::getElement(4));
        EXPECT_EQ(2u, four->instances);
        EXPECT_EQ(1u, zero->instances);
        EXPECT_EQ(2u, CVQRamwatcher::mIndex);
        EXPECT_EQ(four, CVQRamwatcher::elements.load());
        EXPECT_EQ(zero, CVQRamwatcher::elements.load() + 1);
    });
}

TEST(CVQRamwatcher, EveryThreadHasElementsOfItsOwn) {
    expectInChild([] {
        CVQRamwatcher::evalIsEnabled();
        constexpr int kThreads = 8;
        constexpr unsigned kKeys = 20;
        std::vector<std::set<sElement*>> found(kThreads);
        std::atomic<int> wrong{0};
        std::atomic<int> arrived{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&, t] {
                for (int round = 0; round < 50; ++round) {
                    for (unsigned key = 0; key < kKeys; ++key) {
                        sElement* const element = CVQRamwatcher::getElement(key);
                        wrong += element->key != key || element->instances != static_cast<unsigned>(round) + 1;
                        found[static_cast<std::size_t>(t)].insert(element);
                    }
                }
                // All live at the same time, so that no thread has the id of an earlier one.
                ++arrived;
                while (arrived < kThreads) {
                    std::this_thread::yield();
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        std::set<sElement*> all;
        for (const auto& elements : found) {
            EXPECT_EQ(kKeys, elements.size());
            all.insert(elements.begin(), elements.end());
        }
        EXPECT_EQ(kThreads * kKeys, all.size());
        EXPECT_EQ(kThreads * kKeys, CVQRamwatcher::mIndex);
        EXPECT_EQ(0, wrong);
    });
}

TEST(CVQRamwatcher, The513thPairOfKeyAndThreadGetsTheDummyElement) {
    expectInChild([] {
        CVQRamwatcher::evalIsEnabled();
        for (unsigned key = 0; key < kTableSize; ++key) {
            ASSERT_EQ(CVQRamwatcher::elements.load() + key, CVQRamwatcher::getElement(key));
        }
        EXPECT_EQ(&CVQRamwatcher::dummyElement, CVQRamwatcher::getElement(1000));
        EXPECT_EQ(0u, CVQRamwatcher::dummyElement.instances);
        EXPECT_EQ(kTableSize + 1, CVQRamwatcher::mIndex);
        // Asked for again, it is not found either: the index keeps growing.
        EXPECT_EQ(&CVQRamwatcher::dummyElement, CVQRamwatcher::getElement(1000));
        EXPECT_EQ(kTableSize + 2, CVQRamwatcher::mIndex);
        EXPECT_EQ(CVQRamwatcher::elements.load() + 7, CVQRamwatcher::getElement(7));
        EXPECT_EQ(2u, CVQRamwatcher::elements.load()[7].instances);
    });
}

TEST(CVQRamwatcher, Kept_ADumpPacksThreadAndInstancesIntoOneWord) {  // id: ramwatch-packed-dump
    expectInChild([] {
        CVQRamwatcher::evalIsEnabled();
        sElement* const a = CVQRamwatcher::getElement(16);
        CVQRamwatcher::getElement(16);
        a->counterA = 11;
        a->counterB = 22;
        CVQRamwatcher::getElement(32);
        sElement out[3] = {{9, 9, 9, 9}, {9, 9, 9, 9}, {9, 9, 9, 9}};
        unsigned count = 3;
        CVQRamwatcher::dumpWatches(out, count);
        EXPECT_EQ(2u, count);
        EXPECT_EQ(own(2), out[0].instances);
        EXPECT_EQ(11u, out[0].counterA);
        EXPECT_EQ(22u, out[0].counterB);
        EXPECT_EQ(16u, out[0].key);
        EXPECT_EQ(own(1), out[1].instances);
        EXPECT_EQ(32u, out[1].key);
        EXPECT_EQ(9u, out[2].instances) << "untouched beyond the count";
    });
}

TEST(CVQRamwatcher, ADumpNamesTheThreadThatOwnsTheElement) {
    expectInChild([] {
        CVQRamwatcher::evalIsEnabled();
        unsigned expected = 0;
        std::thread([&expected] {
            CVQRamwatcher::getElement(16);
            expected = own(1);
        }).join();
        sElement out[1] = {};
        unsigned count = 1;
        CVQRamwatcher::dumpWatches(out, count);
        EXPECT_EQ(expected, out[0].instances);
        EXPECT_NE(own(1), out[0].instances);
    });
}

TEST(CVQRamwatcher, ADumpHasNoMoreRowsThanAskedFor) {
    expectInChild([] {
        CVQRamwatcher::evalIsEnabled();
        CVQRamwatcher::getElement(16);
        CVQRamwatcher::getElement(32);
        sElement out[2] = {{9, 9, 9, 9}, {9, 9, 9, 9}};
        unsigned count = 1;
        CVQRamwatcher::dumpWatches(out, count);
        EXPECT_EQ(1u, count);
        EXPECT_EQ(own(1), out[0].instances);
        EXPECT_EQ(9u, out[1].instances);
        count = 0;
        CVQRamwatcher::dumpWatches(out, count);
        EXPECT_EQ(0u, count);
    });
}

TEST(CVQRamwatcher, Kept_ADumpCountsRowsPastTheTableWhichAreEmpty) {  // id: ramwatch-count-past-table
    expectInChild([] {
        CVQRamwatcher::evalIsEnabled();
        for (unsigned key = 0; key < kTableSize + 50; ++key) {
            CVQRamwatcher::getElement(key);
        }
        std::vector<sElement> out(1000, sElement{9, 9, 9, 9});
        unsigned count = 1000;
        CVQRamwatcher::dumpWatches(out.data(), count);
        EXPECT_EQ(kTableSize + 50, count);
        EXPECT_EQ(kTableSize - 1, out[kTableSize - 1].key);
        for (unsigned i = kTableSize; i < count; ++i) {
            ASSERT_EQ(0u, out[i].instances | out[i].counterA | out[i].counterB | out[i].key) << i;
        }
        EXPECT_EQ(9u, out[count].instances);
    });
}

TEST(CVQRamwatcher, ADumpIntoNothingIsAnAssertion) {
    support::SlogCapture log;
    expectInChild([] {
        unsigned count = 3;
        CVQRamwatcher::dumpWatches(nullptr, count);
        EXPECT_EQ(3u, count);
    });
    ASSERT_EQ(2u, log.records().size());
    EXPECT_THAT(log.records()[0].text, HasSubstr("CVQRamWatch:134: ASSERTION failed"));
}

TEST(CVQRamwatcher, WithoutTablesEverybodyGetsTheDummyElementAndDumpsAreEmpty) {
    const auto check = [] {
        EXPECT_EQ(&CVQRamwatcher::dummyElement, CVQRamwatcher::getElement(5));
        EXPECT_EQ(0u, CVQRamwatcher::dummyElement.instances);
        sElement out[4] = {};
        unsigned count = 4;
        CVQRamwatcher::dumpWatches(out, count);
        EXPECT_EQ(CVQRamwatcher::mIndex, count);
        EXPECT_EQ(0u, out[0].instances);
    };
    expectInChild(check, std::nullopt);
    expectInChild([&check] {
        CVQRamwatcher::evalIsEnabled();
        drop(CVQRamwatcher::getElement(5));
        CVQRamwatcher::releaseElements();
        check();
    });
}

TEST(CVQRamwatcher, ReleaseDoesNothingWhileDisabled) {
    expectInChild([] {
        CVQRamwatcher::evalIsEnabled();
        unsetenv("ENABLE_RAMWATCH");
        CVQRamwatcher::evalIsEnabled();
        CVQRamwatcher::releaseElements();
        EXPECT_NE(nullptr, CVQRamwatcher::elements.load());
    });
}

TEST(CVQRamwatcher, AnElementInUseOutlivesTheReleaseAndComesBackWithTheTables) {
    expectInChild([] {
        CVQRamwatcher::evalIsEnabled();
        sElement* const element = CVQRamwatcher::getElement(5);
        element->counterA = 123;
        CVQRamwatcher::releaseElements();
        EXPECT_EQ(nullptr, CVQRamwatcher::elements.load());
        CVQRamwatcher::releaseElements();
        EXPECT_EQ(123u, element->counterA);
        ++element->counterA;
        CVQRamwatcher::evalIsEnabled();
        EXPECT_EQ(element, CVQRamwatcher::getElement(5));
        EXPECT_EQ(124u, element->counterA);
        EXPECT_EQ(2u, element->instances);
        drop(element);
        drop(element);
        CVQRamwatcher::releaseElements();
        EXPECT_EQ(nullptr, CVQRamwatcher::elements.load());
    });
}

TEST(CVQRamwatcher, TablesThatStayedAllocatedComeBackWithoutMemory) {
    if (kIsSanitized || support::isEmulated()) {
        GTEST_SKIP() << "a sanitizer or an emulator needs the address space itself";
    }
    expectInChild([] {
        CVQRamwatcher::evalIsEnabled();
        sElement* const element = CVQRamwatcher::getElement(5);
        CVQRamwatcher::releaseElements();
        emptyHeap();
        CVQRamwatcher::evalIsEnabled();
        std::_Exit(CVQRamwatcher::getElement(5) == element ? 0 : 1);
    });
}

TEST(CVQRamwatcher, WithoutMemoryForTheTablesTheProcessExitsThoughItReleasesThemAtExit) {
    if (kIsSanitized || support::isEmulated()) {
        GTEST_SKIP() << "a sanitizer or an emulator needs the address space itself";
    }
    support::SlogCapture log;
    support::ChildOptions options;
    options.deadline = std::chrono::seconds(5);
    options.environment = {{"ENABLE_RAMWATCH", ""},
                           {"VQ_ASSERTION_BACKTRACE_DIR", "/nowhere"},
                           {"VQ_ENABLE_ABORT_ON_FAILED_MEMORY_ALLOCATION", std::nullopt}};
    const support::ChildResult r = support::runInChild(
        [] {
            std::atexit([] { CVQRamwatcher::releaseElements(); });
            emptyHeap();
            CVQRamwatcher::evalIsEnabled();
        },
        options);
    EXPECT_TRUE(r.exitedWith(EXIT_FAILURE)) << r;
    EXPECT_THAT(loggedLines(log),
                ElementsAre(loggedLine(r.pid, VQSyslog::CRITICAL,
                                       "failed to allocate 8192 bytes (err: " + std::to_string(ENOMEM) + ")"),
                            loggedLine(r.pid, VQSyslog::INFO, "terminating process using exit(EXIT_FAILURE)")));
}

TEST(CVQRamwatcher, ThreadsUseElementsWhileOthersGiveTheTablesBackAndDump) {
    expectInChild([] {
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        for (int t = 0; t < 3; ++t) {
            threads.emplace_back([&stop] {
                while (!stop) {
                    for (unsigned key = 0; key < 5; ++key) {
                        sElement* const element = CVQRamwatcher::getElement(key);
                        if (element != &CVQRamwatcher::dummyElement) {
                            __atomic_fetch_add(&element->counterA, 1u, __ATOMIC_RELAXED);
                            drop(element);
                        }
                    }
                }
            });
        }
        threads.emplace_back([&stop] {
            sElement out[600];
            while (!stop) {
                unsigned count = 600;
                CVQRamwatcher::dumpWatches(out, count);
            }
        });
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
        while (std::chrono::steady_clock::now() < end) {
            CVQRamwatcher::evalIsEnabled();
            std::this_thread::yield();
            CVQRamwatcher::releaseElements();
        }
        stop = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
}

TEST(CVQRamwatcher, AForkedChildWatchesOnWhileItsParentsThreadsDo) {
    if (!kHeapSurvivesFork) {
        GTEST_SKIP() << "the sanitizer's heap stays locked in the child";
    }
    expectInChild([] {
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        for (int t = 0; t < 2; ++t) {
            threads.emplace_back([&stop] {
                while (!stop) {
                    CVQRamwatcher::evalIsEnabled();
                    drop(CVQRamwatcher::getElement(5));
                    CVQRamwatcher::releaseElements();
                }
            });
        }
        for (int i = 0; i < 50; ++i) {
            const support::ChildResult r = support::runInChild([] {
                CVQRamwatcher::evalIsEnabled();
                const bool found = CVQRamwatcher::getElement(6) != nullptr;
                CVQRamwatcher::releaseElements();
                _exit(found ? 0 : 1);
            });
            ASSERT_TRUE(r.exitedWith(0)) << r;
        }
        stop = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
}
