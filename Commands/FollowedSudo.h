// A command through sudo(8) whose way is followed to its end: whatever shell the user has, whatever
// that prints, whatever sudo says. Nothing here does any input or output.
#pragma once

#include "Commands/Sudo.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace SSHEngine {

// The command line that runs `command` as root, for a login shell of any kind: sh and its like, csh
// or fish. Root's /bin/sh reads the command as it was given.
std::string followedSudoCommand(const std::string &command);

// Takes a marker anywhere in the last, unfinished line of standard error for sudo's question, since
// some put words of their own around it, and the announcement of success on any line of standard
// output. What the login shell has printed before is not the command's, and goes with it. The end
// of the channel without the announcement is sudo's refusal.
class FollowedSudo final : public SudoConversation {
  public:
    using SudoConversation::SudoConversation;

    Outcome examine(SSHPlatform::ByteBuffer &output, SSHPlatform::ByteBuffer &errorOutput,
                    bool keepReading, Clock::time_point now) override;

    // sudo's own words, or those of the shell that did not find it.
    std::string refusal(std::string_view errorOutput) const override;

  private:
    std::size_t mOutputSize = 0; // as it was last seen, and
    std::size_t mErrorOutputSize = 0;
};

} // namespace SSHEngine
