// Concerns: courses, rates and their gaps; what is missing or there twice; numbers and scales; the table and the page;
// recordings that are damaged in every byte and cut at every length; the command line.
#include "Recordings.h"
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"
#include "viewer/CHistory.h"
#include "viewer/Numbers.h"
#include "viewer/Page.h"
#include "viewer/Scale.h"
#include "viewer/Terminal.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace recordings;
using namespace support;
using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr unsigned long long kSecond = 1000000;

CHistory load(const std::string& path) {
    CHistory history;
    CVQString problem;
    EXPECT_TRUE(history.load(path.c_str(), problem)) << problem.c_str();
    return history;
}

CHistory loadBytes(const std::string& bytes) {
    CHistory history;
    history.loadBytes("file", reinterpret_cast<const unsigned char*>(bytes.data()),
                      static_cast<unsigned>(bytes.size()));
    return history;
}

CHistory loadSamples(const std::vector<SSample>& samples) {
    return loadBytes(blockOf(1, samples));
}

std::vector<double> valuesOf(const SSeriesHistory& series) {
    std::vector<double> values;
    for (const SPoint& point : series.points) {
        values.push_back(point.value);
    }
    return values;
}

TEST(CHistory, HasACourseForEachSeries) {
    const CHistory history = loadSamples(
        {makeSample(kSecond, 1500, "b"), makeSample(kSecond, 7000, "a"), makeSample(2 * kSecond, -500, "b")});
    EXPECT_EQ(3u, history.getSampleCount());
    EXPECT_EQ(kSecond, history.getBegin());
    EXPECT_EQ(2 * kSecond, history.getEnd());
    ASSERT_EQ(2, history.getSeries().size());
    EXPECT_STREQ("a", history.getSeries()[0].name.c_str());
    const SSeriesHistory& series = history.getSeries()[1];
    EXPECT_THAT(valuesOf(series), ElementsAre(1.5, -0.5));
    EXPECT_EQ(2u, series.samples);
    EXPECT_EQ(-0.5, series.smallest);
    EXPECT_EQ(1.5, series.largest);
    EXPECT_EQ(0.5, series.mean);
    EXPECT_EQ(-0.5, series.last);
    EXPECT_STREQ("B", series.unit.c_str());
}

TEST(CHistory, MakesRatesOfCounters) {
    std::vector<SSample> samples;
    for (unsigned i = 0; i <= 10; ++i) {
        samples.push_back(makeSample(i * kSecond / 20, i * 1000, "c", SSample::COUNTER));
    }
    const CHistory history = loadSamples(samples);
    const SSeriesHistory& series = history.getSeries()[0];
    EXPECT_THAT(valuesOf(series), ElementsAre(20, 20, 20, 20, 20)) << "over a tenth of a second each";
    EXPECT_STREQ("B/s", series.unit.c_str());
    EXPECT_STREQ("%", loadSamples({makeSample(1, 1, "c", SSample::COUNTER, "%")}).getSeries()[0].unit.c_str());
}

TEST(CHistory, BeginsACounterAnewThatWasSetBack) {
    const CHistory history = loadSamples({makeSample(0, 100000, "c", SSample::COUNTER),
                                          makeSample(kSecond, 101000, "c", SSample::COUNTER),
                                          makeSample(2 * kSecond, 1000, "c", SSample::COUNTER),
                                          makeSample(3 * kSecond, 3000, "c", SSample::COUNTER)});
    const SSeriesHistory& series = history.getSeries()[0];
    EXPECT_THAT(valuesOf(series), ElementsAre(1, 2));
    EXPECT_FALSE(series.points[1].isJoined);
}

TEST(CHistory, LeavesGapsWhereNothingWasSampled) {
    std::vector<SSample> samples;
    for (const unsigned at : {0, 1, 2, 3, 9, 10}) {
        samples.push_back(makeSample(at * kSecond, 1000));
    }
    const CHistory history = loadSamples(samples);
    std::vector<bool> joined;
    for (const SPoint& point : history.getSeries()[0].points) {
        joined.push_back(point.isJoined);
    }
    EXPECT_THAT(joined, ElementsAre(false, true, true, true, false, true));
    const TVQVector<double> steps = resample(history.getSeries()[0], history.getBegin(), history.getEnd(), 10);
    std::string course;
    for (const double value : steps) {
        course += std::isnan(value) ? ' ' : 'x';
    }
    EXPECT_EQ("xxxx     x", course);
}

TEST(CHistory, PutsSamplesIntoTheOrderOfTheirTimes) {
    const CHistory history = loadSamples({makeSample(2 * kSecond, 2000), makeSample(kSecond, 1000)});
    EXPECT_THAT(valuesOf(history.getSeries()[0]), ElementsAre(1, 2));
}

TEST(CHistory, CountsWhatIsMissingAndWhatIsThereTwice) {
    const CHistory whole = loadBytes(blocks(3) + blocks(2, kSampler + 1));
    EXPECT_EQ(0u, whole.getMissingCount());
    EXPECT_EQ(0u, whole.getDoubledCount());
    EXPECT_EQ(2u, whole.getSamplerCount());
    EXPECT_THAT(std::vector<unsigned long long>(whole.getRestarts().begin(), whole.getRestarts().end()),
                ElementsAre(kSampler + 1));
    const CHistory history = loadBytes(block(2) + block(5) + block(5) + block(4) + block(3, kSampler + 1));
    EXPECT_EQ(1u + 2u + 2u, history.getMissingCount());
    EXPECT_EQ(2u, history.getDoubledCount());
}

TEST(CHistory, DoesNotMissWhatWentWithOldFiles) {
    const TemporaryFolder folder;
    folder.write("00000004.rec", block(7));
    folder.write("00000005.rec", block(8));
    EXPECT_EQ(0u, load(folder.path()).getMissingCount());
    EXPECT_EQ(0u, load(folder / "00000005.rec").getMissingCount());
}

TEST(CHistory, TakesTimesAndValuesOfAnySize) {
    const long long largest = 0x7FFFFFFFFFFFFFFFLL;
    for (const char kind : {SSample::GAUGE, SSample::COUNTER}) {
        const CHistory history =
            loadSamples({makeSample(0, -largest - 1, "a", kind), makeSample(~0ULL / 2, 0, "a", kind),
                         makeSample(~0ULL, largest, "a", kind)});
        CVQOTextStream text(0);
        appendReport(text, history, {});
        appendPage(text, history);
        EXPECT_THAT(text.c_str(), Not(HasSubstr("nan")));
    }
}

TEST(resample, TakesMeansAndDrawsLinesBetweenPoints) {
    SSeriesHistory series;
    for (const SPoint& point : {SPoint{0, 1, false}, {1, 3, true}, {40, 6, true}, {99, 0, false}}) {
        series.points.push_back(point);
    }
    const TVQVector<double> steps = resample(series, 0, 100, 10);
    EXPECT_THAT(std::vector<double>(steps.begin(), steps.begin() + 5), ElementsAre(2, 3, 4, 5, 6));
    EXPECT_TRUE(std::isnan(steps[5]));
    EXPECT_EQ(0, steps[9]);
}

TEST(Numbers, HaveThreeDigits) {
    const struct {
        double value;
        const char* text;
    } rows[] = {{0, "0"},          {0.004, "0"},     {0.04, "0.04"},    {1, "1.00"},    {9.99, "9.99"},
                {9.996, "10.0"},   {12.34, "12.3"},  {99.96, "100"},    {999.4, "999"}, {999.6, "1.00k"},
                {-1234, "-1.23k"}, {5.12e8, "512M"}, {9.2e18, "9200P"}, {-0.001, "0"}};
    for (const auto& row : rows) {
        EXPECT_STREQ(row.text, shortNumber(row.value).c_str());
    }
    EXPECT_STREQ("1.23 kB/s", withUnit(1234, "B/s").c_str());
    EXPECT_STREQ("12.3 %", withUnit(12.3, "%").c_str());
    EXPECT_STREQ("1.23k switches/s", withUnit(1234, "switches/s").c_str());
}

TEST(Numbers, TellTimes) {
    EXPECT_STREQ("2023-11-14 22:13:20", dateAndTime(kSampler).c_str());
    EXPECT_STREQ("22:13:20.5", timeOfDay(kSampler + 543210).c_str());
    EXPECT_STREQ("4.2 s", duration(4200000).c_str());
    EXPECT_STREQ("12 min 5 s", duration(725 * kSecond).c_str());
    EXPECT_STREQ("3 h 20 min", duration(12000 * kSecond).c_str());
    EXPECT_STREQ("12 d 4 h", duration((12 * 24 + 4) * 3600 * kSecond).c_str());
    EXPECT_STREQ("1 block", counted(1, "block").c_str());
    EXPECT_STREQ("0 blocks", counted(0, "block").c_str());
}

TEST(SScale, HasRoundStepsThatThreeDigitsTellApart) {
    const struct {
        std::vector<double> values;
        double low, high, step;
    } rows[] = {
        {{}, 0, 1, 0.5},
        {{0, 0}, 0, 1, 0.5},
        {{1, 159}, 0, 200, 50},
        {{100, 327}, 0, 400, 100},
        {{90, 97}, 90, 98, 2},
        {{17.61, 17.64}, 17.6, 17.7, 0.1},
        {{24.7e9, 24.71e9}, 24.7e9, 24.8e9, 0.1e9},
        {{-30, 10}, -30, 10, 10},
        {{5}, 5, 5.01, 0.01},
    };
    for (const auto& row : rows) {
        TVQVector<double> values;
        for (const double value : row.values) {
            values.push_back(value);
        }
        const SScale scale = SScale::of(values);
        EXPECT_NEAR(row.low, scale.low, 1e-9 * std::fabs(row.high));
        EXPECT_NEAR(row.high, scale.high, 1e-9 * std::fabs(row.high));
        EXPECT_NEAR(row.step, scale.step, 1e-9 * std::fabs(row.high));
    }
}

class Report : public testing::Test {
protected:
    static CHistory makeHistory() {
        std::vector<SSample> samples;
        for (unsigned i = 0; i < 50; ++i) {
            samples.push_back(makeSample(kSampler + i * kSecond, i * 1000, "ramp.up"));
            samples.push_back(makeSample(kSampler + i * kSecond, 50000 - i * 1000, "ramp.down"));
            samples.push_back(makeSample(kSampler + i * kSecond, 0, "<b>&\"\\x</b>"));
        }
        return loadSamples(samples);
    }
    static std::string reportOf(const CHistory& history, const SLook& look) {
        CVQOTextStream text(0);
        appendReport(text, history, look);
        return text.c_str();
    }
    static std::string pageOf(const CHistory& history) {
        CVQOTextStream text(0);
        appendPage(text, history);
        return text.c_str();
    }
};

TEST_F(Report, HasTotalsATableAndPlots) {
    SLook look;
    look.width = 100;
    const std::string text = reportOf(makeHistory(), look);
    EXPECT_THAT(text, StartsWith("2023-11-14 22:13:20 UTC, 49.0 s\n150 samples in 1 block, "));
    EXPECT_THAT(text, HasSubstr("blocks missing: 0, blocks twice: 0\n"));
    EXPECT_THAT(text,
                testing::ContainsRegex("ramp.up +B +50 +0 +24.5 +49.0 +49.0  (▁)+(▂)+(▃)+(▄)+(▅)+(▆)+(▇)+(█)+\n"));
    EXPECT_THAT(text, testing::ContainsRegex(
                          "ramp.down +B +50 +1.00 +25.5 +50.0 +1.00  (█)+(▇)+(▆)+(▅)+(▄)+(▃)+(▂)+(▁)+\n"));
    EXPECT_THAT(text, Not(HasSubstr("\033")));
    look.hasColour = true;
    EXPECT_THAT(reportOf(makeHistory(), look), HasSubstr("\033[1mramp.up\033[0m"));
}

TEST_F(Report, FitsIntoItsWidth) {
    for (const unsigned width : {60U, 80U, 97U, 100U, 200U, 400U}) {
        SLook look;
        look.width = width;
        CVQString text(reportOf(makeHistory(), look).c_str());
        unsigned column = 0;
        unsigned widest = 0;
        for (const int character : text) {
            column = character == '\n' ? 0 : column + 1;
            widest = std::max(widest, column);
        }
        EXPECT_LE(widest, std::max(width, 68U)) << "the table without courses has 68";
        EXPECT_GT(widest, 50u);
    }
}

TEST_F(Report, IsAPageThatNeedsNothingElse) {
    const std::string page = pageOf(makeHistory());
    EXPECT_THAT(page, StartsWith("<!DOCTYPE html>"));
    EXPECT_THAT(page, testing::EndsWith("</html>\n"));
    for (const char* reference : {"http:", "https:", "src=", "href=", "url(", "@import"}) {
        EXPECT_THAT(page, Not(HasSubstr(reference)));
    }
    EXPECT_THAT(page, HasSubstr("prefers-color-scheme: dark"));
    EXPECT_THAT(page, HasSubstr("width=device-width"));
    EXPECT_THAT(page, HasSubstr("<h2>ramp<small>B</small></h2>")) << "series of a group share a plot";
    EXPECT_THAT(page, HasSubstr("\"name\":\"down\""));
}

TEST_F(Report, LetsNothingFromTheRecordingIntoThePagesOwnText) {
    const std::string page = pageOf(makeHistory());
    EXPECT_THAT(page, Not(HasSubstr("<b>&\"")));
    EXPECT_THAT(page, HasSubstr("&lt;b&gt;&amp;&quot;\\x&lt;/b&gt;"));
    EXPECT_THAT(page, HasSubstr("\\u003cb>&\\u0022\\u005cx\\u003c/b>"));
}

class viewer : public testing::Test {
protected:
    ChildResult view(const std::vector<std::string>& arguments) const { return runProgram(VIEWER, arguments); }

    TemporaryFolder mFolder;
};

TEST_F(viewer, ShowsAFolderOrAFile) {
    mFolder.write("00000001.rec", blocks(2));
    const std::string second = mFolder.write("00000002.rec", block(3));
    const ChildResult all = view({mFolder.path()});
    EXPECT_TRUE(all.exitedWith(0)) << all;
    EXPECT_EQ("", all.err);
    EXPECT_THAT(all.out, HasSubstr("\n3 samples in 3 blocks, 183 B in 2 files, "));
    const ChildResult one = view({second});
    EXPECT_TRUE(one.exitedWith(0)) << one;
    EXPECT_THAT(one.out, HasSubstr("1 sample in 1 block, "));
}

TEST_F(viewer, WritesThePage) {
    mFolder.write("00000001.rec", blocks(9));
    const ChildResult r = view({"--html=" + (mFolder / "page.html"), mFolder.path()});
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_THAT(readFile(mFolder / "page.html"), HasSubstr("<dt>blocks</dt><dd>9</dd>"));
    const ChildResult nowhere = view({"--html=" + (mFolder / "missing/page.html"), mFolder.path()});
    EXPECT_TRUE(nowhere.exitedWith(1)) << nowhere;
    EXPECT_EQ("viewer: " + (mFolder / "missing/page.html") + ": No such file or directory\n", nowhere.err);
}

TEST_F(viewer, ShowsTheRestOfWhatIsDamagedAndSaysSo) {
    std::string bytes = blocks(3);
    const std::size_t size = bytes.size() / 3;
    bytes[size + 40] = 'X';
    mFolder.write("00000001.rec", bytes.substr(0, bytes.size() - 5));
    const ChildResult r = view({"--html=" + (mFolder / "page.html"), mFolder.path()});
    EXPECT_TRUE(r.exitedWith(1)) << r;
    const std::string damaged =
        "00000001.rec, byte " + std::to_string(size) + ": " + std::to_string(size) + " bytes are damaged";
    const std::string cut = "00000001.rec, byte " + std::to_string(2 * size) +
                            ": the last block is cut short: " + std::to_string(size - 5) + " bytes of it are there";
    EXPECT_EQ("viewer: damaged: " + damaged + "\nviewer: damaged: " + cut + "\n", r.err);
    EXPECT_THAT(r.out, HasSubstr("1 sample in 1 block, "));
    const std::string page = readFile(mFolder / "page.html");
    EXPECT_THAT(page, HasSubstr("<li>" + damaged + "</li>"));
    EXPECT_THAT(page, HasSubstr("<li>" + cut + "</li>"));
}

TEST(CHistoryDamage, IsFoundInEveryByte) {
    const std::string whole = blocks(2);
    for (std::size_t at = 0; at < whole.size(); ++at) {
        SCOPED_TRACE(at);
        std::string bytes = whole;
        bytes[at] = static_cast<char>(~bytes[at]);
        const CHistory history = loadBytes(bytes);
        EXPECT_EQ(1, history.getDamages().size());
        EXPECT_EQ(1u, history.getBlockCount());
    }
}

TEST(CHistoryDamage, IsFoundInEveryCut) {
    const std::string whole = blocks(2);
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        SCOPED_TRACE(length);
        const CHistory history = loadBytes(whole.substr(0, length));
        EXPECT_EQ(length % (whole.size() / 2) == 0 ? 0 : 1, history.getDamages().size());
        EXPECT_EQ(length / (whole.size() / 2), history.getBlockCount());
    }
}

TEST(CHistoryDamage, IsABlockOfSomethingElse) {
    CVQByteStream body;
    body.write("no samples", 10);
    const CHistory history = loadBytes(block(1) + toString(makeBlock(kSampler, 2, 1, body)) + block(3));
    ASSERT_EQ(1, history.getDamages().size());
    EXPECT_THAT(history.getDamages()[0].c_str(), HasSubstr(": this block holds something else than samples"));
    EXPECT_EQ(2u, history.getBlockCount());
}

TEST_F(viewer, SaysThatBlocksAreThereTwice) {
    mFolder.write("00000001.rec", block(1) + block(1));
    const ChildResult r = view({mFolder.path()});
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_EQ("viewer: damaged: some blocks are there twice\n", r.err);
}

TEST_F(viewer, SaysThatBlocksAreMissing) {
    mFolder.write("00000001.rec", block(2) + block(5) + block(5));
    const ChildResult r = view({mFolder.path()});
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_EQ("viewer: missing: 3 blocks\nviewer: damaged: some blocks are there twice\n", r.err);
    EXPECT_THAT(r.out, HasSubstr("blocks missing: 3, blocks twice: 1\n"));
    mFolder.write("00000001.rec", block(2));
    const ChildResult one = view({mFolder.path()});
    EXPECT_TRUE(one.exitedWith(1)) << one;
    EXPECT_EQ("viewer: missing: 1 block\n", one.err);
}

TEST_F(viewer, CountsTheSamplers) {
    const struct {
        int line;
        std::string bytes;
        std::string count;
        std::string restarts;
    } rows[] = {
        {__LINE__, "", "0 times", "0"},
        {__LINE__, blocks(2), "1 time", "0"},
        {__LINE__, blocks(2) + block(1, kSampler + 1), "2 times", "1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const std::string file = mFolder.write("00000001.rec", row.bytes);
        const ChildResult r = view({"--html=" + (mFolder / "page.html"), file});
        EXPECT_TRUE(r.exitedWith(0)) << r;
        EXPECT_EQ("", r.err);
        EXPECT_THAT(r.out, HasSubstr(" in 1 file, sampler started " + row.count + "\n"));
        EXPECT_THAT(readFile(mFolder / "page.html"),
                    HasSubstr("<dt>sampler restarts</dt><dd>" + row.restarts + "</dd>"));
    }
}

TEST_F(viewer, SaysThatTheTableCannotBeWritten) {
    mFolder.write("00000001.rec", blocks(100));
    for (const char* const width : {"60", "400"}) {  // less and more than is written at once
        std::string line = "exec >/dev/full";
        for (const std::string& word : commandFor(VIEWER, {std::string("--width=") + width, mFolder.path()}))
            line += " '" + word + "'";
        const ChildResult r = ChildProcess({"/bin/sh", "-c", line}).finish();
        EXPECT_TRUE(r.exitedWith(1)) << r;
        EXPECT_EQ("viewer: cannot write the table: No space left on device\n", r.err);
    }
}

TEST_F(viewer, SaysWhatIsNotThere) {
    const ChildResult missing = view({mFolder / "missing"});
    EXPECT_TRUE(missing.exitedWith(1)) << missing;
    EXPECT_EQ("viewer: " + (mFolder / "missing") + ": No such file or directory\n", missing.err);
    const ChildResult empty = view({mFolder.path()});
    EXPECT_TRUE(empty.exitedWith(1)) << empty;
    EXPECT_EQ("viewer: " + mFolder.path() + ": there is no recording\n", empty.err);
    const ChildResult none = view({mFolder.write("text", "this is no recording, and long enough to be sure")});
    EXPECT_TRUE(none.exitedWith(1)) << none;
    EXPECT_EQ("viewer: damaged: text, byte 0: 48 bytes are damaged\n", none.err);
    EXPECT_THAT(none.out, StartsWith("0 samples in 0 blocks, "));
}

TEST_F(viewer, RefusesAWrongCommandLineAndHelps) {
    const struct {
        int line;
        std::vector<std::string> arguments;
        std::string message;
    } rows[] = {
        {__LINE__, {}, "viewer: too few operands\n"},
        {__LINE__, {"one", "two"}, "viewer: 'two' is one operand too many\n"},
        {__LINE__, {"--page=x"}, "viewer: unknown option '--page=x'\n"},
        {__LINE__, {"--html"}, "viewer: --html takes a value: --html=...\n"},
        {__LINE__, {"--width=59", "x"}, "viewer: --width takes a number from 60 to 400, not '59'\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const ChildResult r = view(row.arguments);
        EXPECT_TRUE(r.exitedWith(2)) << r;
        EXPECT_EQ(row.message + "Try 'viewer --help'.\n", r.err);
    }
    const ChildResult help = view({"--help"});
    EXPECT_TRUE(help.exitedWith(0));
    EXPECT_THAT(help.out, StartsWith("Usage: viewer [option...] FOLDER|FILE\n"));
}

}  // namespace
