// Whatever a file of known hosts holds: looking into it changes nothing, a server that is not in it
// is asked about, and accepting its key makes the server known and loses no entry that could be
// read before and that the library can read once it has written it.
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

using Hosts = std::unique_ptr<LIBSSH2_KNOWNHOSTS, decltype(&libssh2_knownhost_free)>;

constexpr int format = LIBSSH2_KNOWNHOST_FILE_OPENSSH;

Hosts hosts(LIBSSH2_SESSION *session) {
    return {libssh2_knownhost_init(session), libssh2_knownhost_free};
}

// Each entry as the library writes it, but for white space at its end.
Lines linesOf(LIBSSH2_KNOWNHOSTS *known) {
    Lines lines;
    libssh2_knownhost *entry = nullptr;
    while (libssh2_knownhost_get(known, &entry, entry) == 0) {
        std::array<char, 8192> line{};
        std::size_t length = 0;
        libssh2_knownhost_writeline(known, entry, line.data(), line.size(), &length, format);
        const std::string_view text(line.data(), std::min(length, line.size()));
        lines.emplace_back(text.substr(0, text.find_last_not_of(" \t\r\n") + 1));
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

Lines entries(LIBSSH2_SESSION *session) {
    const Hosts all = hosts(session);
    libssh2_knownhost_readfile(all.get(), path().c_str(), format);
    return linesOf(all.get());
}

// Whether the library, once it has written an entry, reads the same again. It takes some lines
// without a key, or with a "#" or a hash among the names, for what it then writes as something
// else.
bool canBeReadBack(LIBSSH2_SESSION *session, const std::string &line) {
    const Hosts one = hosts(session);
    const std::string written = line + '\n';
    libssh2_knownhost_readline(one.get(), written.data(), written.size(), format);
    return linesOf(one.get()) == Lines{line};
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static Client client;
    const std::string content(textOf(data, size));
    std::ofstream(path(), std::ios::binary) << content;
    const bool isKnown = client.check(false);
    hold(isKnown == playedUser().shown.empty(), "who is not known is asked about");
    hold(contentOf(path()) == content, "looking changes nothing");
    LIBSSH2_SESSION *const session = client.connection->session();
    const Lines before = entries(session);

    hold(client.check(true), "who accepts a server may use it");
    const std::size_t questions = playedUser().shown.size();
    hold(isKnown == (questions == 0), "it is still the same server");
    hold(!isKnown || contentOf(path()) == content, "a known server is not recorded");
    const auto isSafe = [&](const std::string &line) { return canBeReadBack(session, line); };
    if (questions != 1 || !std::all_of(before.begin(), before.end(), isSafe))
        return 0;
    const Lines after = entries(session);
    hold(std::includes(after.begin(), after.end(), before.begin(), before.end()),
         "no entry is lost");
    hold(client.check(false) && playedUser().shown.empty(), "a recorded server is known");
    return 0;
}
