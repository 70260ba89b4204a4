// Concerns: recognising options and their values in all spellings; switching "/" off for good; counts that are taken
// for corrupt; files with arguments, nested, endless, missing, too long; the full table; addresses that stay; threads
// that ask first at the same moment; before main and at exit. The arguments are read once in a process, so each test
// puts its own in place in a child.
#include <VQCommandLineOptions.h>

#include "MemoryTesting.h"
#include "support/AssertionLog.h"
#include "support/ChildProcess.h"
#include "support/SlogCapture.h"
#include "support/TemporaryFolder.h"
#include "support/VirtualSlot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <process.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <typeinfo>
#include <vector>

namespace {

using namespace VQCommandLineOptions;
using testing::ElementsAre;
using testing::IsEmpty;

using Arguments = std::vector<std::string>;

/// Puts arguments in the place of the process's own.
class PlacedArguments {
public:
    explicit PlacedArguments(Arguments arguments) : mArguments(std::move(arguments)) {
        for (std::string& argument : mArguments)
            mPointers.push_back(argument.data());
        mPointers.push_back(nullptr);
        _argv = mPointers.data();
        _argc = static_cast<int>(mArguments.size());
    }

    char** pointers() { return mPointers.data(); }

private:
    Arguments mArguments;
    std::vector<char*> mPointers;
};

void inProcess(const std::function<void()>& body) {
    const support::ChildResult child = support::runInChild(body);
    EXPECT_TRUE(child.exitedWith(0)) << child;
}

/// Runs `body` in a process of these arguments.
void withArguments(const Arguments& arguments, const std::function<void()>& body) {
    inProcess([&] {
        const PlacedArguments placed(arguments);
        body();
    });
}

Arguments allArguments() {
    Arguments arguments;
    for (int i = 0; i < getARGC(); ++i)
        arguments.push_back(getARG(i) != nullptr ? getARG(i) : "(null)");
    return arguments;
}

/// What is logged, by severity and text, without the process id.
std::vector<std::string> linesOf(support::SlogCapture& log) {
    std::vector<std::string> lines;
    for (const support::LoggedRecord& record : log.records())
        lines.push_back(std::to_string(record.severity) + record.text.substr(record.text.find(':')));
    return lines;
}

constexpr char kCorrupt[] = "4: VQCommandLineOptions: _argc corrupt due to bug in statically linked libc on ARM";
constexpr char kNotEvaluated[] = "4: VQCommandLineOptions: command line arguments will NOT be evaluated";

TEST(VQCommandLineOptions, OptionsAreRecognisedWithTheirValues) {
    withArguments({"prog", "-v", "--level=3", "/out", "file"}, [] {
        EXPECT_EQ(5, getARGC());
        EXPECT_TRUE(isOptionSet("v"));
        EXPECT_STREQ("3", getOptionArg("level"));
        EXPECT_STREQ("file", getOptionArg("out"));
        EXPECT_TRUE(win32PrefixesEnabled());
        disableWin32Prefixes();
        EXPECT_FALSE(win32PrefixesEnabled());
        EXPECT_EQ(nullptr, getOptionArg("out"));
        EXPECT_FALSE(isOptionSet("out"));
        EXPECT_STREQ("3", getOptionArg("level"));
    });
}

TEST(VQCommandLineOptions, SlashesStayOffWhateverIsAskedAfterwards) {
    withArguments({"prog", "/out"}, [] {
        disableWin32Prefixes();  // the first question of all
        EXPECT_EQ(2, getARGC());
        EXPECT_FALSE(isOptionSet("out"));
        EXPECT_NE(nullptr, getARGV());
        EXPECT_FALSE(win32PrefixesEnabled());
        EXPECT_FALSE(isOptionSet("/out"));
    });
    withArguments({}, [] {
        disableWin32Prefixes();
        EXPECT_EQ(0, getARGC());
        EXPECT_FALSE(win32PrefixesEnabled()) << "not even where the arguments are looked for again";
        const PlacedArguments placed({"prog", "/out", "-v"});
        EXPECT_EQ(3, getARGC());
        EXPECT_FALSE(isOptionSet("out"));
        EXPECT_TRUE(isOptionSet("v"));
    });
}

TEST(VQCommandLineOptions, AnOptionBeforeAnotherHasNoValue) {
    withArguments({"prog", "-a", "-b"}, [] {
        EXPECT_EQ(nullptr, getOptionArg("a"));
        EXPECT_EQ(nullptr, getOptionArg("b"));
        EXPECT_TRUE(isOptionSet("a"));
        EXPECT_TRUE(isOptionSet("b"));
    });
}

TEST(VQCommandLineOptions, AnyNumberOfPrefixesStandsBeforeAName) {
    withArguments({"prog", "---a", "//b", "-/-c=1", "d", "a=5"}, [] {
        for (const char* const name : {"a", "-a", "--a", "/a", "-/a"})
            EXPECT_TRUE(isOptionSet(name)) << name;
        EXPECT_TRUE(isOptionSet("b"));
        EXPECT_STREQ("1", getOptionArg("/c"));
        EXPECT_FALSE(isOptionSet("d"));
        EXPECT_EQ(nullptr, getOptionArg("a")) << "a=5 is no option";
        disableWin32Prefixes();
        EXPECT_TRUE(isOptionSet("a"));
        EXPECT_FALSE(isOptionSet("/a"));
        EXPECT_FALSE(isOptionSet("b"));
        EXPECT_FALSE(isOptionSet("c"));
        EXPECT_TRUE(isOptionSet("/-c")) << "the name is what stands behind the first dash";
        EXPECT_STREQ("1", getOptionArg("-/-c"));
    });
}

TEST(VQCommandLineOptions, ANameMatchesWholeAndToTheByte) {
    withArguments({"prog", "-level=3", "-levels", "-x=y=z", "-name="}, [] {
        EXPECT_FALSE(isOptionSet("leve"));
        EXPECT_TRUE(isOptionSet("level"));
        EXPECT_TRUE(isOptionSet("levels"));
        EXPECT_FALSE(isOptionSet("Level"));
        EXPECT_TRUE(isOptionSet("level=3"));
        EXPECT_FALSE(isOptionSet("level=4"));
        EXPECT_FALSE(isOptionSet("levelss"));
        EXPECT_STREQ("y=z", getOptionArg("x"));
        EXPECT_STREQ("z", getOptionArg("x=y"));
        EXPECT_STREQ("", getOptionArg("name"));
        EXPECT_EQ(nullptr, getOptionArg("leve"));
    });
}

TEST(VQCommandLineOptions, TheFirstOptionThatHasAValueGivesIt) {
    withArguments({"prog", "-a", "-b", "-a", "first", "-a=second", "-ab", "no", "-c"}, [] {
        EXPECT_STREQ("first", getOptionArg("a"));
        EXPECT_STREQ("no", getOptionArg("ab"));
        EXPECT_EQ(nullptr, getOptionArg("c"));
    });
    withArguments({"prog", "-n", "-5", "-m", "", "-@", "@x"}, [] {
        EXPECT_EQ(nullptr, getOptionArg("n"));
        EXPECT_TRUE(isOptionSet("5"));
        EXPECT_STREQ("", getOptionArg("m"));
    });
}

TEST(VQCommandLineOptions, TheProgramNameIsNoOption) {
    withArguments({"-v", "x"}, [] {
        EXPECT_FALSE(isOptionSet("v"));
        EXPECT_EQ(nullptr, getOptionArg("v"));
        EXPECT_STREQ("-v", getARG(0));
    });
}

TEST(VQCommandLineOptions, NullIsNoNameAndTheEmptyNameIsThatOfABarePrefix) {
    withArguments({"prog", "-v", "value"}, [] {
        EXPECT_FALSE(isOptionSet(nullptr));
        EXPECT_EQ(nullptr, getOptionArg(nullptr));
        EXPECT_FALSE(isOptionSet(""));
        EXPECT_FALSE(isOptionSet("-"));
    });
    withArguments({"prog", "--", "value"}, [] {
        EXPECT_TRUE(isOptionSet(""));
        EXPECT_STREQ("value", getOptionArg("-"));
    });
}

TEST(VQCommandLineOptions, ArgumentsHaveIndicesFromZero) {
    inProcess([] {
        PlacedArguments placed({"prog", "a", "b"});
        EXPECT_EQ(3, getARGC());
        char** const table = getARGV();
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(placed.pointers()[i], getARG(i));
            EXPECT_EQ(placed.pointers()[i], table[i]);
        }
        EXPECT_EQ(nullptr, table[3]);
        for (const int index : {-1, 3, 127, 128, 0x7FFFFFFF, -0x7FFFFFFF - 1})
            EXPECT_EQ(nullptr, getARG(index)) << index;
        const PlacedArguments later({"other"});
        EXPECT_EQ(3, getARGC()) << "the table is made once";
    });
}

TEST(VQCommandLineOptions, HolesInTheArgumentsAreNoOptions) {
    inProcess([] {
        PlacedArguments placed({"prog", "-a", "lost", "-b"});
        placed.pointers()[2] = nullptr;
        EXPECT_EQ(nullptr, getOptionArg("a"));
        EXPECT_TRUE(isOptionSet("b"));
        EXPECT_EQ(nullptr, getARG(2));
    });
}

TEST(VQCommandLineOptions, AHundredArgumentsAreBelieved) {
    support::SlogCapture log;
    withArguments(Arguments(100, "-x"), [] {
        EXPECT_EQ(100, getARGC());
        EXPECT_TRUE(isOptionSet("x"));
    });
    EXPECT_THAT(linesOf(log), IsEmpty());
}

TEST(VQCommandLineOptions, ACountOf101OrNoneIsTakenForCorrupt) {
    for (const int count : {101, 0, -1, 0x7FFFFFFF, -0x7FFFFFFF - 1}) {
        support::SlogCapture log;
        inProcess([count] {
            PlacedArguments placed(Arguments(101, "-x"));
            _argc = count;
            EXPECT_EQ(0, getARGC());
            EXPECT_EQ(0, _argc);
        });
        EXPECT_THAT(linesOf(log), ElementsAre(kCorrupt, kNotEvaluated)) << count;
    }
}

TEST(VQCommandLineOptions, Kept_EachQuestionLogsTheNoticesWhileTheCountIsCorrupt) {
    support::SlogCapture log;
    withArguments(Arguments(101, "-x"), [] {
        EXPECT_FALSE(isOptionSet("x"));
        EXPECT_EQ(nullptr, getOptionArg("x"));
        EXPECT_EQ(nullptr, getARG(0));
        EXPECT_EQ(nullptr, getARGV()[0]);
        EXPECT_TRUE(win32PrefixesEnabled());
        disableWin32Prefixes();
    });
    const std::vector<std::string> lines = linesOf(log);
    ASSERT_EQ(12U, lines.size());
    for (std::size_t i = 0; i < lines.size(); i += 2) {
        EXPECT_EQ(kCorrupt, lines[i]);
        EXPECT_EQ(kNotEvaluated, lines[i + 1]);
    }
}

TEST(VQCommandLineOptions, ArgumentsThatComeLaterAreFound) {
    inProcess([] {
        {
            const PlacedArguments none({});
            EXPECT_EQ(0, getARGC());
        }
        const PlacedArguments some({"prog", "-a"});
        EXPECT_EQ(2, getARGC());
        EXPECT_TRUE(isOptionSet("a"));
    });
}

TEST(VQCommandLineOptions, AFileAddsTheLinesOfItsSection) {
    const support::TemporaryFolder folder;
    support::SlogCapture log;
    const std::string file =
        "@" + folder.write("options", "lost\n[COMMANDLINE]\n-a # comment\n--level=3  \n\n  -b\n"
                                      "[commandline]\nlost\n[other]\nlost\n");
    withArguments({"prog", file, "-c"}, [&] {
        EXPECT_THAT(allArguments(), ElementsAre("prog", file, "-c", "-a", "--level=3", "  -b"));
        EXPECT_EQ(6, getARGC());
        EXPECT_STREQ("3", getOptionArg("level"));
        EXPECT_TRUE(isOptionSet("a"));
        EXPECT_FALSE(isOptionSet("b")) << "leading blanks stay";
        EXPECT_STREQ("-a", getARGV()[3]);
        EXPECT_EQ(nullptr, getARGV()[6]);
    });
    withArguments({"prog", "-v", file}, [&] { EXPECT_STREQ(file.c_str(), getOptionArg("v")); });
    withArguments({file, "-v"}, [&] { EXPECT_EQ(2, getARGC()) << "the program's name is no file"; });
    EXPECT_THAT(linesOf(log), IsEmpty());
}

TEST(VQCommandLineOptions, AFileThatCannotBeOpenedIsLoggedAndAddsNothing) {
    const support::TemporaryFolder folder;
    const std::string none = folder / "none";
    support::SlogCapture log;
    withArguments({"prog", "@" + none, "@", "-a"}, [&] {
        EXPECT_EQ(4, getARGC());
        EXPECT_TRUE(isOptionSet("a"));
    });
    EXPECT_THAT(linesOf(log), ElementsAre("2: Error opening command line option file " + none,
                                          "2: Error opening command line option file "));
}

TEST(VQCommandLineOptions, FilesNameFilesInTurn) {
    const support::TemporaryFolder folder;
    const std::string inner = "@" + folder.write("inner", "[COMMANDLINE]\n-inner=1\n");
    const std::string outer = "@" + folder.write("outer", "[COMMANDLINE]\n" + inner + "\n-outer\n");
    withArguments({"prog", outer, "-a"}, [&] {
        EXPECT_THAT(allArguments(), ElementsAre("prog", outer, "-a", inner, "-outer", "-inner=1"));
    });
}

TEST(VQCommandLineOptions, AFileThatNamesItselfEndsWithTheTable) {
    const support::TemporaryFolder folder;
    const std::string self = "@" + (folder / "self");
    folder.write("self", "[COMMANDLINE]\n-x\n" + self + "\n");
    support::SlogCapture log;
    withArguments({"prog", self}, [&] {
        EXPECT_EQ(128, getARGC());
        EXPECT_EQ(self, getARG(127));
        EXPECT_EQ(nullptr, getARG(128));
        EXPECT_EQ(nullptr, getARGV()[128]);
    });
    EXPECT_THAT(linesOf(log), IsEmpty());
}

TEST(VQCommandLineOptions, ArgumentsBeyondTheTableAreDropped) {
    const support::TemporaryFolder folder;
    std::string bytes = "[COMMANDLINE]\n";
    for (int i = 0; i < 50; ++i)
        bytes += "-n" + std::to_string(i) + '\n';
    Arguments arguments(100, "-x");
    arguments[99] = "@" + folder.write("options", bytes);
    withArguments(arguments, [] {
        EXPECT_EQ(128, getARGC());
        EXPECT_TRUE(isOptionSet("n27"));
        EXPECT_FALSE(isOptionSet("n28"));
        CommandLineConfigParser handler;
        EXPECT_FALSE(handler.processConfigFileEntry(0, "-more"));
        EXPECT_EQ(128, getARGC());
        EXPECT_EQ(nullptr, getARGV()[128]);
    });
}

TEST(VQCommandLineOptions, TheHandlerTakesTextsOfAnyLengthButNotNull) {
    withArguments({"prog"}, [] {
        EXPECT_EQ(1, getARGC());
        CommandLineConfigParser handler;
        EXPECT_FALSE(handler.processConfigFileEntry(0, nullptr));
        EXPECT_EQ(1, getARGC());
        for (const std::size_t length : {0U, 1022U, 1023U, 1024U, 1025U, 5000U, 0U, 100000U}) {
            const std::string text(length, 'x');
            EXPECT_TRUE(handler.processConfigFileEntry(65535, text.c_str()));
            EXPECT_EQ(text, getARG(getARGC() - 1));
        }
        EXPECT_EQ(9, getARGC());
    });
}

TEST(VQCommandLineOptions, Kept_ArgumentsStayAtTheirAddress) {
    withArguments({"prog"}, [] {
        EXPECT_EQ(1, getARGC());
        CommandLineConfigParser handler;
        std::vector<const char*> addresses;
        for (int i = 1; i < 128; ++i) {
            const std::string text = std::to_string(i) + std::string(60, 'x');
            ASSERT_TRUE(handler.processConfigFileEntry(0, text.c_str()));
            addresses.push_back(getARG(i));
        }
        for (int i = 1; i < 128; ++i) {
            EXPECT_EQ(addresses[std::size_t(i) - 1], getARG(i));
            EXPECT_EQ(std::to_string(i) + std::string(60, 'x'), getARG(i));
        }
        EXPECT_EQ(addresses[0] + std::strlen(addresses[0]) + 1, addresses[1]) << "one after the other";
    });
}

TEST(VQCommandLineOptions, WithoutMemoryAnArgumentIsAnAssertionAndIsLeftOut) {
    if (memorytest::kIsSanitized || support::isEmulated())
        GTEST_SKIP() << "the memory of this process cannot be limited";
    withArguments({"prog"}, [] {
        EXPECT_EQ(1, getARGC());
        const std::string text(64 << 20, 'x');
        support::AssertionLog log;
        rlimit before;
        getrlimit(RLIMIT_AS, &before);
        const rlimit little = {64 << 20, before.rlim_max};
        ASSERT_EQ(0, setrlimit(RLIMIT_AS, &little));
        CommandLineConfigParser handler;
        const bool added = handler.processConfigFileEntry(0, text.c_str());
        setrlimit(RLIMIT_AS, &before);
        EXPECT_FALSE(added);
        EXPECT_THAT(log.takeSites(), ElementsAre("VQCommandLineOptions:300"));
        EXPECT_EQ(1, getARGC());
        EXPECT_TRUE(handler.processConfigFileEntry(0, "-a"));
        EXPECT_TRUE(isOptionSet("a"));
    });
}

TEST(VQCommandLineOptions, ThreadsThatAskFirstGetTheSameTable) {
    const support::TemporaryFolder folder;
    const std::string file = "@" + folder.write("options", "[COMMANDLINE]\n-a\n-b=1\n");
    for (int round = 0; round < 10; ++round) {
        withArguments({"prog", file}, [] {
            bool failed = false;
            std::vector<std::thread> threads;
            for (int i = 0; i < 8; ++i) {
                threads.emplace_back([&] {
                    const char* const value = getOptionArg("b");
                    if (getARGC() != 4 || value == nullptr || *value != '1')
                        __atomic_store_n(&failed, true, __ATOMIC_RELAXED);
                });
            }
            for (std::thread& thread : threads)
                thread.join();
            EXPECT_FALSE(failed);
        });
    }
}

TEST(VQCommandLineOptions, AForkedChildHasTheTable) {
    const support::TemporaryFolder folder;
    const std::string file = "@" + folder.write("options", "[COMMANDLINE]\n-a\n");
    withArguments({"prog", file}, [&] {
        EXPECT_EQ(3, getARGC());
        inProcess([] { EXPECT_TRUE(isOptionSet("a")); });
    });
}

TEST(VQCommandLineOptions, TheArgumentsAreThereBeforeMainAndAtExit) {
    const support::TemporaryFolder folder;
    const std::string file = "@" + folder.write("options", "[COMMANDLINE]\n-a\n-b\n");
    const support::ChildResult child = support::runProgram(MARLIX_STARTUP_PROGRAM, {"count", file});
    EXPECT_TRUE(child.exitedWith(0)) << child;
    EXPECT_EQ("5 5 5", child.out);
}

TEST(VQCommandLineOptions, TheHandlerIsACallbackOfTheParser) {
    EXPECT_EQ(0, support::slotOf(&CommandLineConfigParser::processConfigFileEntry));
    CommandLineConfigParser handler;
    const CVQConfigFileParser::ICallback& callback = handler;
    EXPECT_EQ(typeid(CommandLineConfigParser), typeid(callback));
}

}  // namespace
