// What a session notes of what it sees, from servers that are real.
#include "Tests/Support/SessionTest.h"

#include <SSHSession/Platform.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <regex>

using SSHPlatform::AlertAnswer;
using testing::MatchesRegex;

namespace {

struct Told final : SSHSessionObserver {
    void didTryMethod(SSHSession &session, const SSHAttempt &attempt) noexcept override {
        attempts.push_back(attempt);
        EXPECT_GE(session.facts().attempts.size(), attempts.size());
    }
    std::vector<SSHAttempt> attempts;
};

class FactsTest : public SessionTest {
  protected:
    std::string summaryOf(const std::vector<SSHAttempt> &attempts) const {
        std::string text;
        for (const SSHAttempt &each : attempts)
            text += fmt::format("{} {}{} {} {} ({}) {}\n", each.method,
                                each.isFromAgent ? "agent:" : "", each.key, each.keyType,
                                SSHAttemptResultName(each.result), each.remark,
                                fmt::join(each.wanted, "+"));
        return std::regex_replace(text, std::regex(home.directory.path()), "~");
    }

    static std::string summaryOf(const SSHCommandFacts &its) {
        return fmt::format("{}{}{}{}{}{} {} of {} in, {} out | {} | {} | {} {}",
                           its.hasAdminPassword ? "sudo " : "", its.hasInput ? "input " : "",
                           its.isRunning ? "running " : "", its.hasStarted ? "started " : "",
                           its.waitsForSudo ? "waits " : "", its.hasEnded ? "ended" : "",
                           its.inputBytes, its.inputSize, its.outputBytes, its.outputBegin,
                           its.errorEnd, its.exitStatus, its.exitSignal);
    }
};

} // namespace

TEST_F(FactsTest, EveryAttemptIsNotedAndToldOnce) {
    const std::string given = home.directory.path("given");
    const std::string agents = home.directory.path("agents");
    for (const std::string &path : {given, agents})
        makeKey(path, "ed25519");
    makeKey(home.directory.path(".ssh/id_rsa"), "rsa", "sesame");
    const SshAgent agent({agents});
    serverWith("PasswordAuthentication yes\nKbdInteractiveAuthentication no\n");
    const std::string ofAgent = "publickey agent:~/agents ssh-ed25519 refused () \n";
    const std::string ofGiven = "publickey ~/given ssh-ed25519 refused () \n";
    const std::string ofFile = "publickey ~/.ssh/id_rsa ssh-rsa refused () \n";
    const std::string ofPassword = "password   refused () \n";
    for (const bool isDefault : {true, false}) {
        options = isDefault ? SSHSessionOptions() : SSHSessionOptions::recommended();
        const auto told = std::make_shared<Told>();
        const auto session = makeSession(mServer->port(), "wrong", given);
        session->addObserver(told);
        EXPECT_FALSE(session->start(&error));
        const SSHFacts facts = session->facts();
        EXPECT_EQ(summaryOf(facts.attempts), isDefault ? ofAgent + ofGiven + ofFile + ofPassword
                                                       : ofGiven + ofAgent + ofFile + ofPassword);
        EXPECT_EQ(summaryOf(told->attempts), summaryOf(facts.attempts));
        EXPECT_EQ(fmt::format("{}", fmt::join(facts.methods, "+")), "publickey+password");
        EXPECT_EQ(facts.error, error);
        EXPECT_EQ(error->cause(), SSHErrorCause::LogInRefused);
        EXPECT_TRUE(user->shown.empty());
    }
}

TEST_F(FactsTest, OfAServerAndACommand) {
    const auto session = connected();
    const SSHFacts facts = session->facts();
    EXPECT_EQ(facts.addresses.size(), 1U);
    EXPECT_TRUE(facts.addresses.front().address == "127.0.0.1" &&
                facts.addresses.front().isConnected && facts.addresses.front().error == 0);
    EXPECT_THAT(facts.server.version, MatchesRegex("SSH-2.0-OpenSSH_.*"));
    ASSERT_TRUE(facts.server.offer && facts.server.agreed);
    const auto &agreed = *facts.server.agreed;
    using Names = std::vector<std::string> SSHAlgorithms::*;
    for (const Names kind :
         {&SSHAlgorithms::keyExchange, &SSHAlgorithms::hostKey, &SSHAlgorithms::cipherToServer,
          &SSHAlgorithms::cipherToClient, &SSHAlgorithms::compressionToServer,
          &SSHAlgorithms::compressionToClient}) {
        ASSERT_EQ((agreed.*kind).size(), 1U);
        EXPECT_THAT((*facts.server.offer).*kind, testing::Contains((agreed.*kind)[0]));
        EXPECT_THAT(facts.known.*kind, testing::Contains((agreed.*kind)[0]));
    }
    const std::string shown = runProcess({"ssh-keygen", "-l", "-f", home.knownHosts()}).output;
    EXPECT_EQ(facts.hostKey.type, "ecdsa-sha2-nistp256");
    EXPECT_THAT(shown, testing::HasSubstr(facts.hostKey.fingerprint + " "));
    EXPECT_TRUE(facts.hostKey.standing == SSHHostKeyStanding::Match && facts.hostKey.isAccepted &&
                !facts.hostKey.wasAsked && !facts.error && !facts.isStageUnderWay);

    const std::string input(100000, 'i');
    resultOf(*session,
             "head -c 5000 /dev/zero | tr '\\0' o; head -c 3000 /dev/zero | tr '\\0' e "
             ">&2; printf last >&2; cat > /dev/null; exit 3",
             std::nullopt, input);
    EXPECT_EQ(summaryOf(session->facts().command),
              fmt::format("input started ended 100000 of 100000 in, 8004 out | {} | {} | 3 ",
                          std::string(1024, 'o'), std::string(1020, 'e') + "last"));
    resultOf(*session, "kill -TERM $$");
    EXPECT_EQ(summaryOf(session->facts().command), "started ended 0 of 0 in, 0 out |  |  | 0 TERM");
    session->stop();
    EXPECT_FALSE(session->execute(makeCommand("true"), &error));
    EXPECT_TRUE(session->facts().error == error && error->cause() == SSHErrorCause::NotConnected &&
                session->facts().stage == SSHSessionStage::Execute);
}

TEST_F(FactsTest, ADeclinedHostKeyHasAnErrorOfItsOwn) {
    const Sshd sshd;
    using enum SSHErrorCause;
    for (const bool isChanged : {false, true})
        for (const bool isAsked : {true, false}) {
            user->answers = {isAsked ? AlertAnswer::SecondButton : AlertAnswer::Refused};
            const auto session = makeSession(sshd.port());
            EXPECT_FALSE(session->start(&error) || error);
            const SSHFacts facts = session->facts();
            EXPECT_EQ(facts.error->text(), std::string("The server's host key was not accepted. ") +
                                               (isAsked ? "The question was answered with no."
                                                        : "Nobody has answered the question."));
            EXPECT_EQ(facts.error->cause(),
                      isChanged ? isAsked ? HostKeyChangedDeclined : HostKeyChangedUnasked
                      : isAsked ? HostKeyUnknownDeclined
                                : HostKeyUnknownUnasked);
            EXPECT_EQ(facts.hostKey.wasAsked, isAsked);
            if (!isAsked)
                know(server().hostKey());
        }
}
