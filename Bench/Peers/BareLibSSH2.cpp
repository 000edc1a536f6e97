// The yardstick: libssh2 with nothing around it, the same build of it that the library links.
// Without blocking, both of a command's outputs and its input at once, 32 KiB at a time.
#include "Bench/Peers/Peer.h"

#include <libssh2.h>

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

constexpr std::size_t pieceSize = 32768;
using Piece = std::array<char, pieceSize>;

// A command's, from memory or from a descriptor.
class Input {
  public:
    explicit Input(std::string_view bytes) : mRest(bytes) {}
    explicit Input(int descriptor) : mDescriptor(descriptor) {}

    // Empty at the end.
    std::string_view next() {
        if (mRest.empty() && mDescriptor >= 0) {
            const ssize_t count = ::read(mDescriptor, mPiece.data(), mPiece.size());
            if (count < 0)
                throw std::runtime_error("the input cannot be read");
            mRest = {mPiece.data(), static_cast<std::size_t>(count)};
        }
        return mRest.substr(0, pieceSize);
    }
    void hasTaken(std::size_t count) { mRest.remove_prefix(count); }

  private:
    std::string_view mRest;
    const int mDescriptor = -1;
    Piece mPiece{};
};

class BareLibSSH2 : public Peer {
  public:
    explicit BareLibSSH2(LogIn logIn) : mLogIn(std::move(logIn)) { libssh2_init(0); }
    ~BareLibSSH2() override { close(); }

    std::string version() const override { return BENCH_VERSION; }

    void connect() override {
        openSocket();
        mSession = libssh2_session_init();
        libssh2_session_flag(mSession, LIBSSH2_FLAG_COMPRESS, 1);
        check(libssh2_session_handshake(mSession, mSocket), "handshake");
        checkHostKey();
        check(libssh2_userauth_publickey_fromfile(mSession, mLogIn.user.c_str(), nullptr,
                                                  mLogIn.keyFile.c_str(), nullptr),
              "authentication");
        libssh2_session_set_blocking(mSession, 0);
    }

    void disconnect() override {
        libssh2_session_set_blocking(mSession, 1);
        libssh2_session_disconnect(mSession, "Good bye.");
        close();
    }

    std::size_t run(const std::string &command, std::string_view input) override {
        std::string output;
        Input source(input);
        converse(command, input.empty() ? nullptr : &source,
                 [&](std::string_view piece) { output.append(piece); });
        return output.size();
    }

    void stream(const std::string &command, const Sink &sink) override {
        converse(command, nullptr, sink);
    }

    void load(const std::string &path) override {
        mLoaded.resize(std::filesystem::file_size(path));
        std::ifstream(path).read(mLoaded.data(), static_cast<std::streamsize>(mLoaded.size()));
    }

    void runLoaded(const std::string &command) override { run(command, mLoaded); }

    void feed(const std::string &command, int descriptor) override {
        Input source(descriptor);
        converse(command, &source, [](std::string_view) {});
    }

    // The command line that the library sends for this, and an answer to its question.
    void sudoTrue(const std::string &password) override {
        const std::string answer = password + '\n';
        std::string errorOutput;
        bool isAnswered = false;
        LIBSSH2_CHANNEL *const channel = open(sudoLine);
        while (libssh2_channel_eof(channel) == 0) {
            bool hasMoved = read(channel, 0, [](std::string_view) {});
            hasMoved |= read(channel, SSH_EXTENDED_DATA_STDERR,
                             [&](std::string_view piece) { errorOutput.append(piece); });
            if (!isAnswered && errorOutput.find(sudoQuestion) != std::string::npos) {
                again([&] { return libssh2_channel_write(channel, answer.data(), answer.size()); });
                isAnswered = true;
            }
            if (!hasMoved && libssh2_channel_eof(channel) == 0)
                wait();
        }
        finish(channel);
    }

  private:
    static constexpr const char *sudoLine =
        "/usr/bin/sudo -S -p '#SSHSession%%EnterPassword^' /bin/sh -c "
        R"line('echo; echo '\''#SSHSessionSudoSuccess^'\''; eval " $(printf -- '\''true'\'')"')line";
    static constexpr const char *sudoQuestion = "#SSHSession%EnterPassword^";

    static void check(ssize_t code, const char *what) {
        if (code < 0)
            throw std::runtime_error(std::string(what) + " failed with " + std::to_string(code));
    }

    void openSocket() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(mLogIn.port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        mSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        check(::connect(mSocket, reinterpret_cast<const sockaddr *>(&address), sizeof address),
              "connect");
        const int on = 1;
        ::setsockopt(mSocket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }

    void checkHostKey() {
        std::size_t length = 0;
        int type = 0;
        const char *const key = libssh2_session_hostkey(mSession, &length, &type);
        LIBSSH2_KNOWNHOSTS *const hosts = libssh2_knownhost_init(mSession);
        libssh2_knownhost_readfile(hosts, mLogIn.knownHosts.c_str(),
                                   LIBSSH2_KNOWNHOST_FILE_OPENSSH);
        const int result = libssh2_knownhost_checkp(
            hosts, "127.0.0.1", mLogIn.port, key, length,
            LIBSSH2_KNOWNHOST_TYPE_PLAIN | LIBSSH2_KNOWNHOST_KEYENC_RAW, nullptr);
        libssh2_knownhost_free(hosts);
        if (result != LIBSSH2_KNOWNHOST_CHECK_MATCH)
            throw std::runtime_error("the host key is not known");
    }

    // Until the socket is ready for what the library could not do.
    void wait() const {
        const int directions = libssh2_session_block_directions(mSession);
        pollfd entry = {mSocket, 0, 0};
        if ((directions & LIBSSH2_SESSION_BLOCK_INBOUND) != 0)
            entry.events |= POLLIN;
        if ((directions & LIBSSH2_SESSION_BLOCK_OUTBOUND) != 0)
            entry.events |= POLLOUT;
        if (::poll(&entry, 1, -1) < 0 && errno != EINTR)
            throw std::runtime_error("poll");
    }

    template <typename Call>
    void again(Call call) const {
        ssize_t result = call();
        while (result == LIBSSH2_ERROR_EAGAIN) {
            wait();
            result = call();
        }
        check(result, "a call of the library's");
    }

    LIBSSH2_CHANNEL *open(const std::string &command) const {
        LIBSSH2_CHANNEL *channel = nullptr;
        while (!(channel = libssh2_channel_open_session(mSession))) {
            if (libssh2_session_last_errno(mSession) != LIBSSH2_ERROR_EAGAIN)
                throw std::runtime_error("no channel");
            wait();
        }
        again([&] { return libssh2_channel_exec(channel, command.c_str()); });
        return channel;
    }

    template <typename Take>
    static bool read(LIBSSH2_CHANNEL *channel, int stream, Take take) {
        Piece piece; // NOLINT(*-member-init): filled by the read
        bool hasMoved = false;
        ssize_t count = 0;
        while ((count = libssh2_channel_read_ex(channel, stream, piece.data(), piece.size())) > 0) {
            take(std::string_view(piece.data(), static_cast<std::size_t>(count)));
            hasMoved = true;
        }
        if (count != LIBSSH2_ERROR_EAGAIN)
            check(count, "reading");
        return hasMoved;
    }

    // Answers whether any of it went; tells of the end once.
    bool write(LIBSSH2_CHANNEL *channel, Input *&input) const {
        if (!input)
            return false;
        const std::string_view piece = input->next();
        if (piece.empty()) {
            again([&] { return libssh2_channel_send_eof(channel); });
            input = nullptr;
            return true;
        }
        const ssize_t count = libssh2_channel_write(channel, piece.data(), piece.size());
        if (count == LIBSSH2_ERROR_EAGAIN)
            return false;
        check(count, "writing");
        input->hasTaken(static_cast<std::size_t>(count));
        return true;
    }

    void converse(const std::string &command, Input *input, const Sink &sink) const {
        LIBSSH2_CHANNEL *const channel = open(command);
        while (libssh2_channel_eof(channel) == 0) {
            bool hasMoved = read(channel, 0, sink);
            hasMoved |= read(channel, SSH_EXTENDED_DATA_STDERR, [](std::string_view) {});
            hasMoved |= write(channel, input);
            if (!hasMoved && libssh2_channel_eof(channel) == 0)
                wait();
        }
        finish(channel);
    }

    void finish(LIBSSH2_CHANNEL *channel) const {
        again([&] { return libssh2_channel_close(channel); });
        again([&] { return libssh2_channel_wait_closed(channel); });
        const int status = libssh2_channel_get_exit_status(channel);
        again([&] { return libssh2_channel_free(channel); });
        if (status != 0)
            throw std::runtime_error("exit status " + std::to_string(status));
    }

    void close() {
        if (mSession)
            libssh2_session_free(mSession);
        if (mSocket >= 0)
            ::close(mSocket);
        mSession = nullptr;
        mSocket = -1;
    }

    const LogIn mLogIn;
    std::string mLoaded;
    LIBSSH2_SESSION *mSession = nullptr;
    int mSocket = -1;
};

} // namespace

int main(int count, char **words) {
    return measure(count, words, [](const LogIn &logIn) -> std::unique_ptr<Peer> {
        return std::make_unique<BareLibSSH2>(logIn);
    });
}
