#include "Tests/Support/Sshd.h"

#include <asio/ip/tcp.hpp>
#include <fmt/format.h>

#include <pwd.h>
#include <sys/stat.h>

using asio::ip::tcp;

namespace {

// RSA with SHA-1 is all that libssh2 1.10 offers for such a key. By itself sshd turns some away
// when ten log in at once.
constexpr const char *configuration = R"(ListenAddress 127.0.0.1
AuthorizedKeysFile {0}/authorized_keys
PidFile none
StrictModes no
PasswordAuthentication no
KbdInteractiveAuthentication no
MaxAuthTries 20
MaxStartups 1000
PubkeyAcceptedAlgorithms +ssh-rsa,ssh-dss
LogLevel VERBOSE
SetEnv HOME={0}
)";

} // namespace

unsigned short freePort() {
    asio::io_context context;
    return tcp::acceptor(context, {asio::ip::address_v4::loopback(), 0}).local_endpoint().port();
}

std::string currentUser() {
    return ::getpwuid(::getuid())->pw_name;
}

TemporaryHome::TemporaryHome() {
    std::filesystem::create_directory(directory.path(".ssh"));
    ::setenv("HOME", directory.path().c_str(), 1);
    ::unsetenv("SSH_AUTH_SOCK");
}

void makeKey(const std::string &path, const std::string &type, const std::string &passphrase) {
    // Of a DSA key in OpenSSH's own format libssh2 1.11.1 leaks memory.
    const char *const format = type == "dsa" ? "PEM" : "RFC4716";
    require({"ssh-keygen", "-q", "-t", type, "-N", passphrase, "-C", "", "-m", format, "-f", path});
}

std::string publicKey(const std::string &path) {
    const std::string line = contentOf(path + ".pub");
    return line.substr(0, line.find_first_of(" \n", line.find(' ') + 1));
}

Sshd::Sshd(const std::vector<std::string> &hostKeyTypes, const std::string &settings) {
    ::mkdir("/run/sshd", 0755); // sshd as root insists on it
    std::string text = settings + "\n" + fmt::format(configuration, mDirectory.path());
    for (const std::string &type : hostKeyTypes) {
        makeKey(mDirectory.path("host_" + type), type);
        text += fmt::format("HostKey {}\n", mDirectory.path("host_" + type));
    }
    const auto says = [this](const char *what) { return log().find(what) != std::string::npos; };
    do { // another program may take the port first
        mPort = freePort();
        const std::string file =
            mDirectory.write("sshd_config", text + fmt::format("Port {}\n", mPort));
        const std::vector<std::string> words = {"/usr/sbin/sshd", "-D", "-e", "-f", file};
        mProcess = std::make_unique<Process>(words, mDirectory.write("log", ""));
        if (!eventually([&] { return says("Server listening") || says("Cannot bind"); }))
            throw std::runtime_error("sshd does not start: " + log());
    } while (says("Cannot bind"));
}

void Sshd::authorize(const std::string &path) const {
    std::ofstream(mDirectory.path("authorized_keys"), std::ios::app) << contentOf(path + ".pub");
}

SshAgent::SshAgent(const std::vector<std::string> &paths) {
    ::setenv("SSH_AUTH_SOCK", mSocket.c_str(), 1);
    constexpr int noAgent = 2; // ssh-add(1)
    if (!eventually([] { return runProcess({"ssh-add", "-l"}).status != noAgent; }))
        throw std::runtime_error("ssh-agent does not start: " + contentOf(mDirectory.path("log")));
    for (const std::string &path : paths)
        require({"ssh-add", "-q", path});
}
