// The debugger's printers, in the debugger: each kind of value as it is shown, loaded with the library as its users
// have it; values that are damaged by the debugger itself; another processor's values through the emulator.
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using namespace support;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

using Words = std::vector<std::string>;

class GdbPrinters : public testing::Test {
protected:
    void SetUp() override {
        if (std::string(GDB).empty() || std::string(GDB).find("NOTFOUND") != std::string::npos)
            GTEST_SKIP() << "there is no debugger for this processor";
    }

    /// What the debugger says to `commands` where the program has made the values of `group`.
    std::string session(const std::string& group, const Words& commands) {
        Words command = {GDB, "-nx", "-batch-silent", "-iex",
                         std::string("add-auto-load-safe-path ") + PRINTERS_FOLDER};
        const auto add = [&command](const std::string& line) { command.insert(command.end(), {"-ex", line}); };
        for (const char* setting :
             {"width 0", "height 0", "host-charset UTF-8", "debuginfod enabled off", "print thread-events off"})
            add(std::string("set ") + setting);
        add("break valuesAreReady");
        if (isEmulated())
            startEmulated(group, add);
        else
            add("run " + group);
        add("up");
        add("set logging file " + (mFolder / "log"));
        add("set logging enabled on");
        for (const std::string& line : commands)
            add(line);
        add("set logging enabled off");
        add("kill");
        command.push_back(GDB_VALUES);
        ChildOptions options;
        options.environment = {{"LC_ALL", "C.UTF-8"}, {"DEBUGINFOD_URLS", std::nullopt}};
        unlink((mFolder / "log").c_str());  // the debugger would append to it
        mResult = ChildProcess(command, options).finish();
        return access((mFolder / "log").c_str(), R_OK) == 0 ? readFile(mFolder / "log") : "";
    }

    /// What `print` shows of each expression. Words that begin with "set " are commands before the next of them.
    Words shown(const std::string& group, const Words& expressions) {
        Words commands;
        for (const std::string& expression : expressions)
            commands.push_back(expression.rfind("set ", 0) == 0 ? expression : "output " + expression);
        for (std::size_t i = 0; i < commands.size(); ++i)
            if (commands[i].rfind("output ", 0) == 0)
                commands.insert(commands.begin() + static_cast<std::ptrdiff_t>(++i), "echo \\n");
        return linesOf(session(group, commands));
    }

    static Words linesOf(const std::string& log) {
        Words lines;
        for (std::size_t at = 0, end; (end = log.find('\n', at)) != std::string::npos; at = end + 1)
            lines.push_back(log.substr(at, end - at));
        return lines;
    }

    struct SRow {
        const char* expression;
        const char* shown;
    };
    void expectShown(const std::string& group, const std::vector<SRow>& rows) {
        Words expressions;
        for (const SRow& row : rows)
            expressions.push_back(row.expression);
        Words expected;
        for (const SRow& row : rows)
            if (row.shown != nullptr)
                expected.push_back(row.shown);
        const Words actual = shown(group, expressions);
        EXPECT_EQ(expected.size(), actual.size()) << mResult;
        for (std::size_t i = 0; i < expected.size() && i < actual.size(); ++i)
            EXPECT_EQ(expected[i], actual[i]) << mResult;
    }

    TemporaryFolder mFolder;
    ChildResult mResult;

private:
    template <class Add>
    void startEmulated(const std::string& group, Add add) {
        const Words emulated = commandFor(GDB_VALUES, {group});
        Words command = {emulated[0], "-g", mFolder / "gdb"};
        command.insert(command.end(), emulated.begin() + 1, emulated.end());
        mEmulator.emplace(command);
        for (int i = 0; i < 500 && access((mFolder / "gdb").c_str(), F_OK) != 0; ++i)
            usleep(10000);
        add("set sysroot " + emulated.at(2));
        add(std::string("set solib-search-path ") + PRINTERS_FOLDER);
        add("target remote " + (mFolder / "gdb"));
        add("continue");
    }

    std::optional<ChildProcess> mEmulator;
};

TEST_F(GdbPrinters, ShowTexts) {
    std::string many = "\"";
    for (int i = 0; i < 20; ++i)
        many += "0123456789";
    many += "\"...";
    expectShown("strings", {{"text", "\"Grüße\""},
                            {"empty", "\"\""},
                            {"reference", "\"Grüße\""},
                            {"quoted", R"("a \"b\"\\\n")"},
                            {"withZero", R"("a\000b")"},
                            {"longText", many.c_str()},
                            {"path", "\"/usr/lib\""},
                            {"textStream", "\"streamed\""},
                            {"noStream", "\"\""},
                            {"classId", "\"CThing\""},
                            {"version", "1.2.3"},
                            {"nested", R"({name = "inner", number = 7})"}});
}

TEST_F(GdbPrinters, SurviveDamagedTexts) {
    expectShown("strings", {{"set var longText.mData = (SVQStringData*)16", nullptr},
                            {"longText", "<damaged: Cannot access memory at address 0x18>"},
                            {"set var longText.mData = 0", nullptr},
                            {"longText", "<damaged: Cannot access memory at address 0x8>"},
                            {"set var withZero.mData->mByteLength = 0xFFFFFFF0", nullptr},
                            {"withZero", "<damaged: 4294967280 of 3 bytes>"},
                            {"set var textStream.mWrite = textStream.mBegin - 1", nullptr},
                            {"textStream", "<damaged: -1 of 128 bytes>"},
                            {"set var nested.name.mData = 0", nullptr},
                            {"nested", "{name = <damaged: Cannot access memory at address 0x8>, number = 7}"}});
}

TEST_F(GdbPrinters, ReadNoFurtherThanThereIsMemory) {
    const Words lines = shown("strings", {"set var withZero.mData->mCapacity = 0xFFFFFFF0",
                                          "set var withZero.mData->mByteLength = 0xFFFFFFF0", "withZero"});
    EXPECT_THAT(lines, testing::ElementsAre(StartsWith("<damaged: ")));
}

TEST_F(GdbPrinters, ShowBytes) {
    std::string many = "300 bytes:";
    for (int i = 0; i < 200; ++i)
        many += " 11";
    many += "...";
    expectShown("buffers",
                {{"empty", "0 bytes"},
                 {"bytes", "5 bytes, 2 owners: 48 65 6C 6C 6F"},
                 {"block", "5 bytes, 2 owners: 48 65 6C 6C 6F"},
                 {"large", many.c_str()},
                 {"stream", "8 of 32 bytes, 2 owners, read to 4: 07 00 00 00 08 00 00 00"},
                 {"ended", "8 of 32 bytes, 2 owners, read to 8, read past its end: 07 00 00 00 08 00 00 00"},
                 {"raw", "12 bytes: 22 22 22 22 22 22 22 22 22 22 22 22"},
                 {"reader", "at 7 of 10 bytes: 37 38 39"},
                 {"ring", "3 of 8 bytes: 61 62 63"},
                 {"wrapped", "5 of 8 bytes: 66 67 68 69 6A"},
                 {"underflown", "0 of 8 bytes, read underflow"}});
}

TEST_F(GdbPrinters, SurviveDamagedBytes) {
    expectShown("buffers", {{"set var large.mMemory.mBlock = (CVQRCMemoryBuffer::SBlock*)16", nullptr},
                            {"large", "<damaged: Cannot access memory at address 0x10>"},
                            {"set var bytes.mMemory.mBlock->data = 0", nullptr},
                            {"bytes", "<damaged: 5 bytes at null>"},
                            {"set var bytes.mMemory.mBlock->data = (unsigned char*)16", nullptr},
                            {"bytes", "<damaged: Cannot access memory at address 0x10>"},
                            {"set var stream.mLength = 1000", nullptr},
                            {"stream", "<damaged: 1000 of 32 bytes>"},
                            {"set var reader.mPosition = reader.mBegin - 1", nullptr},
                            {"reader", "<damaged: at -1 of 10>"},
                            {"set var ring.m_logicEnd = ring.m_physEnd + 5", nullptr},
                            {"ring", "<damaged: positions 0 and 14 in 9 bytes>"}});
}

TEST_F(GdbPrinters, ShowNumbersAndDates) {
    expectShown("numbers", {{"one", "1.0 (raw 65536)"},
                            {"tiny", "1.52587890625e-05 (raw 1)"},
                            {"negative", "-2.25 (raw -147456)"},
                            {"lowest", "-32768.0 (raw -2147483648)"},
                            {"epoch", "1970-01-01 00:00:00"},
                            {"date", "2009-03-07 14:05:09.000123"},
                            {"day", "2009-03-07"},
                            {"time", "14:05:09.999999"},
                            {"zero", "00:00:00"},
                            {"span", "1 d 02:03:04.000005"},
                            {"back", "-00:00:00.000001"},
                            {"most", "-106751991 d 04:00:54.775808"},
                            {"parts", "-1 d 02:03:04.000005"}});
}

TEST_F(GdbPrinters, ShowTheDatesThatTheLibraryShows) {
    Words commands;
    for (int i = 0; i < 12; ++i) {
        commands.insert(commands.end(), {"output date", "echo \\n", "output shown", "echo \\n"});
        commands.insert(commands.end(), {"continue", "up"});
    }
    const Words lines = linesOf(session("dates", commands));
    Words dates, texts;
    for (const std::string& line : lines)
        if (std::regex_match(line, std::regex("[0-9]+-[0-9]+-[0-9]+ [0-9:]+")))
            dates.push_back('"' + line + '"');
        else if (line.rfind('"', 0) == 0)
            texts.push_back(line);
    EXPECT_EQ(12u, dates.size()) << mResult;
    EXPECT_EQ(texts, dates);
}

TEST_F(GdbPrinters, ShowGrowableArrays) {
    std::string many = "TVQVector of 500, capacity 512 = {0";
    for (int i = 1; i < 200; ++i)
        many += ", " + std::to_string(i);
    many += "...}";
    expectShown("vectors", {{"none", "TVQVector of 0, capacity 0"},
                            {"numbers", "TVQVector of 3, capacity 4 = {3, 1, 2}"},
                            {"texts", R"(TVQVector of 2, capacity 4 = {"one", "zwei"})"},
                            {"nested", "TVQVector of 2, capacity 4 = {TVQVector of 3, capacity 3 = {3, 1, 2}, "
                                       "TVQVector of 0, capacity 0}"},
                            {"points", "TVQVector of 1, capacity 4 = {{x = 1, y = 2}}"},
                            {"sorted", "TVQSortedVector of 3, capacity 4 = {1, 2, 3}"},
                            {"queue", "TVQQueue of 2, capacity 4 = {1, 2}"},
                            {"noQueue", "TVQQueue of 0, capacity 0"},
                            {"constant", "TVQConstRefCountedVector of 3, 2 owners = {3, 1, 2}"},
                            {"noConstant", "TVQConstRefCountedVector of 0"},
                            {"map", R"(TVQMap of 2 = {["one"] = 1, ["two"] = 2})"},
                            {"noSection", "TVQOptional, empty"},
                            {"optional", R"(TVQOptional = {"there"})"},
                            {"many", many.c_str()},
                            {"set print elements 3", nullptr},
                            {"many", "TVQVector of 500, capacity 512 = {0, 1, 2...}"}});
}

TEST_F(GdbPrinters, SurviveDamagedArrays) {
    expectShown("vectors",
                {{"set var numbers.mBase.mData = (CVQVectorBase::SVectorData*)16", nullptr},
                 {"numbers", "<damaged: Cannot access memory at address 0x10> = {<damaged: Cannot access memory at "
                             "address 0x10>}"},
                 {"set var texts.mBase.mData->size = 1000", nullptr},
                 {"texts", "<damaged: 1000 of 4 elements> = {<damaged: 1000 of 4 elements>}"},
                 {"set var points.mBase.mData->size = -1", nullptr},
                 {"points", "<damaged: -1 of 4 elements> = {<damaged: -1 of 4 elements>}"},
                 {"set var queue.mFront = 9", nullptr},
                 {"queue", "<damaged: front 9 of 3> = {<damaged: front 9 of 3>}"},
                 {"set var optional.mInitialised = 7", nullptr},
                 {"optional", "<damaged: flag 7> = {<damaged: flag 7>}"}});
}

TEST_F(GdbPrinters, ShowHashTables) {
    expectShown("tables", {{"none", "TVQHashArray of 0"},
                           {"names", R"(TVQHashArray of 1 = {[7] = "seven"})"},
                           {"wide", R"(TVQHashArray of 1 = {["key"] = {a = 1, b = 2, c = 3}})"},
                           {"small", R"(TVQHashArray of 1 = {[200 '\310'] = 120 'x'})"},
                           {"noMap", "TVQHashMap of 0"},
                           {"map", "TVQHashMap of 1 = {[5] = 50}"},
                           {"textMap", R"(TVQHashMap of 1 = {[5] = "fünf"})"},
                           {"wideMap", "TVQHashMap of 1 = {[5] = {a = 4, b = 5, c = 6}}"}});
}

TEST_F(GdbPrinters, GoThroughHashTablesAsTheirWalksDo) {
    const Words lines = shown("tables", {"chained", "chainedWalk", "grown", "grownWalk"});
    ASSERT_EQ(4u, lines.size()) << mResult;
    EXPECT_EQ('"' + lines[0] + '"', "\"TVQHashArray of 3 = {" + lines[1].substr(1, lines[1].size() - 2) + "}\"");
    EXPECT_EQ('"' + lines[2] + '"', "\"TVQHashMap of 3 = {" + lines[3].substr(1, lines[3].size() - 2) + "}\"");
    EXPECT_THAT(lines[3], HasSubstr("[1] = 77"));  // written in the array before the last growth
}

TEST_F(GdbPrinters, SurviveDamagedHashTables) {
    expectShown("tables", {{"set var names.mEngine.mItemCount = 9", nullptr},
                           {"names", R"(TVQHashArray of 9 = {[7] = "seven", [...] = <damaged: 8 items missing>})"},
                           {"set var map.mEngine.mCount = 9", nullptr},
                           {"map", R"(TVQHashMap of 9 = {[5] = 50, [...] = <damaged: 8 entries missing>})"},
                           {"set var textMap.mEngine.mTable.mNextFree = textMap.mEngine.mTable.mEnd + 9", nullptr},
                           {"textMap", R"(TVQHashMap of 1 = {[...] = <damaged: cells in use behind the last>})"}});
}

TEST_F(GdbPrinters, ShowLists) {
    expectShown("lists", {{"none", "TVQList of 0"},
                          {"list", "TVQList of 3 = {1, 2, 3}"},
                          {"texts", R"(TVQList of 2 = {"one", "zwei"})"},
                          {"wide", "TVQList of 2 = {1, -1}"},
                          {"noTimers", "TVQIntrusiveList, empty"},
                          {"noShortTimers", "TVQIntrusiveSlist, empty"}});
    EXPECT_THAT(shown("lists", {"timers", "shortTimers"}),
                testing::ElementsAre(MatchesRegex("TVQIntrusiveList = \\{.* id = 1\\}, .* id = 2\\}\\}"),
                                     MatchesRegex("TVQIntrusiveSlist = \\{.* id = 1\\}, .* id = 2\\}\\}")));
}

TEST_F(GdbPrinters, SurviveDamagedLists) {
    expectShown("lists", {{"set var list.mEnd.mNext->mNext = (CVQListNodeBase*)16", nullptr},
                          {"list", "TVQList of 3 = {1, <damaged: Cannot access memory at address 0x10>}"},
                          {"set var wide.mEnd.mNext->mNext = wide.mEnd.mNext", nullptr},
                          {"wide", "TVQList of 2 = {1, <damaged: links that do not fit>}"},
                          {"set var texts.mSize = 1", nullptr},
                          {"texts", R"(TVQList of 1 = {"one", <damaged: longer than its size>})"},
                          {"set var texts.mSize = 3", nullptr},
                          {"texts", R"(TVQList of 3 = {"one", "zwei", <damaged: shorter than its size>})"}});
    const Words ring = shown("lists", {"set var second.mNext = &first", "timers"});
    ASSERT_EQ(1u, ring.size());
    EXPECT_THAT(ring[0], EndsWith("id = 2}, <damaged: a ring without its head>}"));
}

TEST_F(GdbPrinters, ShowWhoHoldsALockAndHowManyWait) {
    if (isEmulated())
        GTEST_SKIP() << "the emulator tells the debugger other thread ids than the program";
    Words lines = shown("locks", {"freeMutex", "mutex", "section", "recursive", "raw", "orphaned", "available",
                                  "noUnits", "counting", "invalid", "condition", "barrier", "conditionMutex"});
    for (std::string& line : lines)
        line = std::regex_replace(line, std::regex("LWP [0-9]+\\)"), "LWP n)");
    EXPECT_EQ(
        (Words{"free", "held by thread 2 \"holder\" (LWP n), threads wait", "held by thread 2 \"holder\" (LWP n)",
               "held by thread 1 \"gdb_values\" (LWP n), locked 2 times, recursive", "free, shared",
               "held by LWP 1073741822, no thread of this process", "1 of 1 unit, 0 threads waiting",
               "0 of 1 unit, 1 thread waiting", "2 of 5 units, 0 threads waiting", "invalid", "1 thread waiting",
               "1 of 3 threads arrived", "free"}),
        lines)
        << mResult;
}

TEST_F(GdbPrinters, TellWhoHoldsTheMutexWithinASemaphore) {
    expectShown("locks",
                {{"set var counting.mHandle.mutex.__owner = 0x3FFFFFFE", nullptr},
                 {"counting", "2 of 5 units, 0 threads waiting, its mutex held by LWP 1073741822, no thread of "
                              "this process"}});
}

TEST_F(GdbPrinters, SurviveDamagedLocks) {
    expectShown("locks", {{"set var counting.mHandle.count = 9", nullptr},
                          {"counting", "<damaged: 9 of 5 units>"},
                          {"set var counting.mHandle.valid = 9", nullptr},
                          {"counting", "<damaged: neither valid nor invalid>"},
                          {"set var barrier.mCurrent = 2", nullptr},
                          {"barrier", "<damaged: sub-barrier 2>"},
                          {"set var barrier.mCurrent = 0", nullptr},
                          {"set var barrier.mSub[0].mRemaining = 9", nullptr},
                          {"barrier", "<damaged: 9 of 3 arrivals lacking>"}});
}

TEST_F(GdbPrinters, AreSwitchedOffByName) {
    const Words lines = shown("strings", {"set var $before = 1", "version"});
    EXPECT_EQ(Words{"1.2.3"}, lines);
    const std::string log = session("strings", {"info pretty-printer global sys_marlix",
                                                "disable pretty-printer .* sys_marlix;CVQVersion", "output version",
                                                "echo \\n", "output text"});
    EXPECT_THAT(log, HasSubstr("mMajor = 1, mMinor = 2, mRevision = 3}\n\"Grüße\"")) << mResult;
}

}  // namespace
