// What CMake/libssh2-patches mends: each of those patches names the test here that fails without
// it. Leaks and reads beyond the heap are seen as well, and better, with the address sanitizer.
#include "Tests/Support/ScriptedServer.h"

#include <SSHSession/SSHSession.h>

#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/write.hpp>
#include <fcntl.h>
#include <fmt/format.h>
#include <libssh2.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

using SSHPlatform::AlertAnswer;

namespace {

// Memory that is filled, with marks behind it that must not change. The address sanitizer watches
// better than they do, but only memory that is what it gave out.
#ifdef __SANITIZE_ADDRESS__
constexpr bool isMarked = false;
#else
constexpr bool isMarked = true;
#endif
constexpr char mark = 'x';
constexpr std::size_t marks = 16;
int overwritten = 0;

struct alignas(std::max_align_t) Header {
    std::size_t size;
};

void *allocate(std::size_t size, void ** /*abstract*/) {
    auto *header = static_cast<Header *>(std::malloc(sizeof(Header) + size + marks));
    header->size = size;
    return std::memset(header + 1, mark, size + marks);
}

void release(void *memory, void ** /*abstract*/) {
    if (!memory)
        return;
    Header *header = static_cast<Header *>(memory) - 1;
    const char *behind = static_cast<char *>(memory) + header->size;
    if (std::count(behind, behind + marks, mark) != marks)
        ++overwritten;
    std::free(header);
}

void *reallocate(void *memory, std::size_t size, void **abstract) {
    void *larger = allocate(size, abstract);
    if (memory)
        std::memcpy(larger, memory, std::min(size, (static_cast<Header *>(memory) - 1)->size));
    release(memory, abstract);
    return larger;
}

using Library = std::unique_ptr<LIBSSH2_SESSION, decltype(&libssh2_session_free)>;

Library library() {
    return {isMarked ? libssh2_session_init_ex(allocate, release, reallocate, nullptr)
                     : libssh2_session_init(),
            libssh2_session_free};
}

class KnownHosts {
  public:
    explicit KnownHosts(const std::string &line) {
        EXPECT_EQ(libssh2_knownhost_readline(mHosts.get(), line.data(), line.size(), format), 0);
    }
    int write(const std::string &path) {
        return libssh2_knownhost_writefile(mHosts.get(), path.c_str(), format);
    }

  private:
    static constexpr int format = LIBSSH2_KNOWNHOST_FILE_OPENSSH;
    Library mLibrary = library();
    std::unique_ptr<LIBSSH2_KNOWNHOSTS, decltype(&libssh2_knownhost_free)> mHosts = {
        libssh2_knownhost_init(mLibrary.get()), libssh2_knownhost_free};
};

// A connection of the library alone.
class Client {
  public:
    using Preferences = std::vector<std::pair<int, std::string>>;

    explicit Client(unsigned short port, const std::string &version = "SSH-2.0-test",
                    const Preferences &preferences = {}) {
        mSocket.connect({asio::ip::address_v4::loopback(), port});
        libssh2_session_banner_set(get(), version.c_str());
        for (const auto &[method, names] : preferences)
            EXPECT_EQ(libssh2_session_method_pref(get(), method, names.c_str()), 0);
        mHandshake = libssh2_session_handshake(get(), mSocket.native_handle());
    }

    LIBSSH2_SESSION *get() const { return mLibrary.get(); }
    bool isConnected() const { return mHandshake == 0; }

    bool signIn(const std::string &name, const std::string &key) const {
        return libssh2_userauth_publickey_fromfile(get(), name.c_str(), (key + ".pub").c_str(),
                                                   key.c_str(), nullptr) == 0;
    }

    // How much it puts out.
    std::size_t run(const std::string &command) const {
        const std::unique_ptr<LIBSSH2_CHANNEL, decltype(&libssh2_channel_free)> channel = {
            libssh2_channel_open_session(get()), libssh2_channel_free};
        EXPECT_EQ(libssh2_channel_exec(channel.get(), command.c_str()), 0);
        std::vector<char> buffer(32768);
        std::size_t total = 0;
        while (const ssize_t got =
                   libssh2_channel_read(channel.get(), buffer.data(), buffer.size())) {
            if (got < 0)
                return 0;
            total += static_cast<std::size_t>(got);
        }
        return total;
    }

  private:
    asio::io_context mContext;
    asio::ip::tcp::socket mSocket{mContext};
    Library mLibrary = library();
    int mHandshake = -1;
};

std::size_t allocatedMemory() {
    return ::mallinfo2().uordblks; // 0 under the sanitizers, whose own count comes at the end
}

class LibraryFaultsTest : public ScriptedServerTest {
  protected:
    void SetUp() override {
#ifndef SSHSESSION_MENDED_LIBSSH2
        GTEST_SKIP() << "the system's libssh2 has these faults";
#endif
    }
};

} // namespace

TEST_F(LibraryFaultsTest, NamesOfOneOrTwoLettersAreKnown) {
    const Sshd other;
    for (const std::string name : {"0", "00"}) { // numbers that stand for this machine
        SCOPED_TRACE(name);
        const auto connects = [&](const Sshd &sshd) {
            const auto session =
                SSHSession::sessionWithHost(name, sshd.port(), currentUser(), std::nullopt, key());
            user->shown.clear();
            const bool connected = session->start(&error);
            session->stop();
            return connected;
        };
        other.authorize(key());
        home.directory.write(".ssh/known_hosts", name + " " + server().hostKey() + "\n");
        EXPECT_TRUE(connects(server()));
        EXPECT_EQ(user->shown, Lines());
        user->answers = {AlertAnswer::FirstButton};
        EXPECT_TRUE(connects(other));
        EXPECT_THAT(user->shown,
                    testing::ElementsAre(testing::StartsWith("Critical: "))); // it has changed
        EXPECT_TRUE(connects(server()) && connects(other)); // the file holds both keys
    }
}

TEST_F(LibraryFaultsTest, OddExitSignals) {
    const auto session = sessionAs("password", "sesame");
    ASSERT_TRUE(session->start(&error)) << summary(error);
    for (const auto &[script, result] : std::vector<std::pair<std::string, std::string>>{
             {"long-signal 1000 TERM; eof; close", "0 (null) |  | "},
             {"long-signal 5 TERM; eof; close", "0 (null) |  | "},
             {"long-signal 4 TERM; eof; close", "0 TERM |  | "},
             {"signal TERM; long-signal 4294967295 KILL; eof; close", "0 TERM |  | "},
             {"signal TERM; signal KILL; eof; close", "0 KILL |  | "}})
        EXPECT_EQ(resultOf(*session, script), result) << script;
}

TEST_F(LibraryFaultsTest, NothingIsLeaked) {
    const auto expectNoLeak = [&](const std::string &what, const std::function<void()> &once) {
        once(); // what is allocated for the life of the process
        const std::size_t before = allocatedMemory();
        for (int i = 0; i < 3; ++i)
            once();
        EXPECT_LT(allocatedMemory(), before + 1000) << what;
    };
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
            EXPECT_TRUE(client.isConnected() && client.signIn(currentUser(), key()));
            EXPECT_EQ(client.run("head -c 100000 /dev/zero"), 100000);
        });
    expectNoLeak("the end before the first keys are in use",
                 [&] { EXPECT_FALSE(Client(scripted.port(), "SSH-2.0-reset").isConnected()); });
    expectNoLeak("methods asked for many times", [&] {
        const Client client(scripted.port());
        for (int i = 0; i < 100; ++i)
            EXPECT_STREQ(libssh2_userauth_list(client.get(), "password", 8), "password");
    });
    std::string signals;
    for (int i = 0; i < 100; ++i)
        signals += "signal " + std::string(100, 'S') + "; ";
    expectNoLeak("signals told many times", [&] {
        const Client client(scripted.port());
        EXPECT_EQ(libssh2_userauth_list(client.get(), "none", 4), nullptr);
        EXPECT_EQ(client.run(signals + "out a; eof; close"), 1);
    });
}

TEST_F(LibraryFaultsTest, NothingIsWrittenBeyondAllocations) {
    overwritten = 0;
    const std::string key = home.directory.path("key");
    makeKey(key, "rsa"); // whose base64 takes one "=" that nobody needs
    const std::string shown = publicKey(key);
    ASSERT_TRUE(shown.ends_with("=") && !shown.ends_with("=="));
    home.directory.write("key.pub", shown.substr(0, shown.size() - 1));
    EXPECT_TRUE(Client(scripted.port(), "SSH-2.0-repeat").signIn("publickey", key));
    EXPECT_EQ(overwritten, 0);
    for (const char *name : {"|1|QUJDRA==|QUJDREU", "|1|QUI|QUJDRA=="}) {
        const KnownHosts hosts(fmt::format("{} {}", name, shown));
        EXPECT_EQ(std::exchange(overwritten, 0), 0) << name;
    }
}

TEST_F(LibraryFaultsTest, KnownHostsWithoutHashOrSaltStayAsTheyAre) {
    const std::string path = home.knownHosts();
    for (const char *name : {"|1|QUJDRA==|", "|1||QUJDREVGRw==", "|1||"}) {
        const std::string line = fmt::format("{} {}\n", name, scripted.hostKey());
        EXPECT_EQ(KnownHosts(line).write(path), 0) << name;
        EXPECT_EQ(contentOf(path), line);
    }
}

TEST_F(LibraryFaultsTest, AFullDiskIsNoticed) {
    EXPECT_EQ(KnownHosts("example.com " + scripted.hostKey()).write("/dev/full"),
              LIBSSH2_ERROR_FILE);
}

namespace {

using Agent = std::unique_ptr<LIBSSH2_AGENT, decltype(&libssh2_agent_free)>;

Agent agent(const Library &library, const std::string &socket) {
    Agent agent(libssh2_agent_init(library.get()), libssh2_agent_free);
    libssh2_agent_set_identity_path(agent.get(), socket.c_str());
    return agent;
}

} // namespace

TEST_F(LibraryFaultsTest, AnAgentThatGoesAwayIsGivenUp) {
    ::alarm(20); // ends this process, should it be asked for ever
    for (std::size_t answered = 0; answered <= 5; ++answered) { // bytes of a message of nine
        const std::string path = home.directory.path(fmt::format("agent{}", answered));
        asio::io_context context;
        asio::local::stream_protocol::acceptor listener(context, path);
        const Library library = ::library();
        const Agent agent = ::agent(library, path);
        ASSERT_EQ(libssh2_agent_connect(agent.get()), 0);
        asio::local::stream_protocol::socket peer = listener.accept();
        asio::write(peer, asio::buffer("\0\0\0\5\14", answered));
        peer.shutdown(peer.shutdown_send);
        EXPECT_LT(libssh2_agent_list_identities(agent.get()), 0) << answered;
    }
    ::alarm(0);
}

TEST_F(LibraryFaultsTest, AStaleAgentSocketIsClosedOnce) {
    const Library library = ::library();
    Agent agent = ::agent(library, home.directory.path("agent"));
    EXPECT_NE(libssh2_agent_connect(agent.get()), 0);
    const int another = ::open("/dev/null", O_RDONLY | O_CLOEXEC); // with the number now free
    EXPECT_EQ(libssh2_agent_disconnect(agent.get()), 0);
    EXPECT_NE(::fcntl(another, F_GETFD), -1);
    agent.reset();
    EXPECT_EQ(::close(another), 0);
}
