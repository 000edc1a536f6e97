#include "Bench/BareCommand.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace {

void check(bool condition, const char *what) {
    if (!condition)
        throw std::runtime_error(what);
}

} // namespace

BareConnection::BareConnection(unsigned short port, const std::string &user,
                               const std::string &keyPath)
    : mSocket(::socket(AF_INET, SOCK_STREAM, 0)), mSession(libssh2_session_init()) {
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    check(::connect(mSocket, reinterpret_cast<const sockaddr *>(&peer), sizeof peer) == 0,
          "connect");
    const int on = 1;
    ::setsockopt(mSocket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    libssh2_session_flag(mSession, LIBSSH2_FLAG_COMPRESS, 1);
    check(libssh2_session_handshake(mSession, mSocket) == 0, "handshake");
    check(libssh2_userauth_publickey_fromfile(mSession, user.c_str(), nullptr, keyPath.c_str(),
                                              nullptr) == 0,
          "authentication");
}

BareConnection::~BareConnection() {
    libssh2_session_free(mSession);
    ::close(mSocket);
}

int BareConnection::run(const std::string &command) {
    LIBSSH2_CHANNEL *channel = libssh2_channel_open_session(mSession);
    check(channel != nullptr, "channel");
    check(libssh2_channel_exec(channel, command.c_str()) == 0, "exec");
    std::array<char, 4096> buffer{};
    while (libssh2_channel_read(channel, buffer.data(), buffer.size()) > 0)
        continue;
    libssh2_channel_close(channel);
    const int status = libssh2_channel_get_exit_status(channel);
    libssh2_channel_free(channel);
    return status;
}
