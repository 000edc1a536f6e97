// libssh, as its tutorial uses it: blocking, since one command at a time needs no more.
#include "Bench/Peers/Peer.h"

#include <libssh/libssh.h>

#include <array>
#include <stdexcept>

namespace {

constexpr std::size_t pieceSize = 32768;

class LibSSH : public Peer {
  public:
    explicit LibSSH(LogIn logIn) : mLogIn(std::move(logIn)) {}

    std::string version() const override { return ssh_version(0); }

    void connect() override {
        mSession = ssh_new();
        const unsigned port = mLogIn.port;
        const int on = 1;
        const bool off = false;
        set(SSH_OPTIONS_HOST, "127.0.0.1");
        set(SSH_OPTIONS_PORT, &port);
        set(SSH_OPTIONS_USER, mLogIn.user.c_str());
        set(SSH_OPTIONS_KNOWNHOSTS, mLogIn.knownHosts.c_str());
        set(SSH_OPTIONS_COMPRESSION, "yes");
        set(SSH_OPTIONS_NODELAY, &on);
        set(SSH_OPTIONS_PROCESS_CONFIG, &off);
        check(ssh_connect(mSession) == SSH_OK);
        check(ssh_session_is_known_server(mSession) == SSH_KNOWN_HOSTS_OK);
        ssh_key key = nullptr;
        check(ssh_pki_import_privkey_file(mLogIn.keyFile.c_str(), nullptr, nullptr, nullptr,
                                          &key) == SSH_OK);
        const int result = ssh_userauth_publickey(mSession, nullptr, key);
        ssh_key_free(key);
        check(result == SSH_AUTH_SUCCESS);
    }

    void disconnect() override {
        ssh_disconnect(mSession);
        ssh_free(mSession);
        mSession = nullptr;
    }

    std::size_t run(const std::string &command, std::string_view input) override {
        std::string output;
        ssh_channel channel = open(command);
        if (!input.empty()) {
            write(channel, input);
            check(ssh_channel_send_eof(channel) == SSH_OK);
        }
        read(channel, [&](std::string_view piece) { output.append(piece); });
        finish(channel);
        return output.size();
    }

    void stream(const std::string &command, const Sink &sink) override {
        ssh_channel channel = open(command);
        read(channel, sink);
        finish(channel);
    }

    // What the tables do not ask for.
    void load(const std::string & /*path*/) override { refuse(); }
    void runLoaded(const std::string & /*command*/) override { refuse(); }
    void feed(const std::string & /*command*/, int /*descriptor*/) override { refuse(); }
    void sudoTrue(const std::string & /*password*/) override { refuse(); }

  private:
    [[noreturn]] static void refuse() { throw std::runtime_error("not measured"); }

    void check(bool condition) const {
        if (!condition)
            throw std::runtime_error(std::string("libssh: ") + ssh_get_error(mSession));
    }

    void set(ssh_options_e option, const void *value) const {
        check(ssh_options_set(mSession, option, value) == SSH_OK);
    }

    ssh_channel open(const std::string &command) const {
        ssh_channel channel = ssh_channel_new(mSession);
        check(ssh_channel_open_session(channel) == SSH_OK);
        check(ssh_channel_request_exec(channel, command.c_str()) == SSH_OK);
        return channel;
    }

    void write(ssh_channel channel, std::string_view rest) const {
        while (!rest.empty()) {
            const int count =
                ssh_channel_write(channel, rest.data(), static_cast<std::uint32_t>(rest.size()));
            check(count > 0);
            rest.remove_prefix(static_cast<std::size_t>(count));
        }
    }

    void read(ssh_channel channel, const Sink &sink) const {
        std::array<char, pieceSize> piece; // NOLINT(*-member-init): filled by the read
        for (const int isErrorOutput : {0, 1}) {
            int count = 0;
            while ((count = ssh_channel_read(channel, piece.data(), piece.size(), isErrorOutput)) >
                   0)
                if (isErrorOutput == 0)
                    sink({piece.data(), static_cast<std::size_t>(count)});
            check(count == 0);
        }
    }

    void finish(ssh_channel channel) const {
        const int status = ssh_channel_get_exit_status(channel);
        ssh_channel_close(channel);
        ssh_channel_free(channel);
        if (status != 0)
            throw std::runtime_error("exit status " + std::to_string(status));
    }

    const LogIn mLogIn;
    ssh_session mSession = nullptr;
};

} // namespace

int main(int count, char **words) {
    return measure(count, words, [](const LogIn &logIn) -> std::unique_ptr<Peer> {
        return std::make_unique<LibSSH>(logIn);
    });
}
