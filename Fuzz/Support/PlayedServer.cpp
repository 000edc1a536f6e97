#include "Fuzz/Support/PlayedServer.h"

#include "Fuzz/Support/Property.h"
#include "Platform/Text.h"
#include "Tests/Support/TemporaryDirectory.h"

#include <SSHSession/Platform.h>

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace {

struct Server {
    int descriptor = -1;
    std::string stream;
    std::size_t position = 0;
    std::size_t piece = 0;
    bool mayRead = false;
    int readsAtEnd = 0;

    ssize_t say(void *bytes, std::size_t count) {
        constexpr int patience = 10000;
        if (position == stream.size()) {
            hold(++readsAtEnd < patience, "nobody asks for ever after the end");
            return 0;
        }
        if (piece != 0 && !std::exchange(mayRead, !mayRead)) {
            errno = EAGAIN;
            return -1;
        }
        const std::size_t size =
            std::min({count, stream.size() - position, piece == 0 ? count : piece});
        std::memcpy(bytes, stream.data() + position, size);
        position += size;
        return static_cast<ssize_t>(size);
    }
};

Server server;

class Presenter final : public SSHPlatform::AlertPresenter {
  public:
    SSHPlatform::AlertAnswer runModal(const SSHPlatform::Alert &alert) noexcept override {
        playedUser().shown.push_back(alert.messageText);
        return playedUser().agrees ? SSHPlatform::AlertAnswer::FirstButton
                                   : SSHPlatform::AlertAnswer::Refused;
    }
    std::unique_ptr<SSHPlatform::Nib> loadNib(const std::string & /*name*/) noexcept override {
        return nullptr;
    }
    void beep() noexcept override {}
};

} // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl*): the linker's names
extern "C" {

decltype(::recv) __real_recv;
ssize_t __wrap_recv(int descriptor, void *bytes, std::size_t count, int flags) {
    return descriptor == server.descriptor ? server.say(bytes, count)
                                           : __real_recv(descriptor, bytes, count, flags);
}

decltype(::send) __real_send;
ssize_t __wrap_send(int descriptor, const void *bytes, std::size_t count, int flags) {
    return descriptor == server.descriptor ? static_cast<ssize_t>(count)
                                           : __real_send(descriptor, bytes, count, flags);
}

// The server is always ready, and nobody else is waited for.
decltype(::poll) __real_poll;
int __wrap_poll(pollfd *entries, nfds_t count, int /*timeout*/) {
    __real_poll(entries, count, 0);
    for (nfds_t i = 0; i < count; ++i)
        if (entries[i].fd == server.descriptor)
            entries[i].revents = entries[i].events;
    return static_cast<int>(std::count_if(entries, entries + count,
                                          [](const pollfd &entry) { return entry.revents != 0; }));
}
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl*)

int playServer(std::string stream, std::size_t piece) {
    server = {.descriptor = ::socket(AF_UNIX, SOCK_STREAM, 0),
              .stream = std::move(stream),
              .piece = piece};
    return server.descriptor;
}

std::string packet(std::string_view message) {
    const std::size_t length = message.size() + 1; // with the length of the padding
    std::string bytes;
    for (const unsigned shift : {24U, 16U, 8U, 0U})
        bytes += static_cast<char>(length >> shift);
    return bytes.append(1, '\0').append(message);
}

std::shared_ptr<PlayedSession> PlayedSession::make() {
    playedUser().shown.clear();
    return std::make_shared<PlayedSession>("server", 22, "ada", SSHPlatform::Secret::of("secret"),
                                           std::nullopt);
}

PlayedSession::ConnectionRef PlayedSession::connectedTo(int descriptor) {
    ConnectionRef begun = beginConnection();
    begun->adoptSocket(descriptor);
    return begun;
}

void expectOutcome(bool succeeded, const SSHErrorRef &error) {
    hold(succeeded || error, "a failure has an error");
    hold(!error || SSHPlatform::isUTF8(error->text()), "an error's text is UTF-8");
}

PlayedUser &playedUser() {
    static PlayedUser user;
    return user;
}

const std::string &homeOfPlayedSessions() {
    static const TemporaryDirectory directory;
    static const std::string path = [] {
        std::filesystem::create_directory(directory.path(".ssh"));
        ::setenv("HOME", directory.path().c_str(), 1);
        ::unsetenv("SSH_AUTH_SOCK");
        SSHPlatform::install(nullptr, std::make_shared<Presenter>());
        SSHPlatform::setLogSink([](const std::string & /*message*/) {});
        return directory.path();
    }();
    return path;
}
