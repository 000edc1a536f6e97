#include "Tests/Support/Peer.h"

#include <fmt/format.h>

#include <unistd.h>

#include <map>

namespace {

const char *const dropbear = "/usr/sbin/dropbear";

const std::map<std::string, std::vector<std::string>> programs = {
    {"libssh", {SSHSESSION_PEERS_DIRECTORY "/libssh_peer"}},
    {"Go", {SSHSESSION_PEERS_DIRECTORY "/go_peer"}},
    {"AsyncSSH",
     {"/usr/bin/python3", "-W", "ignore", SSHSESSION_TESTS_DIRECTORY "/Peers/asyncssh_peer.py"}}};

} // namespace

bool Peer::isThere(const std::string &name) {
    const auto program = programs.find(name);
    return name == "OpenSSH" ||
           std::filesystem::exists(program == programs.end() ? dropbear : program->second[0]);
}

Peer::Peer(const std::string &name, const std::string &key) {
    if (name == "OpenSSH") {
        mSshd = std::make_unique<Sshd>();
        mSshd->authorize(key);
        return;
    }
    if (name == "Dropbear") {
        startDropbear(key);
        return;
    }
    makeKey(mDirectory.path("host"), "ecdsa");
    std::vector<std::string> words = programs.at(name);
    words.insert(words.end(), {mDirectory.path("host"), key + ".pub"});
    mProcess = std::make_unique<Process>(words, mDirectory.path("log"));
    if (!eventually([&] { return std::sscanf(log().c_str(), "port %hu", &mPort) == 1; }))
        throw std::runtime_error(name + " does not start: " + log());
}

// It looks for the key in the home directory that the user database names, which here is another
// one for this program alone.
void Peer::startDropbear(const std::string &key) {
    mDirectory.write("home/.ssh/authorized_keys", contentOf(key + ".pub"));
    std::filesystem::permissions(mDirectory.path("home/.ssh"), std::filesystem::perms(0700));
    mDirectory.write("passwd", fmt::format("{}:x:{}:{}::{}:/bin/sh\n", currentUser(), ::getuid(),
                                           ::getgid(), mDirectory.path("home")));
    const std::string made = require({"dropbearkey", "-t", "ecdsa", "-f", mDirectory.path("host")});
    mDirectory.write("host.pub", made.substr(made.find("ecdsa-")));
    mPort = freePort();
    mProcess = std::make_unique<Process>(
        std::vector<std::string>{"env", "LD_PRELOAD=libnss_wrapper.so",
                                 "NSS_WRAPPER_PASSWD=" + mDirectory.path("passwd"),
                                 "NSS_WRAPPER_GROUP=/etc/group", dropbear, "-F", "-E", "-r",
                                 mDirectory.path("host"), "-p", fmt::format("127.0.0.1:{}", mPort),
                                 "-P", mDirectory.path("pid")},
        mDirectory.path("log"));
    // It says so before it listens.
    if (!eventually([&] { return std::filesystem::exists(mDirectory.path("pid")); }))
        throw std::runtime_error("Dropbear does not start: " + log());
}
