// A real OpenSSH server on loopback, with throwaway keys, and a home directory for its client.
#pragma once

#include "Tests/Support/Process.h"
#include "Tests/Support/TemporaryDirectory.h"

#include <memory>

std::string currentUser();

// Makes HOME a new empty directory, with an empty .ssh, and hides any running agent.
struct TemporaryHome {
    TemporaryHome();

    const TemporaryDirectory directory;
    std::string knownHosts() const { return directory.path(".ssh/known_hosts"); }
};

// Makes the key pair `path` and `path`.pub.
void makeKey(const std::string &path, const std::string &type, const std::string &passphrase = "");

// "algorithm base64" of that pair, as it stands in a known-hosts file.
std::string publicKey(const std::string &path);

class Sshd {
  public:
    // `hostKeyTypes` as ssh-keygen names them; `settings` are further lines for its
    // configuration, which go before those that are usual here.
    explicit Sshd(const std::vector<std::string> &hostKeyTypes = {"ecdsa"},
                  const std::string &settings = "");

    unsigned short port() const { return mPort; }
    // Lets the current user in with the key pair at `path`, together with those before.
    void authorize(const std::string &path) const;
    std::string hostKey(const std::string &type = "ecdsa") const {
        return publicKey(mDirectory.path("host_" + type));
    }
    std::string log() const { return contentOf(mDirectory.path("log")); }

  private:
    TemporaryDirectory mDirectory;
    unsigned short mPort = 0;
    std::unique_ptr<Process> mProcess;
};

// A TCP port on loopback that nobody uses at this moment.
unsigned short freePort();

// A running ssh-agent, named by SSH_AUTH_SOCK, with the private keys at `paths` in that order.
class SshAgent {
  public:
    explicit SshAgent(const std::vector<std::string> &paths = {});
    ~SshAgent() { ::unsetenv("SSH_AUTH_SOCK"); }

  private:
    const TemporaryDirectory mDirectory;
    const std::string mSocket = mDirectory.path("socket");
    const Process mProcess{{"ssh-agent", "-D", "-a", mSocket}, mDirectory.path("log")};
};
