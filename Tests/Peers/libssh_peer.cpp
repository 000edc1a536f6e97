// An SSH server on libssh: its host key and a client's public key are its arguments. It prints
// "port NUMBER", and runs commands with a shell for any user with that key, or "sesame". A
// connection is a process, and has one command at a time.
#include <libssh/callbacks.h>
#include <libssh/server.h>

#include <netinet/in.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

struct Peer {
    ssh_key known = nullptr;
    ssh_session session = nullptr;
    ssh_event event = ssh_event_new();
    ssh_channel channel = nullptr;
    ssh_channel_callbacks_struct callbacks{};
    pid_t shell = 0;
    std::array<int, 3> ends{}; // of the shell's input, output and error output
    int outputs = 0;           // that are still open
};

Peer peer;

void closeEnd(int &end) {
    if (end > 0)
        ::close(end);
    end = 0;
}

int carryOutput(socket_t descriptor, int /*events*/, void * /*data*/) {
    std::array<char, 4096> piece{};
    const ssize_t size = ::read(descriptor, piece.data(), piece.size());
    const bool isError = descriptor == peer.ends[2];
    if (size > 0)
        return (isError ? ssh_channel_write_stderr : ssh_channel_write)(
                   peer.channel, piece.data(), static_cast<std::uint32_t>(size)) < 0
                   ? -1
                   : 0;
    ssh_event_remove_fd(peer.event, descriptor);
    closeEnd(peer.ends[isError ? 2 : 1]);
    if (--peer.outputs > 0)
        return 0;
    int status = 0;
    ::waitpid(peer.shell, &status, 0);
    closeEnd(peer.ends[0]);
    ssh_channel_request_send_exit_status(peer.channel, WEXITSTATUS(status));
    ssh_channel_send_eof(peer.channel);
    ssh_channel_close(peer.channel);
    return 0;
}

int runCommand(const char *command) {
    std::array<std::array<int, 2>, 3> pairs{}; // of ours and the shell's
    for (auto &pair : pairs)
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()) != 0)
            return 1;
    peer.shell = ::fork();
    if (peer.shell == 0) {
        for (std::size_t i = 0; i < 3; ++i)
            ::dup2(pairs[i][1], static_cast<int>(i));
        ::execl("/bin/sh", "sh", "-c", command, nullptr);
        ::_exit(127);
    }
    for (std::size_t i = 0; i < 3; ++i) {
        ::close(pairs[i][1]);
        peer.ends[i] = pairs[i][0];
    }
    peer.outputs = 2;
    ssh_event_add_fd(peer.event, peer.ends[1], POLLIN, carryOutput, nullptr);
    ssh_event_add_fd(peer.event, peer.ends[2], POLLIN, carryOutput, nullptr);
    return 0;
}

void serve() {
    std::signal(SIGCHLD, SIG_DFL);
    ssh_callbacks_init(&peer.callbacks);
    peer.callbacks.channel_exec_request_function = [](auto, auto, auto command, auto) {
        return runCommand(command);
    };
    peer.callbacks.channel_data_function = [](auto, auto, auto data, auto size, auto, auto) {
        return static_cast<int>(::write(peer.ends[0], data, size));
    };
    peer.callbacks.channel_eof_function = [](auto, auto, auto) { closeEnd(peer.ends[0]); };
    ssh_server_callbacks_struct server{};
    ssh_callbacks_init(&server);
    server.auth_password_function = [](auto, auto, auto password, auto) -> int {
        return std::strcmp(password, "sesame") == 0 ? SSH_AUTH_SUCCESS : SSH_AUTH_DENIED;
    };
    server.auth_pubkey_function = [](auto, auto, auto key, char state, auto) -> int {
        const bool isKnown = ssh_key_cmp(key, peer.known, SSH_KEY_CMP_PUBLIC) == 0;
        const bool isShown = state == SSH_PUBLICKEY_STATE_NONE;
        return isKnown && (isShown || state == SSH_PUBLICKEY_STATE_VALID) ? SSH_AUTH_SUCCESS
                                                                          : SSH_AUTH_DENIED;
    };
    server.channel_open_request_session_function = [](auto session, auto) {
        peer.channel = ssh_channel_new(session);
        ssh_set_channel_callbacks(peer.channel, &peer.callbacks);
        return peer.channel;
    };
    ssh_set_server_callbacks(peer.session, &server);
    ssh_set_auth_methods(peer.session, SSH_AUTH_METHOD_PASSWORD | SSH_AUTH_METHOD_PUBLICKEY);
    if (ssh_handle_key_exchange(peer.session) == SSH_OK &&
        ssh_event_add_session(peer.event, peer.session) == SSH_OK)
        while (ssh_event_dopoll(peer.event, -1) != SSH_ERROR &&
               (ssh_get_status(peer.session) & (SSH_CLOSED | SSH_CLOSED_ERROR)) == 0) {
        }
    std::printf("lost: %s\n", ssh_get_error(peer.session));
    std::fflush(stdout);
    ::_exit(0);
}

} // namespace

int main(int /*count*/, char **arguments) {
    std::signal(SIGCHLD, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    ssh_pki_import_pubkey_file(arguments[2], &peer.known);
    ssh_bind listener = ssh_bind_new();
    const unsigned anyPort = 0;
    ssh_bind_options_set(listener, SSH_BIND_OPTIONS_BINDADDR, "127.0.0.1");
    ssh_bind_options_set(listener, SSH_BIND_OPTIONS_BINDPORT, &anyPort);
    ssh_bind_options_set(listener, SSH_BIND_OPTIONS_HOSTKEY, arguments[1]);
    ssh_bind_listen(listener);
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ::getsockname(ssh_bind_get_fd(listener), reinterpret_cast<sockaddr *>(&address), &size);
    std::printf("port %d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    while (true) {
        peer.session = ssh_new();
        if (ssh_bind_accept(listener, peer.session) == SSH_OK && ::fork() == 0)
            serve();
        ssh_free(peer.session);
    }
}
