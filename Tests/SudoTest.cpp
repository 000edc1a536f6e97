#include "Commands/Sudo.h"

#include <gtest/gtest.h>

#include <vector>

using SSHEngine::sudoCommand;
using SSHEngine::SudoConversation;
using Clock = SudoConversation::Clock;
using Outcome = SudoConversation::Outcome;
using std::chrono::milliseconds;
using std::chrono::seconds;

namespace {

const std::string prompt = "#SSHSessionEnterPassword^";
const std::string success = "#SSHSessionSudoSuccess^\n";

// A conversation with its buffers; what arrives is given piece by piece.
struct Conversation {
    Outcome hear(const std::string &out, const std::string &err, bool keepReading = true,
                 milliseconds at = seconds(0)) {
        output.append(out);
        errorOutput.append(err);
        const Outcome outcome = sudo.examine(output, errorOutput, keepReading, start + at);
        if (outcome == Outcome::Asked)
            input.append(sudo.answer());
        return outcome;
    }

    const Clock::time_point start = Clock::now();
    SudoConversation sudo{"sesame", start};
    SSHPlatform::ByteBuffer output;
    SSHPlatform::ByteBuffer errorOutput;
    SSHPlatform::ByteBuffer input;
};

} // namespace

TEST(Sudo, OnlyQuotationMarksAreEscapedInTheCommand) {
    const std::string before = "/usr/bin/sudo -S -p '#SSHSessionEnterPassword^' /bin/sh -c \"echo "
                               "'#SSHSessionSudoSuccess^'; ";
    EXPECT_EQ(sudoCommand(R"(ls "/var/log")"), before + R"(ls \"/var/log\"")");
    EXPECT_EQ(sudoCommand(R"(a\"b $HOME `id` 'c' {} %@)"),
              before + R"(a\\"b $HOME `id` 'c' {} %@")");
    EXPECT_EQ(sudoCommand(""), before + "\"");
}

TEST(Sudo, MarkersMayBeSplitAnywhere) {
    const std::string asked = "Sorry, try again.\n" + prompt;
    for (std::size_t at = 0; at < asked.size(); ++at) {
        Conversation talk;
        EXPECT_EQ(talk.hear("", asked.substr(0, at)), Outcome::Pending);
        EXPECT_TRUE(talk.input.empty()) << at;
        EXPECT_EQ(talk.hear("", asked.substr(at)), Outcome::Asked);
        EXPECT_EQ(talk.input.view(), "sesame\n") << at;
        EXPECT_TRUE(talk.errorOutput.empty()) << at;
    }
    for (std::size_t at = 0; at < success.size(); ++at) {
        Conversation talk;
        EXPECT_EQ(talk.hear(success.substr(0, at), ""), Outcome::Pending) << at;
        EXPECT_EQ(talk.hear(success.substr(at) + "rest", "late"), Outcome::Accepted) << at;
        EXPECT_EQ(talk.output.view(), "rest");
        EXPECT_EQ(talk.errorOutput.view(), "late");
    }
}

TEST(Sudo, OnlyAPromptAtTheVeryEndIsAnswered) {
    Conversation talk;
    EXPECT_EQ(talk.hear("hello\n" + success, prompt + "\n"), Outcome::Pending);
    EXPECT_TRUE(talk.input.empty());
    EXPECT_EQ(talk.hear("", prompt), Outcome::Asked);
    EXPECT_EQ(talk.input.view(), "sesame\n");
    Conversation accepted; // the marker is a command's own text
    EXPECT_EQ(accepted.hear(success, prompt), Outcome::Accepted);
    EXPECT_TRUE(accepted.input.empty());
    EXPECT_EQ(accepted.errorOutput.view(), prompt);
}

TEST(Sudo, TenSecondsOfSilenceSinceErrorOutputWasLastSeen) {
    Conversation talk;
    EXPECT_EQ(talk.hear("text", "", true, seconds(10)), Outcome::Pending);
    EXPECT_EQ(talk.hear("", "complaint", true, seconds(11)), Outcome::Pending);
    EXPECT_EQ(talk.hear("", "", true, seconds(100)), Outcome::Pending); // still there
    EXPECT_EQ(talk.hear("", prompt, true, seconds(120)), Outcome::Asked);
    EXPECT_EQ(talk.hear("", "", true, seconds(130)), Outcome::Pending);
    EXPECT_EQ(talk.hear("", "", false, milliseconds(130'001)), Outcome::TimedOut);
}
