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

// Whether a line holds an entry; some that the library writes are comments, or have no key.
bool isEntry(LIBSSH2_SESSION *session, std::string_view line) {
    const Hosts one = hosts(session);
    libssh2_knownhost *entry = nullptr;
    return libssh2_knownhost_readline(one.get(), line.data(), line.size(), format) == 0 &&
           libssh2_knownhost_get(one.get(), &entry, nullptr) == 0;
}

struct Entries {
    Lines lines; // as the library writes them, sorted, but for white space at their ends
    bool canBeReadBack = true;
};

Entries entries(LIBSSH2_SESSION *session) {
    Entries result;
    const Hosts all = hosts(session);
    libssh2_knownhost_readfile(all.get(), path().c_str(), format);
    libssh2_knownhost *entry = nullptr;
    while (libssh2_knownhost_get(all.get(), &entry, entry) == 0) {
        std::array<char, 8192> line{};
        std::size_t length = 0;
        const bool isLine = libssh2_knownhost_writeline(all.get(), entry, line.data(), line.size(),
                                                        &length, format) == 0;
        const std::string_view text(line.data(), isLine ? length : 0);
        result.lines.emplace_back(text.substr(0, text.find_last_not_of(" \t\r\n") + 1));
        result.canBeReadBack =
            result.canBeReadBack && isEntry(session, {line.data(), isLine ? length : 0});
    }
    std::sort(result.lines.begin(), result.lines.end());
    return result;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static Client client;
    const std::string content(textOf(data, size));
    std::ofstream(path(), std::ios::binary) << content;
    const bool isKnown = client.check(false);
    hold(isKnown == playedUser().shown.empty(), "who is not known is asked about");
    hold(contentOf(path()) == content, "looking changes nothing");
    const Entries before = entries(client.connection->session());

    hold(client.check(true), "who accepts a server may use it");
    const std::size_t questions = playedUser().shown.size();
    hold(isKnown == (questions == 0), "it is still the same server");
    hold(!isKnown || contentOf(path()) == content, "a known server is not recorded");
    if (questions != 1 || !before.canBeReadBack)
        return 0;
    const Entries after = entries(client.connection->session());
    hold(std::includes(after.lines.begin(), after.lines.end(), before.lines.begin(),
                       before.lines.end()),
         "no entry is lost");
    hold(client.check(false) && playedUser().shown.empty(), "a recorded server is known");
    return 0;
}
