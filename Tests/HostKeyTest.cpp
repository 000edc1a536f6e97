#include "Tests/Support/SessionTest.h"

#include <SSHSession/RunLoop.h>

#include <fmt/format.h>

#include <thread>

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

    // All that the user is shown.
    Lines unknown(const Sshd &sshd, const std::string &type = "ecdsa") const {
        return {prompt(sshd, type, "", "The server does not match not in {}.",
                       "Add and Connect=\r | Cancel=")};
    }

    Lines changed(const Sshd &sshd) const {
        return {prompt(sshd, "ecdsa", "Critical: ",
                       "The server's identity does not match the existing entry in {}. This could "
                       "be because the server's identity has changed or a Man-in-the-Middle "
                       "attack.",
                       "Add and Connect= | Cancel=\r")};
    }

    std::string writeFailure() const {
        return "Updating the known hosts file failed. | An error -16 occurred. The connection will "
               "still continue.";
    }

  private:
    std::string prompt(const Sshd &sshd, const std::string &type, const char *style,
                       const char *sentence, const char *buttons) const {
        const std::string key = sshd.hostKey(type).substr(sshd.hostKey(type).find(' ') + 1);
        return fmt::format("{}The authenticity of host '127.0.0.1:{}' can't be established. | {} "
                           "Do you want to add it to the list and connect?\n\nHost key: {} | {}",
                           style, sshd.port(),
                           fmt::format(fmt::runtime(sentence), home.knownHosts()), key, buttons);
    }
};

} // namespace

TEST_F(HostKeyTest, WhatTheFileHoldsDecides) {
    const Sshd sshd;
    const Sshd other({"ecdsa", "ed25519"});
    const std::string bracketed = fmt::format("[127.0.0.1]:{}", sshd.port());
    const std::string otherPort = fmt::format("[127.0.0.1]:{}", sshd.port() - 1);
    struct Case {
        std::string name;
        std::string key;
        Lines shown;
    };
    for (const Case &each :
         std::vector<Case>{{"127.0.0.1", sshd.hostKey(), {}},
                           {bracketed, sshd.hostKey(), {}},
                           {otherPort, sshd.hostKey(), unknown(sshd)},
                           {"example.com,127.0.0.1", sshd.hostKey(), {}},
                           {"127.0.0.2", sshd.hostKey(), unknown(sshd)},
                           {"127.0.0.1", other.hostKey(), changed(sshd)},
                           {bracketed, other.hostKey(), changed(sshd)},
                           {"127.0.0.1", other.hostKey("ed25519"), changed(sshd)}}) {
        const std::string before = each.name + " " + each.key + "\n";
        SCOPED_TRACE(before);
        home.directory.write(".ssh/known_hosts", before);
        EXPECT_EQ(validate(sshd), each.shown.empty()); // the user refuses
        EXPECT_EQ(user->shown, each.shown);
        EXPECT_EQ(contentOf(home.knownHosts()), before);
    }
    home.directory.write(".ssh/known_hosts", "127.0.0.1 " + sshd.hostKey() + "\n");
    require({"ssh-keygen", "-q", "-H", "-f", home.knownHosts()});
    EXPECT_THAT(contentOf(home.knownHosts()), testing::StartsWith("|1|"));
    EXPECT_TRUE(validate(sshd) && user->shown.empty());
}

TEST_F(HostKeyTest, AnAcceptedKeyIsAddedUnderThePlainName) {
    const Sshd sshd;
    const Sshd other;
    user->answers = {AlertAnswer::FirstButton, AlertAnswer::FirstButton};
    EXPECT_TRUE(validate(sshd));
    EXPECT_EQ(user->shown, unknown(sshd));
    EXPECT_EQ(std::exchange(log, {}),
              Lines{"Could not check for known_hosts because libssh2_knownhost_readfile failed. An "
                    "error occurred in libssh2_knownhost_addc. (-16) Error -16. Failed to open "
                    "file"});
    EXPECT_EQ(contentOf(home.knownHosts()), "127.0.0.1 " + sshd.hostKey() + "\n");

    EXPECT_TRUE(validate(other));
    EXPECT_EQ(user->shown, changed(other));
    EXPECT_TRUE(validate(sshd) && validate(other)); // the file holds both keys
    EXPECT_EQ(log, Lines());
}

TEST_F(HostKeyTest, AFileThatCannotBeReadOrWrittenNeverStopsAnAcceptedConnection) {
    const Sshd sshd;
    const auto expectShown = [&](const Lines &shown) {
        user->answers.assign(2, AlertAnswer::FirstButton);
        EXPECT_TRUE(validate(sshd));
        EXPECT_EQ(user->shown, shown);
    };
    Lines withFailure = unknown(sshd);
    withFailure.push_back(writeFailure());
    const std::string kept = "192.0.2.1 " + sshd.hostKey() + "\n";
    const std::string mine = "127.0.0.1 " + sshd.hostKey() + "\n";
    home.directory.write(".ssh/known_hosts", kept + "unparsable\n" + mine);
    expectShown(unknown(sshd));
    EXPECT_THAT(log.back(), testing::HasSubstr("(-46)"));
    EXPECT_EQ(contentOf(home.knownHosts()), kept + mine);

    std::filesystem::remove(home.knownHosts());
    std::filesystem::create_directory(home.knownHosts());
    expectShown(withFailure);
    std::filesystem::remove_all(home.directory.path(".ssh"));
    expectShown(withFailure);
    if (isRoot()) {
        GTEST_LOG_(WARNING) << "root reads every file: an unreadable one is not tested";
    } else {
        home.directory.write(".ssh/known_hosts", kept, std::filesystem::perms::none);
        expectShown(withFailure);
    }
}

TEST_F(HostKeyTest, KeysOfNewerTypesCannotBeAdded) {
    const Sshd sshd({"ed25519"});
    user->answers.assign(4, AlertAnswer::FirstButton);
    Lines shown = unknown(sshd, "ed25519");
    shown.emplace_back("Adding the host fingerprint to the known hosts lists failed. | The "
                       "connection will still continue.\n\nError -34\n");
    home.directory.write(".ssh/known_hosts", "");
    EXPECT_TRUE(validate(sshd));
    EXPECT_EQ(user->shown, shown);
    EXPECT_EQ(contentOf(home.knownHosts()), "");

    std::filesystem::remove(home.knownHosts());
    EXPECT_TRUE(validate(sshd));
    shown[1] +=
        "Earlier read error: -16 / An error occurred in libssh2_knownhost_addc. (-16) Error "
        "-16. No key type set\nkeyType: 0";
    EXPECT_EQ(user->shown, shown);
    EXPECT_FALSE(std::filesystem::exists(home.knownHosts()));
}

TEST_F(HostKeyTest, AsksOnTheMainThreadAndRefusesWhenThereIsNobody) {
    const Sshd sshd;
    user->answers = {AlertAnswer::SecondButton};
    bool valid = true;
    std::thread worker([&] {
        valid = validate(sshd);
        SSHPlatform::RunLoop::main()->stop();
    });
    SSHPlatform::RunLoop::main()->run();
    worker.join();
    EXPECT_FALSE(valid);
    EXPECT_EQ(user->shown, unknown(sshd));
    EXPECT_EQ(user->thread, std::this_thread::get_id());

    SSHPlatform::install(nullptr, nullptr);
    std::thread([&] { valid = validate(sshd); }).join(); // with no loop running
    EXPECT_FALSE(valid);
    EXPECT_THAT(log.back(), testing::StartsWith("There is nobody to ask; refused: The authenticity "
                                                "of host '127.0.0.1:"));
}
