// What is noted of a command while it runs.
#pragma once

#include "Session/Notes.h"

#include <cstddef>
#include <string>

class SSHCommand;

namespace SSHEngine {

class ChannelPump;

// Session queue only. While an object of this kind lives, the command is running.
class CommandNotes {
  public:
    CommandNotes(Notes &notes, const SSHCommand &command);
    ~CommandNotes();
    CommandNotes(const CommandNotes &) = delete;
    CommandNotes &operator=(const CommandNotes &) = delete;

    void hasStarted(); // by the server's word
    void sudoHasAccepted(const ChannelPump &pump);
    // What the pump has moved by now, and how much of the command's input.
    void hasMoved(const ChannelPump &pump, std::size_t inputBytes);
    void hasEnded(int status, const std::string &signal); // in order

  private:
    Notes &mNotes;
    std::size_t mArrived = 0;
    std::size_t mInputBytes = 0;
    bool mIsBeginOver = false;
};

} // namespace SSHEngine
