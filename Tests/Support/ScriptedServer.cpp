#include "Tests/Support/ScriptedServer.h"

#include <fmt/format.h>

#include <iostream>
#include <sstream>

ScriptedServer::ScriptedServer() {
    makeKey(mDirectory.path("host"), "ecdsa");
    // The distribution's Python has the distribution's AsyncSSH; its warnings are of no use here.
    const Lines words = {"/usr/bin/python3", "-W", "ignore",
                         SSHSESSION_TESTS_DIRECTORY "/scripted_server.py", mDirectory.path("host")};
    mProcess = std::make_unique<Process>(words, mDirectory.path("log"));
    unsigned port = 0;
    if (std::sscanf(received(1).at(0).c_str(), "port %u", &port) != 1)
        throw std::runtime_error("the scripted server does not start: " + log());
    mPort = static_cast<unsigned short>(port);
}

Lines ScriptedServer::received(std::size_t atLeast) {
    Lines lines;
    EXPECT_TRUE(eventually([&] {
        const std::string all = log();
        std::istringstream fresh(all.substr(std::exchange(mSeen, all.rfind('\n') + 1)));
        for (std::string line; std::getline(fresh, line) && !fresh.eof();)
            lines.push_back(line);
        return lines.size() >= atLeast;
    }));
    return lines;
}

void ScriptedServerTest::TearDown() {
    SessionTest::TearDown();
    if (HasFailure())
        std::cerr << "--- the scripted server's log:\n" << scripted.log();
}

std::shared_ptr<TestSession> ScriptedServerTest::sessionAs(const std::string &script,
                                                           std::optional<std::string> password,
                                                           std::optional<std::string> key) {
    auto session = makeSession(scripted.port(), std::move(password), std::move(key), script);
    session->setDelegate(this);
    return session;
}

void ScriptedServerTest::sshSessionDisconnected(SSHSession &session,
                                                const SSHErrorRef &why) noexcept {
    std::string notice = "in good order";
    if (why) {
        notice = fmt::format("{} | {} | ", why->code(), why->localizedDescription().value_or("-"));
        const auto language = why->userInfo().find(SSHError::languageKey);
        notice += language == why->userInfo().end() ? "-" : language->second;
        if (why->domain() != "libssh2" || why->localizedFailureReason())
            notice += ", not a disconnect error";
    }
    if (!dynamic_cast<TestSession &>(session).mSessionQueue.isCurrent())
        notice += ", off the session queue";
    notices.push_back(notice);
}
