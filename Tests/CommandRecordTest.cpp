#include "Commands/FollowedSudo.h"
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

TEST(Sudo, EveryShellReadsTheSameWord) {
    EXPECT_EQ(SSHEngine::followedSudoCommand("a\n%'\\!"),
              "/usr/bin/sudo -S -p '#SSHSession%%EnterPassword^' /bin/sh -c 'echo; echo '\\''"
              R"x(#SSHSessionSudoSuccess^'\''; )x"
              R"x(eval " $(printf -- '\''a'\\'012%%'\\'047'\\'134'\!''\'')"')x");
}

namespace {

const std::string prompt = "#SSHSessionEnterPassword^";
const std::string success = "#SSHSessionSudoSuccess^\n";

using SSHEngine::SudoConversation;
using Answer = SudoConversation::Outcome;

struct Piece {
    std::string out;
    std::string err;
    int second;
    Answer heard;
    const char *words = "";
    bool keepReading = true;
};

// What follows the marker of success is the command's own. Answers the error output in the end.
std::string converse(SudoConversation &sudo, const std::vector<Piece> &pieces) {
    SSHPlatform::ByteBuffer output;
    SSHPlatform::ByteBuffer errorOutput;
    for (const Piece &piece : pieces) {
        output.append(piece.out);
        errorOutput.append(piece.err);
        const SudoConversation::Clock::time_point now(std::chrono::seconds{piece.second});
        EXPECT_EQ(sudo.examine(output, errorOutput, piece.keepReading, now), piece.heard)
            << piece.out << piece.err;
        EXPECT_EQ(piece.heard == Answer::Refused ? sudo.refusal(errorOutput.view()) : "",
                  piece.words);
        EXPECT_TRUE(piece.heard != Answer::Accepted || output.view() == "own");
    }
    return std::string(errorOutput.view());
}

} // namespace

TEST(Sudo, MarkersMayBeSplitAnywhere) {
    for (std::size_t at = 0; at < success.size(); ++at) {
        SudoConversation sudo("sesame", {});
        const auto errors =
            converse(sudo, {{"", "Sorry, try again.\n" + prompt.substr(0, at), 0, Answer::Pending},
                            {"", prompt.substr(at), 0, Answer::Asked},
                            {success.substr(0, at), "", 0, Answer::Pending},
                            {success.substr(at) + "own", prompt, 0, Answer::Accepted}});
        EXPECT_EQ(errors, prompt);
    }
}

TEST(Sudo, TenSecondsOfSilenceSinceErrorOutputWasLastSeen) {
    SudoConversation sudo("sesame", {});
    converse(sudo, {{"hello\n" + success, "", 10, Answer::Pending}, // not at its start
                    {"", prompt + "\n", 11, Answer::Pending},       // not at its end
                    {"", "", 100, Answer::Pending},                 // still there
                    {"", prompt, 120, Answer::Asked},
                    {"", "", 130, Answer::Pending},
                    {"", "", 131, Answer::TimedOut}});
}

// What sudo-rs asks has words around the marker, which may come in pieces as well.
TEST(Sudo, FollowedToItsEnd) {
    const std::string marker = "#SSHSession%EnterPassword^";
    const std::string question = "[sudo: " + marker + "] Password: ";
    const std::string accepted = "\n" + success + "own";
    for (const auto &pieces : std::vector<std::vector<Piece>>{
             {{"hi", "a lecture\n", 9, Answer::Pending},
              {"", question, 18, Answer::Asked},
              {"", "\nno\n" + question + "\n", 27, Answer::Pending}, // answered
              {"", "", 38, Answer::TimedOut}},
             {{"", "+ /usr/bin/sudo -S -p #SSHSession%%EnterPassword^", 0, Answer::Pending},
              {"", " /bin/sh -c\n" + question, 0, Answer::Asked}},
             {{"hi", question.substr(0, 40), 0, Answer::Asked},
              {"", question.substr(40), 0, Answer::Pending},
              {accepted, marker, 0, Answer::Accepted}},
             {{"\n#SSHSessionSudo", "", 9, Answer::Pending},
              {"Success^", "", 18, Answer::Pending},
              {"\nown", marker, 29, Answer::Accepted}},
             {{accepted, "", 0, Answer::Accepted, "", false}},
             {{"#SSHSessionSudoSuccess^ ", "\r\n " + marker + "no\xff, not ada\n" + marker, 0,
               Answer::Refused, "no\uFFFD, not ada", false}},
             {{"", "", 0, Answer::Refused, "sudo has ended without saying why.", false}}}) {
        SSHEngine::FollowedSudo sudo("sesame", {});
        converse(sudo, pieces);
    }
}
