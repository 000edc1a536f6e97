// What a server says, played to the library's socket calls (the linker's --wrap) without any
// server, waiting or network: so that an input always does the same, some thousand times a second.
#pragma once

#include "Session/Connection.h"
#include "Session/SSHSession_libssh2.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Says all of `stream`, then that the connection has ended. With a `piece` other than 0 nothing
// comes at every second time that the client reads, and so many bytes at most in between. What the
// client sends is taken, and forgotten. Answers the descriptor for the client, which closes it.
int playServer(std::string stream, std::size_t piece = 0);

// The binary packet of RFC 4253, section 6, before there are keys; without padding, so that
// whoever reads beyond the message reads beyond its memory.
std::string packet(std::string_view message);

class PlayedSession final : public SSHSession_libssh2 {
  public:
    using SSHSession_libssh2::SSHSession_libssh2;

    // A session for a server that is known as "server" at port 22, for a user "ada".
    static std::shared_ptr<PlayedSession> make();

    // A connection whose first stage is done.
    ConnectionRef connectedTo(int descriptor);
};

// The outcome is one or the other, and an error has its texts, in valid UTF-8.
void expectOutcome(bool succeeded, const SSHErrorRef &error);

// The user in front of all sessions.
struct PlayedUser {
    bool agrees = true; // answers every question by its first button
    std::vector<std::string> shown;
};
PlayedUser &playedUser();

// Makes HOME a new directory for the life of the process, with that user, and silences the log.
// Answers the path of the home.
const std::string &homeOfPlayedSessions();
