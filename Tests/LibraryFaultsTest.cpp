// What CMake/libssh2-patches mends: each patch names the test here that fails without it; the
// address sanitizer sees still more. And agents that are not what they should be.
#include "Tests/Support/ScriptedServer.h"
#include "Tests/Support/Wrapped.h"

#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>
#include <fmt/format.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <map>
#include <thread>

using namespace std::string_literals;
using asio::local::stream_protocol;
using testing::HasSubstr;

namespace {

// Memory that is filled, with marks behind it that must not change.
const std::string marks(16, 'x');
int overwritten = 0;
std::map<void *, std::size_t> sizes;

void *allocate(std::size_t size, void ** /*abstract*/) {
    void *memory = std::malloc(size + marks.size());
    sizes[memory] = size;
    return std::memset(memory, 'x', size + marks.size());
}

void release(void *memory, void ** /*abstract*/) {
    if (!memory)
        return;
    const char *behind = static_cast<char *>(memory) + sizes.extract(memory).mapped();
    if (std::string_view(behind, marks.size()) != marks)
        ++overwritten;
    std::free(memory);
}

void *reallocate(void *memory, std::size_t size, void **abstract) {
    void *larger = allocate(size, abstract);
    if (memory)
        std::memcpy(larger, memory, std::min(size, sizes[memory]));
    release(memory, abstract);
    return larger;
}

using Library = std::unique_ptr<LIBSSH2_SESSION, decltype(&libssh2_session_free)>;

Library library() {
    return {libssh2_session_init_ex(allocate, release, reallocate, nullptr), libssh2_session_free};
}

// A connection of the library alone.
struct Client {
    using Preferences = std::vector<std::pair<int, const char *>>;

    explicit Client(unsigned short port, const char *version = "SSH-2.0-test",
                    const Preferences &preferences = {}) {
        socket.connect({asio::ip::address_v4::loopback(), port});
        libssh2_session_banner_set(get(), version);
        for (const auto &[method, names] : preferences)
            EXPECT_EQ(libssh2_session_method_pref(get(), method, names), 0);
        isConnected = libssh2_session_handshake(get(), socket.native_handle()) == 0;
    }
    LIBSSH2_SESSION *get() const { return library.get(); }
    bool signIn(const std::string &name, const std::string &key) const {
        return libssh2_userauth_publickey_fromfile(get(), name.c_str(), (key + ".pub").c_str(),
                                                   key.c_str(), nullptr) == 0;
    }
    // How much it puts out.
    std::size_t run(const std::string &command) const {
        LIBSSH2_CHANNEL *const channel = libssh2_channel_open_session(get());
        EXPECT_EQ(libssh2_channel_exec(channel, command.c_str()), 0);
        std::vector<char> buffer(32768);
        std::size_t total = 0;
        for (ssize_t got = 1; got > 0; total += static_cast<std::size_t>(got))
            got = libssh2_channel_read(channel, buffer.data(), buffer.size());
        libssh2_channel_free(channel);
        return total;
    }

    asio::io_context context;
    asio::ip::tcp::socket socket{context};
    Library library = ::library();
    bool isConnected = false;
};

class AgentTest : public ScriptedServerTest {
  protected:
    // An agent that gives this answer to its first request, hangs up, and leaves its socket behind.
    std::jthread agentThatAnswers(const std::string &answer) {
        const std::string path = home.directory.path("agent");
        std::filesystem::remove(path);
        ::setenv("SSH_AUTH_SOCK", path.c_str(), 1);
        const auto context = std::make_shared<asio::io_context>();
        const auto listener = std::make_shared<stream_protocol::acceptor>(*context, path);
        return std::jthread([context, listener, answer] {
            stream_protocol::socket client(*context);
            std::string request(5, '\0');
            asio::error_code ended;
            while (asio::read(client, asio::buffer(request), ended) == 0)
                client = listener->accept(); // the first may only look who is there
            asio::write(client, asio::buffer(answer), ended);
        });
    }

    // What the agent's stage alone reports.
    std::string stage() {
        const auto session = sessionAs("publickey");
        EXPECT_FALSE(session->_authenticateWithAgent(*session->handshaken(), &error));
        session->stop();
        return summary(error);
    }
};

class LibraryFaultsTest : public AgentTest {
  protected:
    void SetUp() override {
#ifndef SSHSESSION_MENDED_LIBSSH2
        GTEST_SKIP() << "the system's libssh2 has these faults";
#endif
    }

    // A line of known hosts, written once it has been read.
    static std::string rewritten(const std::string &line) {
        constexpr int format = LIBSSH2_KNOWNHOST_FILE_OPENSSH;
        const Library library = ::library();
        const std::unique_ptr<LIBSSH2_KNOWNHOSTS, decltype(&libssh2_knownhost_free)> hosts = {
            libssh2_knownhost_init(library.get()), libssh2_knownhost_free};
        EXPECT_EQ(libssh2_knownhost_readline(hosts.get(), line.data(), line.size(), format), 0);
        libssh2_knownhost *first = nullptr;
        if (libssh2_knownhost_get(hosts.get(), &first, nullptr) != 0)
            return "nothing";
        std::string written(1000, 'x');
        std::size_t size = 0;
        libssh2_knownhost_writeline(hosts.get(), first, written.data(), 1000, &size, format);
        return written.substr(0, size);
    }

    void expectNoLeak(const std::string &what, const std::function<void()> &once) {
        once(); // what is allocated for the life of the process
        const std::size_t before = heapSize();
        for (int i = 0; i < 3; ++i)
            once();
        EXPECT_LT(heapSize(), before + 1000) << what;
    }
};

} // namespace

// Names of one or two letters, and hashed ones without hash or salt.
TEST_F(LibraryFaultsTest, KnownHostsStayAsTheyAre) {
    for (const char *name : {"0", "00", "|1|QUJDRA==|", "|1||QUJDREVGRw==", "|1||"}) {
        const std::string line = fmt::format("{} {}\n", name, scripted.hostKey());
        EXPECT_EQ(rewritten(line), line);
    }
}

TEST_F(LibraryFaultsTest, OddExitSignals) {
    const auto session = sessionAs("password", "sesame");
    ASSERT_TRUE(session->start(&error)) << summary(error);
    for (const auto &[script, signal] : std::vector<std::pair<std::string, std::string>>{
             {"long-signal 5 TERM", "(null)"},
             {"long-signal 4 TERM", "TERM"},
             {"signal TERM; long-signal 4294967295 KILL", "TERM"},
             {"signal TERM; signal KILL", "KILL"}})
        EXPECT_EQ(resultOf(*session, script + "; eof; close"), "0 " + signal + " |  | ") << script;
}

TEST_F(LibraryFaultsTest, NothingIsLeaked) {
    const Sshd sshd({"ecdsa", "dsa"}, "HostKeyAlgorithms +ssh-dss\nRekeyLimit 16K\n");
    sshd.authorize(key());
    for (const Client::Preferences &each :
         std::vector<Client::Preferences>{{{LIBSSH2_METHOD_HOSTKEY, "ssh-dss"}},
                                          {{LIBSSH2_METHOD_KEX, "curve25519-sha256"}},
                                          {{LIBSSH2_METHOD_KEX, "ecdh-sha2-nistp256"}},
                                          {{LIBSSH2_METHOD_CRYPT_CS, "aes256-gcm@openssh.com"},
                                           {LIBSSH2_METHOD_CRYPT_SC, "aes256-gcm@openssh.com"}}})
        expectNoLeak(each.front().second, [&] {
            const Client client(sshd.port(), "SSH-2.0-test", each);
            EXPECT_TRUE(client.isConnected && client.signIn(currentUser(), key()));
            EXPECT_EQ(client.run("head -c 100000 /dev/zero"), 100000);
        });
    expectNoLeak("the end before the first keys are in use",
                 [&] { EXPECT_FALSE(Client(scripted.port(), "SSH-2.0-reset").isConnected); });
    std::string signals;
    for (int i = 0; i < 100; ++i)
        signals += "signal " + std::string(100, 'S') + "; ";
    expectNoLeak("methods asked for, and signals told, many times", [&] {
        const Client client(scripted.port());
        for (int i = 0; i < 100; ++i)
            EXPECT_STREQ(libssh2_userauth_list(client.get(), "password", 8), "password");
        EXPECT_EQ(libssh2_userauth_password(client.get(), "password", "sesame"), 0);
        EXPECT_EQ(client.run(signals + "out a; eof; close"), 1);
    });
}

TEST_F(LibraryFaultsTest, NothingIsWrittenBeyondAllocations) {
    overwritten = 0;
    const std::string key = home.directory.path("key");
    makeKey(key, "rsa"); // whose base64 takes one "=" that nobody needs
    const std::string shown = publicKey(key);
    home.directory.write("key.pub", shown.substr(0, shown.size() - 1));
    EXPECT_TRUE(Client(scripted.port(), "SSH-2.0-repeat").signIn("publickey", key));
    for (const char *name : {"|1|QUJDRA==|QUJDREU", "|1|QUI|QUJDRA=="})
        rewritten(fmt::format("{} {}", name, shown));
    EXPECT_EQ(overwritten, 0);
}

TEST_F(LibraryFaultsTest, AnAgentThatGoesAwayIsGivenUp) {
    for (std::size_t answered = 0; answered <= 6; ++answered) { // bytes of a message of nine
        const bool isGone = answered == 6;
        const auto odd = isGone ? std::jthread() : agentThatAnswers({"\0\0\0\5\14", answered});
        const Library library = ::library();
        LIBSSH2_AGENT *const agent = libssh2_agent_init(library.get());
        EXPECT_EQ(libssh2_agent_connect(agent) != 0, isGone);
        EXPECT_LT(libssh2_agent_list_identities(agent), 0) << answered;
        libssh2_agent_free(agent);
    }
    EXPECT_EQ(wrapped().badCloses, 0);
}

TEST_F(LibraryFaultsTest, NoDescriptorIsInherited) {
    const std::string file = home.directory.path("rsa");
    makeKey(file, "rsa");
    server().authorize(file);
    server().authorize(key());
    const SshAgent agent({key()});
    const int before = wrapped().inheritable;
    EXPECT_TRUE(makeSession(server().port())->start(&error)) << summary(error);
    ::unsetenv("SSH_AUTH_SOCK");
    EXPECT_TRUE(makeSession(server().port(), {}, file)->start(&error)) << summary(error);
    home.directory.write(".ssh/known_hosts", "");
    EXPECT_FALSE(makeSession(server().port())->start(&error));
    EXPECT_EQ(wrapped().inheritable, before);
}

TEST_F(AgentTest, AnAgentThatGoesAwayIsAnError) {
    {
        const auto agent = agentThatAnswers("");
        EXPECT_THAT(stage(), HasSubstr("An error occurred in libssh2_agent_list_identities."));
    }
    // With a room of 4 GB for it only the reply itself would fail, which is -7.
    for (const auto &[length, code] : {std::pair("\0\4\0\1"s, -43), {"\0\4\0\0"s, -7}}) {
        const auto agent = agentThatAnswers(length);
        EXPECT_THAT(stage(), HasSubstr(fmt::format("list_identities. ({})", code)));
    }
    EXPECT_THAT(stage(), HasSubstr("-42 | An error occurred in libssh2_agent_connect. (-42) | "
                                   "Error -42. failed connecting with agent"));
    EXPECT_EQ(wrapped().badCloses, 0) << "a descriptor was closed that others may have opened";
}

TEST_F(AgentTest, AThousandSignalsASecondDisturbNothing) {
    const SshAgent agent({key()});
    server();
    const auto other = sessionAs("password", "sesame");
    struct sigaction ignored {};
    ignored.sa_handler = [](int) {}; // without SA_RESTART
    ::sigaction(SIGALRM, &ignored, nullptr);
    ::ualarm(1000, 1000);
    for (int round = 0; round < 3; ++round) {
        const auto session = makeSession(server().port());
        EXPECT_TRUE(session->start(&error) && session->connection()->agent()) << summary(error);
        EXPECT_EQ(resultOf(*session, "echo out"), "0 (null) | out\n | ");
        session->stop();
        EXPECT_TRUE(other->start(&error)) << summary(error);
        EXPECT_EQ(resultOf(*other, "prompt; read; wait 0.1; success; out x; eof; close", "admin"),
                  "0 (null) | x | ");
        other->stop();
    }
    ::ualarm(0, 0);
}
