#include "Tests/Support/SessionTest.h"

#include <asio/ip/tcp.hpp>
#include <asio/write.hpp>

#include <chrono>
#include <thread>

using namespace std::string_literals;
using asio::ip::tcp;
using TCPConnectionTest = SessionTest;

namespace {

std::string couldNot(const std::string &reason) {
    return "Dravella could not make an SSH connection to " + currentUser() + "@127.0.0.1. | " +
           reason + " | -";
}

} // namespace

TEST_F(TCPConnectionTest, UnknownHost) {
    for (const std::string host : {"no-such-host.invalid", ""}) {
        const auto session =
            SSHSession::sessionWithHost(host, 22, "ada", std::nullopt, std::nullopt);
        EXPECT_FALSE(session->start(nullptr) || session->start(&error));
        EXPECT_EQ(error->localizedDescription(),
                  "Dravella could not make an SSH connection to ada@" + host + ".");
        EXPECT_THAT(*error->localizedFailureReason(),
                    testing::MatchesRegex("Could not look up the host. Error: .+ \\(-[0-9]+\\)."));
    }
}

TEST_F(TCPConnectionTest, ServersThatDoNotSpeakSSH) {
    asio::io_context context;
    tcp::acceptor listener(context, {asio::ip::address_v4::loopback(), 0});
    struct Delegate final : SSHSessionDelegate {
        void sshSessionDisconnected(SSHSession & /*session*/,
                                    const SSHErrorRef & /*why*/) noexcept override {
            ADD_FAILURE() << "a failed start is told as a lost connection";
        }
    } delegate;
    for (const std::string &greeting :
         {""s, "SSH-2.0-nothing-else\r\n"s, "HTTP/1.0 200 OK\r\n\r\nhello\r\n"s,
          "SSH-2.0-x\r\n\x01\x02garbage garbage garbage garbage\xff\xfe"s,
          // A disconnect message, before any keys are exchanged.
          "SSH-2.0-x\r\n\0\0\0\x1c\x0b\1\0\0\0\2\0\0\0\3bye\0\0\0\0"s + std::string(11, '\0')}) {
        std::thread server([&] {
            tcp::socket peer = listener.accept();
            asio::write(peer, asio::buffer(greeting));
        });
        const auto session = makeSession(listener.local_endpoint().port());
        session->setDelegate(&delegate);
        EXPECT_FALSE(session->start(&error)) << greeting;
        server.join();
        EXPECT_LT(error->code(), 0);
        const std::string sentence =
            SSHSession_libssh2::_stringForErrorCode(static_cast<std::int32_t>(error->code()));
        EXPECT_EQ(summary(error), "libssh2ErrorDomain " + std::to_string(error->code()) + " | " +
                                      couldNot("Could not complete the handshake. " + sentence));
        EXPECT_TRUE(session->isIdle());
    }
}

// Once its queue of connections is full, a listener on loopback is an address that never answers.
TEST_F(TCPConnectionTest, TimesOutAfterFiveSeconds) {
    asio::io_context context;
    tcp::acceptor silent(context, {asio::ip::address_v4::loopback(), 0});
    silent.listen(0);
    std::vector<std::shared_ptr<TestSession>> filling;
    bool connected = true;
    auto begin = std::chrono::steady_clock::now();
    for (int attempt = 0; attempt < 8 && connected; ++attempt) {
        filling.push_back(makeSession(silent.local_endpoint().port()));
        begin = std::chrono::steady_clock::now();
        connected = filling.back()->_createSocket(*filling.back()->beginConnection(), &error);
    }
    EXPECT_FALSE(connected);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(4900));
    EXPECT_THAT(summary(error), testing::HasSubstr(couldNot("The connection timed out.")));
    for (const auto &session : filling)
        session->stop();
}
