#include "Tests/Support/SessionTest.h"

#include <SSHSession/RunLoop.h>

#include <fmt/format.h>

#include <future>

using SSHPlatform::AlertAnswer;

namespace {

class HostKeyTest : public SessionTest {
  protected:
    // Connects and runs the host key stage alone.
    bool validate(const Sshd &sshd) {
        const auto session = makeSession(sshd.port());
        user->shown.clear();
        const bool valid = session->_validatedHostFingerprint(*session->handshaken(), &error);
        EXPECT_EQ(error, nullptr);
        session->stop();
        return valid;
    }

    // What the user is shown.
    std::string prompt(const Sshd &sshd, bool isChanged, const std::string &type = "ecdsa") const {
        return fmt::format(
            "{}The authenticity of host '127.0.0.1:{}' can't be established. | The server{} Do you "
            "want to add it to the list and connect?\n\nHost key: {} | {}",
            isChanged ? "Critical: " : "", sshd.port(),
            isChanged ? "'s identity does not match the existing entry in " + home.knownHosts() +
                            ". This could be because the server's identity has changed or a "
                            "Man-in-the-Middle attack."
                      : " does not match not in " + home.knownHosts() + ".",
            sshd.hostKey(type).substr(sshd.hostKey(type).find(' ') + 1),
            isChanged ? "Add and Connect= | Cancel=\r" : "Add and Connect=\r | Cancel=");
    }
    std::string unknown(const Sshd &sshd) const { return prompt(sshd, false); }
    std::string changed(const Sshd &sshd) const { return prompt(sshd, true); }
};

} // namespace

TEST_F(HostKeyTest, WhatTheFileHoldsDecides) {
    const Sshd sshd;
    const Sshd other({"ecdsa", "ed25519"});
    const std::string bracketed = fmt::format("[127.0.0.1]:{} ", sshd.port());
    const std::string otherPort = fmt::format("[127.0.0.1]:{} ", sshd.port() - 1);
    for (const auto &[line, shown] : std::vector<std::pair<std::string, Lines>>{
             {"127.0.0.1 " + sshd.hostKey(), {}},
             {bracketed + sshd.hostKey(), {}},
             {otherPort + sshd.hostKey(), {unknown(sshd)}},
             {"127.0.0.1 " + other.hostKey(), {changed(sshd)}},
             {bracketed + other.hostKey(), {changed(sshd)}},
             {"127.0.0.1 " + other.hostKey("ed25519"), {changed(sshd)}}}) {
        SCOPED_TRACE(line);
        home.directory.write(".ssh/known_hosts", line);
        EXPECT_EQ(validate(sshd), shown.empty()); // the user refuses
        EXPECT_EQ(user->shown, shown);
        EXPECT_EQ(contentOf(home.knownHosts()), line);
    }
}

// Whatever becomes of the file, the connection goes on.
TEST_F(HostKeyTest, AnAcceptedKeyIsAddedUnderThePlainName) {
    const Sshd sshd;
    const Sshd newer({"ed25519"});
    const std::string mine = "127.0.0.1 " + sshd.hostKey() + "\n";
    const std::string elses = "127.0.0.1 " + newer.hostKey("ed25519") + "\n";
    const std::string notAdded = "Adding the host fingerprint to the known hosts lists failed. | "
                                 "The connection will still continue.\n\nError -34\n";
    const std::string notRead = "An error occurred in libssh2_knownhost_addc. (-16) Error -16. ";
    const std::string notWritten = "Updating the known hosts file failed. | An error -16 occurred. "
                                   "The connection will still continue.";
    const auto accept = [&](const Sshd &server, const Lines &shown) {
        user->answers.assign(2, AlertAnswer::FirstButton);
        EXPECT_TRUE(validate(server));
        EXPECT_EQ(user->shown, shown);
        return contentOf(home.knownHosts());
    };
    EXPECT_EQ(accept(newer, {prompt(newer, false, "ed25519"),
                             notAdded + "Earlier read error: -16 / " + notRead +
                                 "No key type set\nkeyType: 0"}),
              "");
    EXPECT_EQ(std::exchange(log, {}),
              Lines{"Could not check for known_hosts because libssh2_knownhost_readfile failed. " +
                    notRead + "Failed to open file"});
    EXPECT_EQ(accept(sshd, {unknown(sshd)}), mine);
    home.directory.write(".ssh/known_hosts", "");
    EXPECT_EQ(accept(newer, {prompt(newer, false, "ed25519"), notAdded}), "");
    home.directory.write(".ssh/known_hosts", elses);
    EXPECT_EQ(accept(sshd, {changed(sshd)}), elses + mine);
    home.directory.write(".ssh/known_hosts", mine + "unparsable\n" + elses);
    EXPECT_EQ(accept(sshd, {unknown(sshd)}), mine + mine);
    EXPECT_THAT(log.back(), testing::HasSubstr("(-46)"));

    std::filesystem::remove_all(home.directory.path(".ssh"));
    EXPECT_EQ(accept(sshd, {unknown(sshd), notWritten}), "");
}

TEST_F(HostKeyTest, AsksOnTheMainThreadAndRefusesWhenThereIsNobody) {
    const Sshd sshd;
    user->answers = {AlertAnswer::SecondButton};
    const auto onAnotherThread = [&] {
        return std::async(std::launch::async, [&] { return validate(sshd); });
    };
    auto valid = onAnotherThread();
    while (valid.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready)
        SSHPlatform::RunLoop::main()->runFor(std::chrono::milliseconds(10));
    EXPECT_FALSE(valid.get());
    EXPECT_EQ(user->shown, Lines{unknown(sshd)});
    EXPECT_EQ(user->thread, std::this_thread::get_id());

    SSHPlatform::install(nullptr, nullptr);
    EXPECT_FALSE(onAnotherThread().get()); // with no loop running
    EXPECT_THAT(log.back(), testing::StartsWith("There is nobody to ask; refused: The authenticity "
                                                "of host '127.0.0.1:"));
}
