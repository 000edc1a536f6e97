// A server that does what the user's name and the commands tell it to, which scripted_server.py
// explains, and the ground of tests against it.
#pragma once

#include "Tests/Support/SessionTest.h"

class ScriptedServer {
  public:
    ScriptedServer();

    unsigned short port() const { return mPort; }
    std::string hostKey() const { return publicKey(mDirectory.path("host")); }
    std::string log() const { return contentOf(mDirectory.path("log")); }
    // What clients have sent, a line each, since the last call; waits for so many lines.
    Lines received(std::size_t atLeast = 0);

  private:
    TemporaryDirectory mDirectory;
    std::unique_ptr<Process> mProcess;
    unsigned short mPort = 0;
    std::size_t mSeen = 0;
};

class ScriptedServerTest : public SessionTest, protected SSHSessionDelegate {
  protected:
    ScriptedServerTest() { know(scripted.hostKey()); }
    void TearDown() override;

    std::shared_ptr<TestSession> sessionAs(const std::string &script,
                                           std::optional<std::string> password = std::nullopt,
                                           std::optional<std::string> key = std::nullopt);

    // "code | message | language" or "in good order", then what is wrong with the call itself.
    void sshSessionDisconnected(SSHSession &session, const SSHErrorRef &why) noexcept override;

    ScriptedServer scripted;
    Lines notices;
};
