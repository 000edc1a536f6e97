#include "Tests/Support/SessionTest.h"

#include <SSHSession/RunLoop.h>

#include <fmt/format.h>

#include <fstream>
#include <thread>

using SSHPlatform::AlertAnswer;
using SSHPlatform::AlertStyle;

namespace {

class HostKeyTest : public SessionTest {
  protected:
    // Connects and runs the host key stage alone.
    bool validate(const Sshd &sshd) {
        mSession = makeSession(sshd.port());
        EXPECT_TRUE(mSession->_createSocket(&error) && mSession->_startSession(&error))
            << summary(error);
        const bool valid = mSession->_validatedHostFingerprint(&error);
        mSession->stop();
        return valid;
    }

    void expectConfirmation(const Sshd &sshd, bool changed, const std::string &type = "ecdsa") {
        ASSERT_FALSE(user->shown.empty());
        const auto &shown = user->shown.front();
        const std::string key = sshd.hostKey(type).substr(sshd.hostKey(type).find(' ') + 1);
        EXPECT_EQ(shown.style, changed ? AlertStyle::Critical : AlertStyle::Standard);
        EXPECT_EQ(shown.messageText,
                  fmt::format("The authenticity of host '127.0.0.1:{}' can't be established.",
                              sshd.port()));
        const std::string unknown = "The server does not match not in " + home.knownHosts() + ".";
        const std::string different =
            "The server's identity does not match the existing entry in " + home.knownHosts() +
            ". This could be because the server's identity has changed or a Man-in-the-Middle "
            "attack.";
        EXPECT_EQ(shown.informativeText,
                  (changed ? different : unknown) +
                      " Do you want to add it to the list and connect?\n\nHost key: " + key);
        EXPECT_EQ(shown.buttons, changed
                                     ? (std::vector<std::string>{"Add and Connect=", "Cancel=\r"})
                                     : (std::vector<std::string>{"Add and Connect=\r", "Cancel="}));
    }

    std::shared_ptr<TestSession> mSession;
};

enum class Form { None, Unknown, Changed };

} // namespace

TEST_F(HostKeyTest, WhatTheFileHoldsDecides) {
    const Sshd sshd;
    const Sshd other({"ecdsa", "ed25519"});
    const std::string bracketed = fmt::format("[127.0.0.1]:{}", sshd.port());
    const std::string otherPort = fmt::format("[127.0.0.1]:{}", sshd.port() - 1);
    struct Case {
        const char *what;
        std::string name;
        std::string key;
        Form form;
    };
    for (const Case &each : std::vector<Case>{
             {"plain name", "127.0.0.1", sshd.hostKey(), Form::None},
             {"name with port", bracketed, sshd.hostKey(), Form::None},
             {"name with another port", otherPort, sshd.hostKey(), Form::Unknown},
             {"list of names", "example.com,127.0.0.1", sshd.hostKey(), Form::None},
             {"another host", "127.0.0.2", sshd.hostKey(), Form::Unknown},
             {"another key", "127.0.0.1", other.hostKey(), Form::Changed},
             {"another key with port", bracketed, other.hostKey(), Form::Changed},
             {"another algorithm", "127.0.0.1", other.hostKey("ed25519"), Form::Changed}}) {
        SCOPED_TRACE(each.what);
        std::filesystem::remove(home.knownHosts());
        know(each.key, each.name);
        const std::string before = contentOf(home.knownHosts());
        user->shown.clear();
        EXPECT_EQ(validate(sshd), each.form == Form::None); // the user refuses
        EXPECT_EQ(user->shown.size(), each.form == Form::None ? 0U : 1U);
        if (each.form != Form::None)
            expectConfirmation(sshd, each.form == Form::Changed);
        EXPECT_EQ(contentOf(home.knownHosts()), before);
        EXPECT_EQ(error, nullptr);
    }
    std::filesystem::remove(home.knownHosts());
    know(sshd.hostKey());
    require({"ssh-keygen", "-q", "-H", "-f", home.knownHosts()});
    EXPECT_THAT(contentOf(home.knownHosts()), testing::StartsWith("|1|"));
    user->shown.clear();
    EXPECT_TRUE(validate(sshd)) << "hashed name";
    EXPECT_TRUE(user->shown.empty());
}

TEST_F(HostKeyTest, AnAcceptedKeyIsAddedUnderThePlainName) {
    const Sshd sshd;
    const Sshd other;
    user->answers = {AlertAnswer::FirstButton, AlertAnswer::FirstButton};
    EXPECT_TRUE(validate(sshd));
    expectConfirmation(sshd, false);
    EXPECT_EQ(log, std::vector<std::string>{
                       "Could not check for known_hosts because libssh2_knownhost_readfile failed. "
                       "An error occurred in libssh2_knownhost_addc. (-16) Error -16. Failed to "
                       "open file"});
    EXPECT_EQ(contentOf(home.knownHosts()), "127.0.0.1 " + sshd.hostKey() + "\n");

    user->shown.clear();
    EXPECT_TRUE(validate(other));
    expectConfirmation(other, true);
    EXPECT_TRUE(validate(sshd) && validate(other)); // the file holds both keys
    EXPECT_EQ(user->shown.size(), 1U);
    EXPECT_EQ(log.size(), 1U);
}

TEST_F(HostKeyTest, AFileThatCannotBeReadOrWrittenNeverStopsAnAcceptedConnection) {
    const Sshd sshd;
    const std::string writeFailed =
        "Updating the known hosts file failed. An error -16 occurred. The connection will still "
        "continue.";
    // Answers the second alert.
    const auto accept = [&] {
        user->shown.clear();
        user->answers = {AlertAnswer::FirstButton, AlertAnswer::FirstButton};
        EXPECT_TRUE(validate(sshd));
        expectConfirmation(sshd, false);
        return user->shown.size() < 2
                   ? "none"
                   : user->shown[1].messageText + " " + user->shown[1].informativeText;
    };
    const std::string kept = "192.0.2.1 " + sshd.hostKey() + "\n";
    home.directory.write(".ssh/known_hosts",
                         kept + "unparsable\n127.0.0.1 " + sshd.hostKey() + "\n");
    EXPECT_EQ(accept(), "none");
    EXPECT_THAT(log.back(), testing::HasSubstr("(-46)"));
    EXPECT_EQ(contentOf(home.knownHosts()), kept + "127.0.0.1 " + sshd.hostKey() + "\n");

    std::filesystem::remove(home.knownHosts());
    std::filesystem::create_directory(home.knownHosts());
    EXPECT_EQ(accept(), writeFailed);
    EXPECT_TRUE(user->shown[1].buttons.empty());

    std::filesystem::remove_all(home.directory.path(".ssh"));
    EXPECT_EQ(accept(), writeFailed);

    if (isRoot()) {
        GTEST_LOG_(WARNING) << "root reads every file: an unreadable one is not tested";
    } else {
        home.directory.write(".ssh/known_hosts", kept, std::filesystem::perms::none);
        EXPECT_EQ(accept(), writeFailed);
    }
}

TEST_F(HostKeyTest, KeysOfNewerTypesCannotBeAdded) {
    const Sshd sshd({"ed25519"});
    const std::string failed = "Adding the host fingerprint to the known hosts lists failed.";
    user->answers.assign(4, AlertAnswer::FirstButton);
    EXPECT_TRUE(validate(sshd));
    expectConfirmation(sshd, false, "ed25519");
    ASSERT_EQ(user->shown.size(), 2U);
    EXPECT_EQ(user->shown[1].messageText, failed);
    EXPECT_THAT(user->shown[1].informativeText,
                testing::AllOf(testing::StartsWith("The connection will still continue.\n\nError "
                                                   "-34\nEarlier read error: -16 / An error "
                                                   "occurred in libssh2_knownhost_addc. (-16) "),
                               testing::EndsWith("\nkeyType: 0")));
    EXPECT_FALSE(std::filesystem::exists(home.knownHosts()));

    home.directory.write(".ssh/known_hosts", "");
    EXPECT_TRUE(validate(sshd));
    ASSERT_EQ(user->shown.size(), 4U);
    EXPECT_EQ(user->shown[3].informativeText, "The connection will still continue.\n\nError -34\n");
    EXPECT_EQ(contentOf(home.knownHosts()), "");
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
    ASSERT_EQ(user->shown.size(), 1U);
    EXPECT_EQ(user->shown[0].thread, std::this_thread::get_id());

    SSHPlatform::install(nullptr, nullptr);
    std::thread([&] { valid = validate(sshd); }).join(); // with no loop running
    EXPECT_FALSE(valid);
    EXPECT_EQ(log.back(), "There is nobody to ask; refused: " + user->shown[0].messageText);
}
