// The watch over one connection of a session that asks for it (watchesConnection): when the server
// was heard last, what it was asked since, and the channel by which an idle connection is read. Of
// other sessions it does nothing.
#pragma once

#include "Platform/Socket.h"

#include <SSHSession/SSHError.h>

#include <libssh2.h>

#include <atomic>
#include <chrono>

namespace SSHEngine {

class Connection;

// Session queue only, but for `wantsListening`; between calls of the library, never inside one.
class Watch {
  public:
    explicit Watch(Connection &connection) noexcept : mConnection(connection) {}

    // Bytes have come from the server.
    void noteSign() noexcept;

    // Whether something has arrived or a keepalive is due, so that `listen` has something to do. A
    // mere look, from any thread.
    bool wantsListening() const noexcept;

    // For a connection that no command uses. Takes what the server has sent, which answers its
    // requests and exchanges new keys, and sends a keepalive when one is due. Fails once the
    // connection has ended.
    bool listen(SSHErrorRef *error);

    // For a command. Waits as Connection::wait does; when nothing has come meanwhile, sends a
    // keepalive if one is due, or gives up the server that has not answered the last three.
    int wait(SSHPlatform::WaitFor directions, std::chrono::milliseconds timeout, int source = -1);
    // The same for a call that has waited by itself, and in vain.
    void ask();

    // The channel that `listen` has opened ahead, for the next command; null where there is none.
    LIBSSH2_CHANNEL *takeOpened() noexcept;

    // Takes over a channel that both sides have closed.
    void retire(LIBSSH2_CHANNEL *channel) noexcept;

  private:
    using Clock = std::chrono::steady_clock;

    bool isDue() const noexcept;
    int readIdle();

    Connection &mConnection;
    // When the server was last heard or asked.
    std::atomic<Clock::time_point> mLastSign = Clock::time_point();
    int mUnanswered = 0; // keepalives since it was heard
    // The library reads from the network only for a channel, be it a closed one.
    LIBSSH2_CHANNEL *mRetired = nullptr;
    LIBSSH2_CHANNEL *mOpened = nullptr;
};

} // namespace SSHEngine
