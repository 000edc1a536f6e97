// Hosts with several addresses, of which some lead nowhere.
#include "Session/Addresses.h"
#include "Tests/Support/SessionTest.h"
#include "Tests/Support/Wrapped.h"

#include <asio/ip/tcp.hpp>

#include <fcntl.h>
#include <sched.h>

#include <future>
#include <optional>

using asio::ip::tcp;
using SSHEngine::inTurn;
using testing::HasSubstr;

namespace {

class AddressTest : public SessionTest {
  protected:
    AddressTest() {
        options.triesEveryAddress = true;
        serverWith("ListenAddress ::1\n").authorize(key());
        for (const char *name : {"name", "::1", "fe80::1%lo"})
            know(mServer->hostKey(), name);
    }
    void TearDown() override {
        wrapped().addresses.clear();
        mFull.reset();
        SessionTest::TearDown();
    }

    // Once its queue holds a connection, it never answers.
    struct Full {
        explicit Full(const tcp::endpoint &where) : acceptor(context, where, false) {
            acceptor.listen(0);
            filling.connect(acceptor.local_endpoint());
        }
        asio::io_context context;
        tcp::acceptor acceptor;
        tcp::socket filling{context};
    };
    unsigned short fill(const char *address, unsigned short port) {
        mFull.emplace(tcp::endpoint(asio::ip::make_address(address), port));
        return mFull->acceptor.local_endpoint().port();
    }

    // Of a start, and how often it began to connect.
    std::string resultAt(const std::optional<std::string> &host, unsigned short port) {
        wrapped().inject();
        hostName = host;
        const auto session = makeSession(port, std::nullopt, key());
        std::string result = session->start(&error) ? "connected" : summary(error);
        session->stop();
        return result + ", " + std::to_string(wrapped().calls()["connect"]);
    }

    static bool hasIPv6() {
        asio::io_context context;
        tcp::acceptor acceptor(context, tcp::v6());
        asio::error_code failure;
        return !acceptor.bind({asio::ip::address_v6::loopback(), 0}, failure);
    }

    std::optional<Full> mFull;
};

const std::string couldNot = "Could not connect to the remote host. Error: ";

} // namespace

TEST_F(AddressTest, TheFirstToAnswerIsTaken) {
    const unsigned short port = mServer->port();
    fill("127.0.0.2", port);
    const std::string full = "127.0.0.2";
    const std::string refusing = "127.0.0.3";
    const std::string unreachable = "224.0.0.1"; // many hosts, and no connection
    const std::string good = "127.0.0.1";
    for (const auto &[addresses, expected] : std::vector<std::pair<Lines, std::string>>{
             {{good, full}, "connected, 1"},
             {{good, good, good}, "connected, 1"},
             {{full, good}, "connected, 2"},
             {{unreachable, full, refusing, good}, "connected, 4"},
             {{unreachable, refusing}, couldNot + "Connection refused (111). | -, 2"},
             {{refusing, unreachable, refusing}, couldNot + "Connection refused (111). | -, 2"},
             {{unreachable}, couldNot + "Network is unreachable (101). | -, 1"}}) {
        wrapped().addresses = addresses;
        EXPECT_THAT(resultAt("name", port), testing::EndsWith(expected)) << addresses.size();
    }
    wrapped().addresses = {refusing};
    EXPECT_THAT(resultAt("name", port), HasSubstr("Domain 111 | "));
    wrapped().addresses.clear();
    for (const auto &nobody : {std::optional<std::string>(), std::optional<std::string>("")})
        EXPECT_THAT(resultAt(nobody, port), HasSubstr("Could not look up the host. Error: Name or "
                                                      "service not known (-2). | -, 0"));
}

TEST_F(AddressTest, OneLimitHoldsForAllThatHang) {
    const unsigned short port = fill("0.0.0.0", 0);
    for (int i = 1; i <= 40; ++i)
        wrapped().addresses.push_back("127.0.0." + std::to_string(i));
    options.connectTimeout = std::chrono::milliseconds(600);
    const std::string late = "libssh2ErrorDomain 110 | Dravella could not make an SSH connection "
                             "to " +
                             currentUser() + "@name. | The connection timed out. | -, ";
    EXPECT_EQ(resultAt("name", port), late + "3");
    options = {};
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_THAT(resultAt("name", port), HasSubstr("| The connection timed out. | -, 1"));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(4900));
    options.triesEveryAddress = true;
    const auto session = makeSession(port, std::nullopt, key());
    wrapped().inject();
    auto start = std::async(std::launch::async, [&] { return session->start(&error); });
    EXPECT_TRUE(eventually([&] { return wrapped().calls()["connect"] == 3; }));
    session->cancel();
    EXPECT_FALSE(start.get());
    EXPECT_THAT(summary(error), HasSubstr("The session was cancelled while it was connecting."));
}

TEST_F(AddressTest, TheFamiliesTakeTurns) {
    const auto all = [](const Lines &texts) {
        std::vector<SSHEngine::Address> addresses;
        for (const std::string &text : texts) {
            const tcp::endpoint at(asio::ip::make_address(text), 22);
            addresses.emplace_back(at.data(), static_cast<socklen_t>(at.size()));
        }
        return addresses;
    };
    EXPECT_EQ(inTurn(all({"::1", "::2", "::2", "::1", "::3", "10.0.0.1", "10.0.0.2"})),
              all({"::1", "10.0.0.1", "::2", "10.0.0.2", "::3"}));
    EXPECT_EQ(inTurn(all({"10.0.0.1", "::1", "10.0.0.2"})), all({"10.0.0.1", "::1", "10.0.0.2"}));
    EXPECT_TRUE(inTurn({}).empty());
}

TEST_F(AddressTest, WhereThereIsNoIPv4) {
    if (!hasIPv6())
        GTEST_SKIP() << "*** IPv6 is not tested: this computer has none ***";
    EXPECT_EQ(resultAt("::1", mServer->port()), "connected, 1");
    options.addressFamily = SSHAddressFamily::IPv6;
    EXPECT_EQ(resultAt("::1", mServer->port()), "connected, 1");
    const std::string other = "Address family for hostname not supported (-9). | -, 0";
    EXPECT_THAT(resultAt("127.0.0.1", mServer->port()), testing::EndsWith(other));
    options.addressFamily = SSHAddressFamily::IPv4;
    EXPECT_THAT(resultAt("::1", mServer->port()), testing::EndsWith(other));
    options.addressFamily = SSHAddressFamily::Any;
    wrapped().addresses = {"127.0.0.3", "::1"};
    EXPECT_EQ(resultAt("name", mServer->port()), "connected, 2");
    wrapped().addresses.clear();
    const int before = ::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
    if (!isRoot() || runProcess({"ip", "-V"}).status != 0 || ::unshare(CLONE_NEWNET) != 0) {
        ::close(before);
        GTEST_SKIP() << "*** networks without IPv4 are not tested: this takes root, ip(8) and the "
                        "right to make a network namespace ***";
    }
    require({"ip", "link", "set", "lo", "up"});
    require({"ip", "address", "add", "fe80::1/64", "dev", "lo", "nodad"});
    Sshd server({"ecdsa"}, "ListenAddress ::\n");
    server.authorize(key());
    for (const char *name : {"::1", "fe80::1%lo"})
        know(server.hostKey(), name);
    require({"ip", "address", "del", "127.0.0.1/8", "dev", "lo"});
    for (const char *host : {"::1", "fe80::1%lo"})
        EXPECT_EQ(resultAt(host, server.port()), "connected, 1") << server.log();
    EXPECT_EQ(::setns(before, CLONE_NEWNET), 0);
    ::close(before);
}
