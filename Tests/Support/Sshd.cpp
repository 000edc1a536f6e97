#include "Tests/Support/Sshd.h"

#include <fmt/format.h>

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace {

// RSA with SHA-1 is all that libssh2 1.10 offers for such a key.
constexpr const char *configuration = R"(ListenAddress 127.0.0.1
AuthorizedKeysFile {0}/authorized_keys
PidFile none
StrictModes no
UsePAM no
PermitRootLogin yes
PasswordAuthentication no
KbdInteractiveAuthentication no
MaxAuthTries 20
PubkeyAcceptedAlgorithms +ssh-rsa,ssh-dss
LogLevel VERBOSE
SetEnv HOME={0}
)";

std::optional<std::string> environment(const char *name) {
    const char *value = std::getenv(name);
    return value ? std::optional<std::string>(value) : std::nullopt;
}

void setEnvironment(const char *name, const std::optional<std::string> &value) {
    if (value)
        ::setenv(name, value->c_str(), 1);
    else
        ::unsetenv(name);
}

} // namespace

std::string currentUser() {
    return ::getpwuid(::getuid())->pw_name;
}

TemporaryHome::TemporaryHome()
    : mHome(environment("HOME")), mAgentSocket(environment("SSH_AUTH_SOCK")) {
    std::filesystem::create_directory(directory.path(".ssh"));
    setEnvironment("HOME", directory.path());
    setEnvironment("SSH_AUTH_SOCK", std::nullopt);
}

TemporaryHome::~TemporaryHome() {
    setEnvironment("HOME", mHome);
    setEnvironment("SSH_AUTH_SOCK", mAgentSocket);
}

void makeKey(const std::string &path, const std::string &type, const std::string &passphrase) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    // DSA keys date from the days of PEM; of those in OpenSSH's own format libssh2 1.11.1 leaks
    // memory.
    const char *const format = type == "dsa" ? "PEM" : "RFC4716";
    require({"ssh-keygen", "-q", "-t", type, "-N", passphrase, "-C", "", "-m", format, "-f", path});
}

std::string publicKey(const std::string &path) {
    const std::string line = contentOf(path + ".pub");
    return line.substr(0, line.find_first_of(" \n", line.find(' ') + 1));
}

Sshd::Sshd(const std::vector<std::string> &hostKeyTypes, const std::string &settings) {
    if (isRoot())
        ::mkdir("/run/sshd", 0755); // sshd as root insists on it
    std::string text = fmt::format(configuration, mDirectory.path()) + settings;
    for (const std::string &type : hostKeyTypes) {
        makeKey(mDirectory.path("host_" + type), type);
        text += fmt::format("HostKey {}\n", mDirectory.path("host_" + type));
    }
    const auto isReady = [this] { return log().find("Server listening") != std::string::npos; };
    for (int attempt = 0; attempt < 5; ++attempt) { // another program may take the port first
        mPort = freePort();
        const std::string file =
            mDirectory.write("sshd_config", text + fmt::format("Port {}\n", mPort));
        const std::vector<std::string> words = {"/usr/sbin/sshd", "-D", "-e", "-f", file};
        mProcess = std::make_unique<Process>(words, mDirectory.path("log"));
        if (eventually([&] { return isReady() || !mProcess->isRunning(); }) && isReady())
            return;
    }
    throw std::runtime_error("sshd does not start: " + log());
}

void Sshd::authorize(const std::string &path) const {
    std::ofstream(mDirectory.path("authorized_keys"), std::ios::app) << contentOf(path + ".pub");
}

SshAgent::SshAgent(const std::vector<std::string> &paths) {
    const std::string socket = mDirectory.path("socket");
    mProcess = std::make_unique<Process>(std::vector<std::string>{"ssh-agent", "-D", "-a", socket},
                                         mDirectory.path("log"));
    if (!eventually([&] { return std::filesystem::exists(socket); }))
        throw std::runtime_error("ssh-agent does not start: " + contentOf(mDirectory.path("log")));
    setEnvironment("SSH_AUTH_SOCK", socket);
    for (const std::string &path : paths)
        require({"ssh-add", "-q", path});
}

SshAgent::~SshAgent() {
    setEnvironment("SSH_AUTH_SOCK", std::nullopt);
}
