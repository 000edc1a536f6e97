// How a command runs through sudo(8): the command line, and the conversation on its channel.
// Nothing here does any input or output.
#pragma once

#include <SSHSession/ByteBuffer.h>
#include <SSHSession/Secret.h>

#include <chrono>
#include <string>
#include <string_view>

namespace SSHEngine {

inline constexpr std::string_view promptMarker = "#SSHSessionEnterPassword^";
inline constexpr std::string_view successMarker = "#SSHSessionSudoSuccess^";

// The command line that runs `command` as root. sudo asks for the password with a marker that ends
// its standard error; the shell that it starts announces success with another marker at the start
// of standard output. Only quotation marks are escaped: the user's login shell sees the command
// inside double quotes, and still expands dollar signs, backslashes and back-quotes in it.
std::string sudoCommand(const std::string &command);

// Follows the conversation from what has arrived so far.
class SudoConversation {
  public:
    using Clock = std::chrono::system_clock;

    enum class Outcome {
        Pending,  // not decided yet
        Asked,    // sudo waits for the `answer`
        Accepted, // the marker has been removed; what remains is the command's own output
        Refused,  // sudo has given up after three passwords
        TimedOut, // ten seconds of silence
    };

    SudoConversation(std::string_view password, Clock::time_point now);
    virtual ~SudoConversation() = default;
    SudoConversation(const SudoConversation &) = delete;
    SudoConversation &operator=(const SudoConversation &) = delete;

    // To be called after each pump step. Empties `errorOutput` when sudo asks, and removes the
    // marker from `output` when it has accepted.
    virtual Outcome examine(SSHPlatform::ByteBuffer &output, SSHPlatform::ByteBuffer &errorOutput,
                            bool keepReading, Clock::time_point now);

    // Why it was refused.
    virtual std::string refusal(std::string_view errorOutput) const;

    // What sudo wants to read each time it asks.
    const SSHPlatform::Secret &answer() const { return mAnswer; }

  protected:
    static constexpr std::chrono::seconds longestSilence{10};
    Clock::time_point mLastActivity;

  private:
    SSHPlatform::Secret mAnswer;
};

} // namespace SSHEngine
