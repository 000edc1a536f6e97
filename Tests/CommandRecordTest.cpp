#include "Commands/Sudo.h"
#include "Tests/Support/Process.h"

#include <SSHSession/SSHCommand.h>
#include <SSHSession/SSHEscapeString.h>

#include <gtest/gtest.h>

TEST(SSHEscapeString, QuotesExactlyAndIsReadBackByAShell) {
    for (const auto &[input, output] :
         std::vector<std::pair<std::string, std::string>>{{"", ""},
                                                          {"'", R"("'")"},
                                                          {"!a''b!'", R"(\!'a'"''"'b'\!"'")"},
                                                          {{"cut\0off", 7}, "'cut'"}})
        EXPECT_EQ(SSHEscapeString(input), output) << input;
    std::string every(100000, '\'');
    for (int byte = 1; byte < 256; ++byte)
        every += static_cast<char>(byte);
    EXPECT_EQ(runProcess({"/bin/sh"}, "printf %s " + SSHEscapeString(every)).output, every);
}

TEST(SSHCommand, SharesWhatItIsGivenAndForgetsItInOrder) {
    std::string released;
    const auto watched = [&]<typename Value>(Value *made, char name) {
        return std::shared_ptr<const Value>(made, [&released, name](const Value *value) {
            released += name;
            delete value;
        });
    };
    {
        SSHCommand command;
        EXPECT_EQ(command.exitStatus(), 0);
        command.setExitSignal(watched(new std::string, '6'));
        command.setStderrData(watched(new SSHPlatform::ByteBuffer, '5'));
        command.setStdoutData(watched(new SSHPlatform::ByteBuffer, '4'));
        command.setStdinData(watched(new SSHPlatform::ByteBuffer, '3'));
        command.setAdminPassword(watched(new std::string, '2'));
        command.setCommand(watched(new std::string, '0'));
        command.setCommand(watched(new std::string, '1'));
        EXPECT_EQ(released, "0");
    }
    EXPECT_EQ(released, "0123456");
}

TEST(Sudo, OnlyQuotationMarksAreEscapedInTheCommand) {
    EXPECT_EQ(SSHEngine::sudoCommand(R"(a\"b $HOME `id` 'c' {} %@)"),
              "/usr/bin/sudo -S -p '#SSHSessionEnterPassword^' /bin/sh -c \"echo "
              R"('#SSHSessionSudoSuccess^'; a\\"b $HOME `id` 'c' {} %@")");
}

namespace {

const std::string prompt = "#SSHSessionEnterPassword^";
const std::string success = "#SSHSessionSudoSuccess^\n";

using SSHEngine::SudoConversation;
using Heard = SudoConversation::Outcome;

struct Conversation {
    Heard hear(const std::string &out, const std::string &err, int second = 0) {
        output.append(out);
        errorOutput.append(err);
        const SudoConversation::Clock::time_point now(std::chrono::seconds{second});
        return sudo.examine(output, errorOutput, true, now);
    }

    SudoConversation sudo{"sesame", {}};
    SSHPlatform::ByteBuffer output;
    SSHPlatform::ByteBuffer errorOutput;
};

} // namespace

TEST(Sudo, MarkersMayBeSplitAnywhere) {
    for (std::size_t at = 0; at < success.size(); ++at) {
        Conversation talk;
        EXPECT_EQ(talk.hear("", "Sorry, try again.\n" + prompt.substr(0, at)), Heard::Pending);
        EXPECT_EQ(talk.hear("", prompt.substr(at)), Heard::Asked);
        EXPECT_EQ(talk.hear(success.substr(0, at), ""), Heard::Pending);
        // From then on a marker is the command's own text.
        EXPECT_EQ(talk.hear(success.substr(at) + "rest", prompt), Heard::Accepted);
        EXPECT_EQ(talk.output.view(), "rest");
        EXPECT_EQ(talk.errorOutput.view(), prompt);
    }
}

TEST(Sudo, TenSecondsOfSilenceSinceErrorOutputWasLastSeen) {
    Conversation talk;
    EXPECT_EQ(talk.hear("hello\n" + success, "", 10), Heard::Pending); // not at its start
    EXPECT_EQ(talk.hear("", prompt + "\n", 11), Heard::Pending);       // not at its end
    EXPECT_EQ(talk.hear("", "", 100), Heard::Pending);                 // still there
    EXPECT_EQ(talk.hear("", prompt, 120), Heard::Asked);
    EXPECT_EQ(talk.hear("", "", 130), Heard::Pending);
    EXPECT_EQ(talk.hear("", "", 131), Heard::TimedOut);
}
