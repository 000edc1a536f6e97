// The ground of tests with sessions: an empty home, a scripted user, and nothing is left behind.
#pragma once

#include "Session/Connection.h"
#include "Session/SSHSession_libssh2.h"
#include "Tests/Support/FakePresenter.h"
#include "Tests/Support/Sshd.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using Lines = std::vector<std::string>;

class TestSession final : public SSHSession_libssh2 {
  public:
    using SSHSession_libssh2::beginConnection;
    using SSHSession_libssh2::connection;
    using SSHSession_libssh2::mSessionQueue;
    using SSHSession_libssh2::SSHSession_libssh2;

    // Neither connected nor half connected.
    bool isIdle() const {
        const SSHPlatform::MutexLock lock(mMutex);
        return !mIsConnected && !mConnection && !mKeepAliveTimer;
    }

    ConnectionRef handshaken(); // done with the first two stages of `start`
};

class SessionTest : public testing::Test {
  protected:
    SessionTest();
    void TearDown() override;

    std::shared_ptr<TestSession> makeSession(unsigned short port,
                                             std::optional<std::string> password = std::nullopt,
                                             std::optional<std::string> key = std::nullopt,
                                             const std::string &name = currentUser());

    // Servers whose host key is known already: with settings, and one that lets `key` in.
    Sshd &serverWith(const std::string &settings);
    Sshd &server();
    const std::string &key();
    std::shared_ptr<TestSession> connected(); // to that server

    void know(const std::string &hostKey, const std::string &name = "127.0.0.1");

    // What the user is asked about a server's key, with what comes after the key itself.
    std::string question(const Sshd &sshd, bool isChanged, const std::string &type = "ecdsa",
                         const std::string &details = "") const;

    TemporaryHome home;
    SSHSessionOptions options; // of the sessions that are made from here on, and where they lead
    std::optional<std::string> hostName = "127.0.0.1";
    const std::shared_ptr<FakePresenter> user = std::make_shared<FakePresenter>();
    Lines log;
    SSHErrorRef error;
    std::unique_ptr<Sshd> mServer; // `server`, or another one whose log is to be seen

  private:
    std::string mKey;
    std::vector<std::weak_ptr<TestSession>> mSessions;
    std::size_t mDescriptors;
};

std::shared_ptr<SSHCommand> makeCommand(const std::string &text);

// Runs it: "status signal | output | error output", or why it failed and what is odd about that.
std::string resultOf(SSHSession &session, const std::string &text,
                     const std::optional<std::string> &adminPassword = std::nullopt,
                     const std::string &input = "");

// Does it on another thread, while this one serves the built-in main loop.
bool elsewhere(const std::function<bool()> &work);

// As `eventually`, while the built-in main loop serves the sessions' timers.
bool eventuallyServing(const std::function<bool()> &condition);

// Domain, code, description, reason and suggestion in one text, for comparison in one step.
std::string summary(const SSHErrorRef &error);
