#include "Tests/Support/SessionTest.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

namespace {

// Accepts connections on loopback, says one thing to each and closes it.
class RudeServer {
  public:
    explicit RudeServer(std::string greeting, int backlog = 5)
        : mGreeting(std::move(greeting)), mListener(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        auto *const generic = reinterpret_cast<sockaddr *>(&address);
        EXPECT_EQ(::bind(mListener, generic, length), 0);
        EXPECT_EQ(::listen(mListener, backlog), 0);
        ::getsockname(mListener, generic, &length);
        port = ntohs(address.sin_port);
    }
    RudeServer(const RudeServer &) = delete;
    RudeServer &operator=(const RudeServer &) = delete;
    ~RudeServer() {
        ::shutdown(mListener, SHUT_RDWR);
        if (mThread.joinable())
            mThread.join();
        ::close(mListener);
    }

    void serve() {
        mThread = std::thread([this] {
            for (int peer = 0; (peer = ::accept(mListener, nullptr, nullptr)) >= 0; ::close(peer))
                EXPECT_EQ(::send(peer, mGreeting.data(), mGreeting.size(), MSG_NOSIGNAL),
                          static_cast<ssize_t>(mGreeting.size()));
        });
    }

    unsigned short port = 0;

  private:
    const std::string mGreeting;
    const int mListener;
    std::thread mThread;
};

std::string couldNot(const std::string &reason) {
    return "Dravella could not make an SSH connection to " + currentUser() + "@127.0.0.1. | " +
           reason + " | -";
}

} // namespace

using TCPConnectionTest = SessionTest;

TEST_F(TCPConnectionTest, UnknownHost) {
    for (const char *host : {"no-such-host.invalid", ""}) {
        const auto session =
            SSHSession::sessionWithHost(host, 22, "ada", std::nullopt, std::nullopt);
        EXPECT_FALSE(session->start(&error));
        EXPECT_EQ(error->localizedDescription(),
                  std::string("Dravella could not make an SSH connection to ada@") + host + ".");
        EXPECT_THAT(*error->localizedFailureReason(),
                    testing::MatchesRegex("Could not look up the host. Error: .+ \\(-[0-9]+\\)."));
        EXPECT_FALSE(session->start(nullptr));
    }
}

// A refused connection passes the first stage; the handshake meets it.
TEST_F(TCPConnectionTest, RefusedConnection) {
    const auto session = makeSession(freePort());
    EXPECT_TRUE(session->_createSocket(&error));
    EXPECT_FALSE(session->_startSession(&error));
    EXPECT_THAT(summary(error), testing::HasSubstr("Could not complete the handshake. "));
    EXPECT_LT(error->code(), 0);
    session->stop();
    EXPECT_EQ(session->mSocket, 0);
}

TEST_F(TCPConnectionTest, ServersThatDoNotSpeakSSH) {
    for (const char *greeting : {"", "SSH-2.0-nothing-else\r\n", "HTTP/1.0 200 OK\r\n\r\nhello\r\n",
                                 "SSH-2.0-x\r\n\x01\x02garbage garbage garbage garbage\xff\xfe"}) {
        RudeServer rude(greeting);
        rude.serve();
        const auto session = makeSession(rude.port);
        EXPECT_FALSE(session->start(&error)) << greeting;
        EXPECT_LT(error->code(), 0);
        EXPECT_EQ("libssh2ErrorDomain " + std::to_string(error->code()) + " | " +
                      couldNot("Could not complete the handshake. " +
                               SSHSession_libssh2::_stringForErrorCode(
                                   static_cast<std::int32_t>(error->code()))),
                  summary(error));
        EXPECT_FALSE(session->isConnected());
        EXPECT_EQ(session->mSocket, 0);
        EXPECT_FALSE(session->_session());
    }
}

// Once its queue of connections is full, a listener on loopback is an address that never answers.
TEST_F(TCPConnectionTest, TimesOutAfterFiveSeconds) {
    const RudeServer silent("", 0);
    std::vector<std::shared_ptr<TestSession>> filling;
    bool connected = true;
    for (int attempt = 0; attempt < 8 && connected; ++attempt) {
        filling.push_back(makeSession(silent.port));
        const auto begin = std::chrono::steady_clock::now();
        connected = filling.back()->_createSocket(&error);
        if (!connected) {
            EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(4900));
        }
    }
    EXPECT_FALSE(connected);
    EXPECT_THAT(summary(error), testing::HasSubstr(couldNot("The connection timed out.")));
    for (const auto &session : filling)
        session->stop();
}
