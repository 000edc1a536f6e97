// What findings are made of facts; the words are seen whole for a few.
#include "Diagnosis/FindingTexts.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <functional>

namespace {

using Cause = SSHErrorCause;
using Stage = SSHSessionStage;
using Result = SSHAttemptResult;
using Change = std::function<void(SSHFacts &)>;

SSHAttempt attempt(const std::string &method, Result result, const std::string &key = "",
                   bool isFromAgent = false) {
    SSHAttempt made;
    made.method = method, made.result = result, made.key = key, made.isFromAgent = isFromAgent;
    if (!key.empty())
        made.keyType = "ssh-ed25519", made.keyFingerprint = "SHA256:abc";
    return made;
}

SSHKeyFileFacts keyFile(const std::string &path, SSHKeyFileState state, bool isTried = true) {
    SSHKeyFileFacts file;
    file.path = path, file.state = state, file.isTried = isTried, file.mode = 0644;
    return file;
}

SSHFacts factsOf(Cause cause, Stage stage, const Change &change) {
    SSHFacts facts;
    facts.host = "db", facts.user = "ada", facts.port = 2222, facts.stage = stage;
    facts.options = SSHSessionOptions::recommended();
    if (cause != Cause::Unknown)
        facts.error = std::make_shared<SSHError>("", 0, SSHError::UserInfo(), cause);
    change(facts);
    return facts;
}

std::string names(const std::vector<SSHFinding> &findings) {
    std::string all;
    for (const SSHFinding &each : findings) {
        all += (all.empty() ? "" : " ") + std::string(SSHFindingName(each.id));
        for (const std::string &text : {each.text, each.step})
            EXPECT_EQ(text.find_first_of("{}\n"), std::string::npos) << text;
    }
    return all;
}

constexpr const char *given = "/k/my key";
void withLocal(SSHFacts &facts, const SSHKeyFileFacts &file) {
    facts.keyFilePath = file.isTried ? file.path : "";
    facts.local = SSHLocalFacts();
    facts.local->keyFiles = {file};
    facts.methods = {"publickey", "password"};
}
Change file(SSHKeyFileState state) {
    return [=](SSHFacts &facts) { withLocal(facts, keyFile(given, state)); };
}
Change greeting(const std::string &lines) {
    return [=](SSHFacts &facts) { facts.server.linesBefore = lines; };
}
Change ended(int status, const std::string &words, const std::string &signal = "") {
    return [=](SSHFacts &facts) {
        facts.command.hasEnded = true, facts.command.exitStatus = status;
        facts.command.errorEnd = words, facts.command.exitSignal = signal;
    };
}
Change recorded(SSHKnownHostsLine line) {
    return [=](SSHFacts &facts) {
        facts.hostKey.type = "ssh-ed25519", facts.hostKey.fingerprint = "SHA256:new";
        facts.local = SSHLocalFacts();
        facts.local->knownHosts.lines = {line};
    };
}
Change refusedBy(const std::vector<SSHAttempt> &attempts, const Change &more = {}) {
    return [=](SSHFacts &facts) {
        facts.attempts = attempts, facts.methods = {"publickey", "password"};
        facts.hasPassword = true;
        if (more)
            more(facts);
    };
}
void byDefault(SSHFacts &facts) {
    facts.options = {};
}

} // namespace

TEST(FindingTest, EveryFindingStandsInItsRow) {
    for (std::size_t i = 0; i < SSHEngine::findingTexts().size(); ++i)
        EXPECT_EQ(static_cast<std::size_t>(SSHEngine::findingTexts()[i].id), i);
    EXPECT_STREQ(SSHFindingName(SSHFindingID::HostNameUnknown), "hostNameUnknown");
    EXPECT_STREQ(SSHFindingName(SSHFindingID::Unexplained), "unexplained");
    EXPECT_TRUE(SSHFindings({}).empty());
}

TEST(FindingTest, FactsBecomeFindings) {
    const std::vector<std::tuple<Cause, Stage, Change, std::string>> cases = {
        {Cause::NameNotFound, Stage::Connect, [](auto &f) { f.host = "ada@db"; }, "hostIsNoName"},
        {Cause::NameNotFound, Stage::Connect, [](auto &) {}, "hostNameUnknown"},
        {Cause::NameNotFound, Stage::Connect,
         [](auto &f) { byDefault(f), f.host = "fe80::1%eth0"; }, "hostHasNoIPv4"},
        {Cause::ClosedEarly, Stage::Handshake,
         [](auto &f) {
             f.addresses = {{"192.0.2.1", ECONNREFUSED, false}};
         },
         "connectionRefused"},
        {Cause::NotSSH, Stage::Handshake, greeting("\x15\x03\x01"), "speaksTLS"},
        {Cause::ClosedEarly, Stage::Handshake, greeting("Exceeded MaxStartups\r\n"),
         "serverTooBusy"},
        {Cause::HandshakeTimedOut, Stage::Handshake, [](auto &) {}, "serverSilent"},
        {Cause::HandshakeFailed, Stage::Handshake,
         [](auto &f) {
             f.server.version = "SSH-2.0-x", f.known = {{"a"}, {"b"}, {"c"}, {"c"}, {}, {}, {}, {}};
             f.server.offer = f.known, f.server.offer->cipherToClient = {"d"};
         },
         "noCommonCipher"},
        {Cause::HostKeyChangedDeclined, Stage::HostKey,
         recorded({"f", 3, "db", "ssh-rsa", "SHA256:old", true}), "hostKeyOtherType"},
        {Cause::HostKeyChangedUnasked, Stage::HostKey,
         recorded({"f", 3, "db", "ssh-ed25519", "SHA256:old", true}), "hostKeyChanged"},
        {Cause::HostKeyUnknownDeclined, Stage::HostKey,
         recorded({"f", 3, "[db]:22", "ssh-ed25519", "SHA256:new"}),
         "hostKeyOtherPort hostKeyUnknown"},
        {Cause::MethodsUntold, Stage::Authenticate,
         [](auto &f) { byDefault(f), f.server.version = "SSH-2.0-dropbear_2022.83"; },
         "keepAliveRefused methodsUntold"},
        {Cause::KeyUnreadable, Stage::Authenticate, file(SSHKeyFileState::PuTTY), "keyIsPuTTY"},
        {Cause::KeyUnreadable, Stage::Authenticate, file(SSHKeyFileState::Exposed), "keyExposed"},
        {Cause::PasswordRefused, Stage::Authenticate,
         refusedBy({attempt("password", Result::Refused),
                    attempt("publickey", Result::Missing, "/h/.ssh/id_rsa")}),
         "passwordRefused"},
        {Cause::LogInRefused, Stage::Authenticate,
         refusedBy(
             {attempt("publickey", Result::Refused, given), attempt("password", Result::Refused)},
             [](auto &f) { f.keyFilePath = given; }),
         "keyRefused passwordRefused"},
        {Cause::KeyRefused, Stage::Authenticate,
         refusedBy({attempt("publickey", Result::Refused, "a", true),
                    attempt("publickey", Result::Refused, "b", true),
                    attempt("publickey", Result::Ended, "c", true)}),
         "tooManyKeys keyRefused"},
        {Cause::NoWayIn, Stage::Authenticate,
         [](auto &f) { f.hasPassword = true, f.methods = {"publickey"}; }, "passwordNotOffered"},
        {Cause::LogInRefused, Stage::Authenticate,
         [](auto &f) {
             withLocal(f, keyFile("/h/.ssh/id_ed25519", SSHKeyFileState::Plain, false));
             byDefault(f);
         },
         "keyNotTried"},
        {Cause::MoreWanted, Stage::Authenticate, byDefault, "moreFactorsWanted"},
        {Cause::CommandTimedOut, Stage::Execute, [](auto &) {},
         "commandSlow commandMayWaitForInput"},
        {Cause::SudoRefused, Stage::Execute, ended(1, "ada is not in the sudoers file.\n"),
         "sudoNotAllowed"},
        {Cause::SudoSilent, Stage::Execute,
         [](auto &f) { byDefault(f), f.command.outputBegin = "Hi!\n"; }, "sudoHiddenByShell"},
        {Cause::Unknown, Stage::Execute, ended(127, "sh: 1: x: not found\n"), "commandNotFound"},
        {Cause::Unknown, Stage::Execute, ended(1, "x\n"), ""},
        {Cause::Unknown, Stage::Authenticate,
         refusedBy({attempt("publickey", Result::Refused, given)}), ""},
        {Cause::ConnectionLost, Stage::Execute, [](auto &f) { f.hostKey.recordFailure = -16; },
         "connectionLost knownHostsUnwritten"},
        {Cause::Unknown, Stage::Execute, ended(0, "", "KILL"), "commandKilled"},
        {Cause::Unknown, Stage::Execute, ended(1, "This account is currently not available.\n"),
         "shellNotAvailable"},
        {Cause::NoMemory, Stage::Execute, [](auto &) {}, "unexplained"},
    };
    for (const auto &[cause, stage, change, expected] : cases)
        EXPECT_EQ(names(SSHFindings(factsOf(cause, stage, change))), expected);
}

// Whatever the server says is one printable line, and what is to be typed can be.
TEST(FindingTest, WordsAreFilledIn) {
    const auto only = [](Cause cause, Stage stage, const Change &change) {
        const std::vector<SSHFinding> findings = SSHFindings(factsOf(cause, stage, change));
        return findings.empty() ? "" : findings.front().text + " // " + findings.front().step;
    };
    EXPECT_EQ(only(Cause::KeyUnreadable, Stage::Authenticate, file(SSHKeyFileState::Exposed)),
              "Other users of this computer have rights to the key file /k/my key (mode 0644), so "
              "it is not used. // Make it yours alone with `chmod 600 '/k/my key'`.");
    EXPECT_THAT(only(Cause::KeyUnreadable, Stage::Authenticate,
                     [](auto &f) { withLocal(f, keyFile("-R", SSHKeyFileState::Exposed)); }),
                testing::EndsWith("`chmod 600 ./-R`."));
    EXPECT_THAT(only(Cause::CommandTimedOut, Stage::Execute, [](auto &f) { f.user = "a;b"; }),
                testing::HasSubstr(R"(`ssh -p 2222 'a;b@db' ps -u "'"'a;b'"'" -o)"));
    EXPECT_EQ(only(Cause::DisconnectedByServer, Stage::Execute,
                   [](auto &f) {
                       f.disconnect = {11, "\x1b[2JBye\n\n" + std::string(197, 'x') + "é"};
                   }),
              "db ended the connection (reason 11). The server said: \"?[2JBye " +
                  std::string(192, 'x') +
                  "...\" // Have the server's log read at this time (`journalctl -u ssh -u "
                  "sshd`), which "
                  "tells more than it says to others.");
    EXPECT_THAT(only(Cause::KeyRefused, Stage::Authenticate,
                     refusedBy({attempt("publickey", Result::Refused, given)},
                               [](auto &f) { f.keyFilePath = given; })),
                testing::StartsWith(
                    "The server does not accept the key /k/my key (ED25519 SHA256:abc) for ada."));
}
