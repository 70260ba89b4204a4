// Concerns: texts there and back, from several clients; a text that is too long; a server that is not there, that died,
// with a client's text in its hands too, that is told to stop; the command lines; the lines in the README.
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/neutrino.h>

namespace {

using namespace support;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

/// A server that runs until the end of the scope.
class Echo : public testing::Test {
protected:
    Echo() : mServer(commandFor(ECHO_SERVER)) {
        EXPECT_TRUE(mServer.waitForOut(" Hello\n")) << mServer.out() << mServer.err();
        EXPECT_EQ(2, std::sscanf(mServer.out().c_str(), "Talk to me: " ECHO_CLIENT " %d %d Hello\n", &mProcess,
                                 &mChannel))
            << mServer.out();
    }
    ChildResult client(const std::vector<std::string>& texts) const {
        std::vector<std::string> arguments = {std::to_string(mProcess), std::to_string(mChannel)};
        arguments.insert(arguments.end(), texts.begin(), texts.end());
        return runProgram(ECHO_CLIENT, arguments);
    }

    ChildProcess mServer;
    int mProcess = 0;
    int mChannel = 0;
};

TEST_F(Echo, BringsEachTextBackToItsClient) {
    const ChildResult first = client({"Grüße", ""});
    EXPECT_TRUE(first.exitedWith(0)) << first;
    EXPECT_THAT(first.out, MatchesRegex("1: \"Grüße\" after [0-9.]+ us\n2: \"\" after [0-9.]+ us\n"));
    const ChildResult second = client({"Hello"});
    EXPECT_TRUE(second.exitedWith(0)) << second;
    EXPECT_THAT(second.out, MatchesRegex("3: \"Hello\" after [0-9.]+ us\n"));
    EXPECT_TRUE(client({"--stop"}).exitedWith(0));
    const ChildResult server = mServer.finish();
    EXPECT_TRUE(server.exitedWith(0)) << server;
    EXPECT_THAT(server.out, HasSubstr("1: process " + std::to_string(first.pid) + " says \"Grüße\"\n"));
    EXPECT_THAT(server.out, HasSubstr("3: process " + std::to_string(second.pid) + " says \"Hello\"\n"));
    EXPECT_EQ("", server.err);
}

TEST_F(Echo, RefusesATextThatIsTooLong) {
    const ChildResult longest = client({std::string(4096, 'x')});
    EXPECT_TRUE(longest.exitedWith(0)) << longest;
    const ChildResult tooLong = client({std::string(4097, 'x')});
    EXPECT_TRUE(tooLong.exitedWith(1)) << tooLong;
    EXPECT_EQ("echo_client: no reply: Message too long\n", tooLong.err);
}

TEST_F(Echo, SaysThatTheServerIsGone) {
    mServer.send(SIGKILL);
    EXPECT_TRUE(mServer.finish().killedBy(SIGKILL));
    const ChildResult late = client({"Hello"});
    EXPECT_TRUE(late.exitedWith(1)) << late;
    EXPECT_EQ("echo_client: no server: No such process\n", late.err);
}

TEST(EchoClient, IsToldAtOnceThatTheServerDiesInItsCall) {
    ChildProcess server([] {
        std::printf("%d\n", ChannelCreate(0));
        std::fflush(stdout);
        char text[16];
        EXPECT_GT(MsgReceive(1, text, sizeof(text), nullptr), 0);
        raise(SIGKILL);
    });
    ASSERT_TRUE(server.waitForOut("1\n")) << server.out();
    const auto begin = std::chrono::steady_clock::now();
    const ChildResult r = runProgram(ECHO_CLIENT, {std::to_string(server.pid()), "1", "Hello"});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(1900)) << "it waits 2 s at most";
    EXPECT_TRUE(r.exitedWith(1)) << r;
    EXPECT_EQ("echo_client: no reply: No such process\n", r.err);
    EXPECT_TRUE(server.finish().killedBy(SIGKILL));
}

TEST_F(Echo, SendsTheTextsBeforeItStopsTheServer) {
    const ChildResult r = client({"--stop", "one", "--", "--two"});
    EXPECT_TRUE(r.exitedWith(0)) << r;
    EXPECT_THAT(r.out, MatchesRegex("1: \"one\" after [0-9.]+ us\n2: \"--two\" after [0-9.]+ us\n"));
    EXPECT_TRUE(mServer.finish().exitedWith(0));
}

TEST(EchoHelp, IsOnStandardOutput) {
    for (const std::string option : {"--help", "-h"}) {
        const ChildResult server = runProgram(ECHO_SERVER, {option});
        EXPECT_TRUE(server.exitedWith(0)) << server;
        EXPECT_THAT(server.out, StartsWith("Usage: echo_server\n"));
        EXPECT_EQ("", server.err);
        for (const std::vector<std::string>& words :
             {std::vector<std::string>{option}, {option, "1", "2"}, {"1", "2", "Hello", option}}) {
            const ChildResult client = runProgram(ECHO_CLIENT, words);
            EXPECT_TRUE(client.exitedWith(0)) << client;
            EXPECT_THAT(client.out, StartsWith("Usage: echo_client PROCESS CHANNEL TEXT...\n"));
            EXPECT_EQ("", client.err);
        }
    }
}

TEST(EchoHelp, IsOfferedForAWrongCommandLine) {
    const struct {
        int line;
        const char* program;
        std::vector<std::string> arguments;
        std::string message;
    } rows[] = {
        {__LINE__, "server", {"1"}, "'1' is one word too many"},
        {__LINE__, "server", {"--stop"}, "unrecognized option '--stop'"},
        {__LINE__, "client", {}, "which process, which channel, what text?"},
        {__LINE__, "client", {"1", "2"}, "which process, which channel, what text?"},
        {__LINE__, "client", {"1", "--stop"}, "which process, which channel, what text?"},
        {__LINE__, "client", {"1", "2", "--go"}, "unrecognized option '--go'"},
        {__LINE__, "client", {"1", "2", "-x"}, "invalid option -- 'x'"},
        {__LINE__, "client", {"x", "2", "z"}, "'x' is no number of a process"},
        {__LINE__, "client", {"1", "y", "z"}, "'y' is no number of a channel"},
        {__LINE__, "client", {"1x", "2", "z"}, "'1x' is no number of a process"},
        {__LINE__, "client", {"1", "", "z"}, "'' is no number of a channel"},
        {__LINE__, "client", {"0", "2", "z"}, "'0' is no number of a process"},
        {__LINE__, "client", {"4294967297", "2", "z"}, "'4294967297' is no number of a process"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.line);
        const std::string name = std::string("echo_") + row.program;
        const ChildResult r = runProgram(name == "echo_server" ? ECHO_SERVER : ECHO_CLIENT, row.arguments);
        EXPECT_TRUE(r.exitedWith(2)) << r;
        EXPECT_THAT(r.err, EndsWith(name + ": " + row.message + "\nTry '" + name + " --help'.\n"));
        EXPECT_EQ("", r.out);
    }
}

TEST_F(Echo, IsInTheReadmeAsItSpeaks) {
    const std::string readme = readFile(SOURCE_DIR "/README.md");
    const std::string folder = "build/release/bin/";
    EXPECT_THAT(readme, HasSubstr("\n" + folder + "echo_server &"));
    const std::string said = "echo_client " + std::to_string(mProcess) + ' ' + std::to_string(mChannel) + " Hello";
    EXPECT_THAT(mServer.out(), HasSubstr("/" + said + "\n"));
    EXPECT_THAT(readme, HasSubstr("\n" + folder + "echo_client PROCESS CHANNEL Hello "));
    EXPECT_THAT(readme, HasSubstr("\n" + folder + "echo_client PROCESS CHANNEL --stop\n"));
}

}  // namespace
