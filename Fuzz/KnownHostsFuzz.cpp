// Whatever a file of known hosts holds: looking into it changes nothing, a server that is not in it
// is asked about, and accepting its key loses no entry that could be read before, and makes the
// server known.
#include "Fuzz/Support/NoKeyExchange.h"
#include "Fuzz/Support/PlayedServer.h"
#include "Fuzz/Support/Property.h"
#include "Tests/Support/TemporaryDirectory.h"

#include <SSHSession/Platform.h>

#include <algorithm>
#include <array>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

const std::string &path() {
    static const std::string value = homeOfPlayedSessions() + "/.ssh/known_hosts";
    return value;
}

// One connection for all inputs, whose key is checked over and over again.
struct Client {
    std::shared_ptr<PlayedSession> session = PlayedSession::make();
    PlayedSession::ConnectionRef connection;

    Client() {
        using namespace std::string_view_literals;
        constexpr std::string_view accept = "\x06\0\0\0\x0cssh-userauth"sv;
        connection = session->connectedTo(playServer("SSH-2.0-server\r\n" + packet(accept)));
        hold(session->_startSession(*connection, nullptr), "the handshake succeeds");
    }
    ~Client() { session->stop(); }

    // Whether the server may be used.
    bool check(bool agrees) {
        playedUser() = {.agrees = agrees, .shown = {}};
        SSHErrorRef error;
        const bool trusted = session->_validatedHostFingerprint(*connection, &error);
        hold(trusted || error || !playedUser().shown.empty(), "a failure is told");
        hold(!error || !trusted, "no error of a trusted server");
        return trusted;
    }
};

// Those that the library can read, as it would write them.
Lines entries(LIBSSH2_SESSION *session) {
    constexpr int format = LIBSSH2_KNOWNHOST_FILE_OPENSSH;
    const std::unique_ptr<LIBSSH2_KNOWNHOSTS, decltype(&libssh2_knownhost_free)> hosts = {
        libssh2_knownhost_init(session), libssh2_knownhost_free};
    libssh2_knownhost_readfile(hosts.get(), path().c_str(), format);
    Lines lines;
    libssh2_knownhost *entry = nullptr;
    while (libssh2_knownhost_get(hosts.get(), &entry, entry) == 0) {
        std::array<char, 8192> line{};
        std::size_t length = 0;
        if (libssh2_knownhost_writeline(hosts.get(), entry, line.data(), line.size(), &length,
                                        format) == 0) {
            const std::string_view text(line.data(), length);
            lines.emplace_back(text.substr(0, text.find_last_not_of(" \t\r\n") + 1));
        }
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static Client client;
    const std::string content(textOf(data, size));
    std::ofstream(path(), std::ios::binary) << content;
    const bool isKnown = client.check(false);
    hold(isKnown == playedUser().shown.empty(), "who is not known is asked about");
    hold(contentOf(path()) == content, "looking changes nothing");
    const Lines before = entries(client.connection->session());

    hold(client.check(true), "who accepts a server may use it");
    const bool isRecorded = playedUser().shown.size() == 1;
    hold(!isKnown || contentOf(path()) == content, "a known server is not recorded");
    const Lines after = entries(client.connection->session());
    hold(!isRecorded || std::includes(after.begin(), after.end(), before.begin(), before.end()),
         "no entry is lost");
    hold(!isRecorded || (client.check(false) && playedUser().shown.empty()),
         "a recorded server is known");
    return 0;
}
