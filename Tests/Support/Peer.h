// A server that others have made, as it comes, on loopback. It lets the key pair in and runs
// commands with a shell.
#pragma once

#include "Tests/Support/Sshd.h"

class Peer {
  public:
    // Of "OpenSSH", "Dropbear", "libssh", "Go" and "AsyncSSH", the last three of which also take
    // any user with the password "sesame". `key` is the path of the pair.
    Peer(const std::string &name, const std::string &key);

    // Whether what it takes is on this machine.
    static bool isThere(const std::string &name);

    unsigned short port() const { return mSshd ? mSshd->port() : mPort; }
    std::string hostKey() const {
        return mSshd ? mSshd->hostKey() : publicKey(mDirectory.path("host"));
    }
    std::string log() const { return mSshd ? mSshd->log() : contentOf(mDirectory.path("log")); }

  private:
    void startDropbear(const std::string &key);

    TemporaryDirectory mDirectory;
    std::unique_ptr<Sshd> mSshd;
    unsigned short mPort = 0;
    std::unique_ptr<Process> mProcess;
};
