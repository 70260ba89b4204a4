// Concerns: texts there and back, from several clients; a text that is too long; a server that is not there, that died,
// that is told to stop; the lines in the README.
#include "support/ChildProcess.h"
#include "support/TemporaryFolder.h"

#include <csignal>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace support;
using testing::HasSubstr;
using testing::MatchesRegex;

/// A server that runs until the end of the scope.
class Echo : public testing::Test {
protected:
    Echo() : mServer(commandFor(ECHO_SERVER)) {
        EXPECT_TRUE(mServer.waitForOut(" Hello\n")) << mServer.out() << mServer.err();
        EXPECT_EQ(2,
                  std::sscanf(mServer.out().c_str(), "Talk to me: echo_client %d %d Hello\n", &mProcess, &mChannel))
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

TEST_F(Echo, TellsHowItIsUsed) {
    const ChildResult r = client({});
    EXPECT_TRUE(r.exitedWith(2)) << r;
    EXPECT_THAT(r.err, HasSubstr("usage: echo_client PROCESS CHANNEL TEXT..."));
}

TEST(EchoReadme, ShowsTheProgramsThatAreBuilt) {
    const std::string readme = readFile(SOURCE_DIR "/README.md");
    EXPECT_THAT(readme, HasSubstr("build/release/bin/echo_server"));
    EXPECT_THAT(readme, HasSubstr("build/release/bin/echo_client"));
}

}  // namespace
