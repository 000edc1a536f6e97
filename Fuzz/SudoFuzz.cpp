// Whatever comes in whatever pieces: nothing is taken from standard output but the announcement of
// success at its very beginning, nothing from standard error but what ends in a prompt; a prompt is
// answered when it ends what has come, and never once success has been announced; so the command's
// own output does not depend on the pieces. A shell takes sudo's command line apart into just the
// words that were meant, but for what it expands between double quotes.
#include "Fuzz/Support/Property.h"
#include "Fuzz/Support/Shell.h"

#include "Commands/FollowedSudo.h"

#include <algorithm>

using SSHEngine::SudoConversation;
using SSHPlatform::ByteBuffer;
using enum SSHEngine::SudoConversation::Outcome;

namespace {

const std::string prompt = "#SSHSessionEnterPassword^";
const std::string followedPrompt = "#SSHSession%EnterPassword^";
const std::string success = "#SSHSessionSudoSuccess^";
constexpr unsigned errorBit = 0x80;

void readBack(std::string_view input) {
    std::string command(input.substr(0, input.find('\0')));
    for (char &byte : command)
        if (byte == '$' || byte == '`' || byte == '\\')
            byte = '.';
    std::string line = SSHEngine::sudoCommand(command);
    hold(everyShellReads(line, {"/usr/bin/sudo", "-S", "-p", prompt, "/bin/sh", "-c",
                                "echo '" + success + "'; " + command}),
         "a shell reads sudo's command line as it was meant");
    std::string any(input.substr(0, input.find('\0')));
    for (char &byte : any) // what printf(1) is to make of these, only root's shell shows
        if (byte == '\n' || byte == '\\' || byte == '\'' || byte == '%')
            byte = '.';
    line = SSHEngine::followedSudoCommand(any);
    hold(everyShellReads(
             line, {"/usr/bin/sudo", "-S", "-p", "#SSHSession%%EnterPassword^", "/bin/sh", "-c",
                    "echo; echo '" + success + "'; eval \" $(printf -- '" + any + "')\""}),
         "a shell reads the line of a sudo that is followed as it was meant");
}

// Where the announcement stands, and what is asked, do not depend on the pieces either.
void follow(std::string_view input) {
    SSHEngine::FollowedSudo sudo("secret", {});
    ByteBuffer output;
    ByteBuffer errors;
    std::string all;
    auto outcome = Pending;
    while (outcome == Pending || outcome == Asked) {
        const bool isLast = input.empty();
        const unsigned head = takeByte(input);
        const std::string_view piece = input.substr(0, head & ~errorBit);
        input.remove_prefix(piece.size());
        const bool isError = (head & errorBit) != 0;
        (isError ? errors : output).append(piece);
        all.append(isError ? "" : piece);
        const std::string line(errors.view().substr(errors.view().rfind('\n') + 1));
        outcome = sudo.examine(output, errors, !isLast, {});
        const std::size_t found = all.find("\n" + success + "\n");
        hold((outcome == Accepted) == (found != std::string::npos), "success is seen at once");
        hold(outcome != Accepted || output.view() == all.substr(found + success.size() + 2),
             "what follows the announcement is the command's");
        hold(outcome == Accepted || output.view() == all, "nothing is taken before");
        hold((outcome == Asked) ==
                 (outcome != Accepted && !isLast && line.find(followedPrompt) != std::string::npos),
             "a question is answered once");
    }
    hold(sudo.refusal(errors.view()).find(followedPrompt) == std::string::npos,
         "words are sudo's own");
}

// What has come so far, and what an honest listener makes of it.
class Conversation {
  public:
    void hear(std::string_view output, std::string_view errors, bool keepReading) {
        mOutput.append(output);
        mErrors.append(errors);
        mAllOutput += output;
        mErrorsSinceAsked += errors;
        const auto outcome = mConversation.examine(mOutput, mErrors, keepReading, mNow);
        const bool isAnnounced = mAllOutput.starts_with(success);
        hold(outcome != TimedOut, "no time has passed");
        hold(outcome != Asked || !isAnnounced, "nothing is asked once success is announced");
        hold(outcome != Asked || mErrorsSinceAsked.ends_with(prompt), "there is a prompt");
        hold((outcome == Asked) == mErrors.empty() || mErrorsSinceAsked.empty(),
             "standard error is emptied by a prompt alone");
        hold(outcome != Refused || !keepReading, "sudo's last word comes last");
        hold(outcome == Refused || isAnnounced ||
                 (outcome == Asked) == mErrorsSinceAsked.ends_with(prompt),
             "each prompt is answered");
        if (outcome == Asked)
            mErrorsSinceAsked.clear();
        hold(mErrors.view() == mErrorsSinceAsked, "the rest of standard error is as it came");
        if (outcome == Accepted)
            mRest = mAllOutput.substr(std::min(mAllOutput.size(), success.size() + 1));
        hold(mOutput.view() == (outcome == Accepted ? mRest : mAllOutput),
             "nothing but the announcement is taken from standard output");
        hold(outcome == Refused ||
                 (outcome == Accepted) ==
                     (isAnnounced && (!keepReading || mAllOutput.size() > success.size())),
             "success is seen as soon as it is announced");
        mIsOver = outcome == Accepted || outcome == Refused;
    }
    bool isOver() const { return mIsOver; }

  private:
    const SudoConversation::Clock::time_point mNow;
    SudoConversation mConversation{"secret", mNow};
    ByteBuffer mOutput;
    ByteBuffer mErrors;
    std::string mAllOutput;
    std::string mErrorsSinceAsked;
    std::string mRest;
    bool mIsOver = false;
};

} // namespace

// Pieces: a byte that tells the stream and the size, then so many bytes.
int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string_view input = textOf(data, size);
    readBack(input);
    follow(input);
    Conversation conversation;
    while (!conversation.isOver()) {
        const bool isLast = input.empty();
        const unsigned head = takeByte(input);
        const std::string_view piece = input.substr(0, head & ~errorBit);
        input.remove_prefix(piece.size());
        const bool isError = (head & errorBit) != 0;
        conversation.hear(isError ? "" : piece, isError ? piece : "", !isLast);
        if (isLast)
            break;
    }
    return 0;
}
