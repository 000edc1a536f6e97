// Host keys for sessions that know every type, with ssh and ssh-keygen to compare with.
#include "Identity/RecordedKeys.h"
#include "Tests/Support/SessionTest.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace {

// RSA with SHA-1 is all that libssh2 1.10 can check of an RSA key.
const char *const settings = libssh2_version(0x010b00) ? "" : "HostKeyAlgorithms +ssh-rsa\n";
const std::vector<std::string> everyType = {"ed25519", "rsa", "ecdsa-sha2-nistp256",
                                            "ecdsa-sha2-nistp384", "ecdsa-sha2-nistp521"};

class RecordedKeysTest : public SessionTest {
  protected:
    RecordedKeysTest() { options.knowsEveryHostKeyType = true; }

    // What a session makes of the server: "trusted", or what it shows and the error.
    std::string ours(const Sshd &sshd) {
        const auto session = makeSession(sshd.port());
        user->shown.clear();
        error.reset();
        const bool isTrusted = session->_validatedHostFingerprint(*session->handshaken(), &error);
        session->stop();
        std::string all = isTrusted ? "trusted" : error ? summary(error) : "refused";
        for (const std::string &shown : user->shown)
            all += "; " + shown;
        return all;
    }
    std::string accepted(const Sshd &sshd) {
        user->answers.assign(2, SSHPlatform::AlertAnswer::FirstButton);
        return ours(sshd);
    }
    // What ssh makes of it, which never gets further than to authentication.
    std::string sshs(const Sshd &sshd) const {
        const std::string port = std::to_string(sshd.port());
        return runProcess({"ssh", "-F", "none", "-p", port, "-o", "StrictHostKeyChecking=yes", "-o",
                           "UserKnownHostsFile=" + home.knownHosts(), "-o", "BatchMode=yes", "-o",
                           "IdentityFile=none", "-o", "UpdateHostKeys=no", *hostName, "true"})
            .errorOutput;
    }
    static std::string fingerprint(const Sshd &sshd, const std::string &type) {
        const std::string line = require({"ssh-keygen", "-l", "-f", "-"}, sshd.hostKey(type));
        const std::size_t start = line.find(' ') + 1; // after the number of bits
        return line.substr(start, line.find(' ', start) - start);
    }
    std::string asked(const Sshd &sshd, const std::string &type, bool isChanged) const {
        std::string name = type.substr(0, type.find('-'));
        std::transform(name.begin(), name.end(), name.begin(), ::toupper);
        return question(sshd, isChanged, type,
                        "\nKey type: " + name + "\nFingerprint: " + fingerprint(sshd, type));
    }
    static std::string name(const Sshd &sshd) {
        return fmt::format("[127.0.0.1]:{} ", sshd.port());
    }
};

} // namespace

// Each of a server's keys is enough to know it; each is recorded so that ssh finds it.
TEST_F(RecordedKeysTest, EveryTypeIsRecordedAndFound) {
    const Sshd all(everyType, settings);
    for (const std::string &type : everyType) {
        SCOPED_TRACE(type);
        std::filesystem::remove_all(home.directory.path(".ssh"));
        const Sshd sshd({type}, settings);
        EXPECT_EQ(accepted(sshd), "trusted; " + asked(sshd, type, false));
        EXPECT_EQ(contentOf(home.knownHosts()), name(sshd) + sshd.hostKey(type) + "\n");
        EXPECT_THAT(sshs(sshd), testing::HasSubstr("Permission denied"));
        EXPECT_EQ(ours(sshd), "trusted");
        EXPECT_EQ(require({"stat", "-c", "%a", home.directory.path(".ssh"), home.knownHosts()}),
                  "700\n600\n");

        home.directory.write(".ssh/known_hosts", name(all) + all.hostKey(type) + "\n");
        EXPECT_EQ(ours(all), "trusted");
        require({"ssh-keygen", "-q", "-H", "-f", home.knownHosts()});
        EXPECT_EQ(ours(all), "trusted");
        home.directory.write(".ssh/known_hosts", "127.0.0.1 " + all.hostKey(type));
        EXPECT_EQ(ours(all), "trusted");
    }
}

// Every line is read as ssh reads it.
TEST_F(RecordedKeysTest, LinesMeanWhatTheyMeanToSsh) {
    const Sshd sshd({"ed25519", "rsa"}, settings);
    const Sshd other({"ed25519", "ecdsa"});
    const std::string key = sshd.hostKey("ed25519") + "\n";
    const std::string wrong = other.hostKey("ed25519") + "\n";
    const std::string local = fmt::format("[localhost]:{}", sshd.port());
    const std::string hashed = [&] {
        home.directory.write(".ssh/known_hosts", local + " " + key);
        require({"ssh-keygen", "-q", "-H", "-f", home.knownHosts()});
        return contentOf(home.knownHosts());
    }();
    const std::string trusts = "Permission denied";
    const std::string unknown = "host key is known";
    const std::string changed = "HAS CHANGED";
    const std::string revoked = "REVOKED";
    hostName = "LOCALhost";
    for (const auto &[content, expected] : std::vector<std::pair<std::string, std::string>>{
             {local + ' ' + wrong + local + "\t" + key, trusts},
             {"x,[LOCAL*]:*,y " + key, trusts},
             {"[localhos?]:* " + key, trusts},
             {"[localhost?]:* " + key, unknown},
             {"[*,!" + local + ' ' + key, unknown},
             {"!nobody,* " + wrong, changed},
             {"*a*b*a* " + wrong + "*l*st*:* " + key, trusts},
             {hashed, trusts},
             {hashed.substr(0, hashed.find(' ') + 1) + wrong, changed},
             {"|1|AAAA|AAAA " + wrong, unknown},
             {"localhost " + key, trusts},
             {"localhost " + wrong, unknown},
             {local + ' ' + wrong + "localhost " + key, changed},
             {"[localhost]:22 " + key, unknown},
             {local + ' ' + other.hostKey("ecdsa"), changed},
             {"@revoked * " + key + local + ' ' + key, revoked},
             {local + ' ' + key + "  @revoked " + local + ' ' + key, revoked},
             {"@revoked * " + wrong + local + ' ' + key, trusts},
             {"@revoked nobody " + key + local + ' ' + key, trusts},
             {"@cert-authority * " + key, unknown},
             {"@revoked @revoked * " + key, unknown},
             {"@other * " + key, unknown},
             {"#" + local + ' ' + key, unknown},
             {local + " ssh-ed25519\n\n@\n\r\n" + local + " 2048 35 12345\n", unknown},
             {local + " ssh-rsa" + key.substr(key.find(' ')), unknown},
             {local + ' ' + key.substr(0, key.size() - 2) + '\n', unknown},
             {" " + local + ' ' + key.substr(0, key.size() - 1) + "\r\n" + '\0', trusts}}) {
        SCOPED_TRACE(content);
        home.directory.write(".ssh/known_hosts", content);
        const std::string verdict = ours(sshd);
        EXPECT_EQ(verdict == "trusted"                                       ? trusts
                  : verdict.find("marked as revoked") != std::string::npos   ? revoked
                  : verdict.find("refused; Critical: ") != std::string::npos ? changed
                                                                             : unknown,
                  expected)
            << verdict;
        EXPECT_THAT(sshs(sshd), testing::HasSubstr(expected));
        EXPECT_EQ(contentOf(home.knownHosts()), content);
    }
    hostName = "127.0.0.1";
    home.directory.write(".ssh/known_hosts", "@revoked 127.0.0.1 " + key + name(sshd) + key);
    EXPECT_EQ(ours(sshd),
              fmt::format("libssh2ErrorDomain -46 | Dravella could not make an SSH connection to "
                          "{}@127.0.0.1. | The server's host key ({}) is marked as revoked in {}. "
                          "| -",
                          currentUser(), fingerprint(sshd, "ed25519"), home.knownHosts()));
}

// Only what contradicts the accepted key goes, and every other byte stays.
TEST_F(RecordedKeysTest, AnAcceptedKeyTakesThePlaceOfTheHostsOthers) {
    const Sshd sshd({"ed25519"});
    const Sshd other({"ed25519", "ecdsa"});
    const std::string host = name(sshd).substr(0, name(sshd).size() - 1);
    const std::string wrong = " " + other.hostKey("ed25519");
    const std::string line = name(sshd) + sshd.hostKey("ed25519") + "\n";
    const auto hashed = [&] {
        home.directory.write("hashed", host + wrong + "\n");
        require({"ssh-keygen", "-q", "-H", "-f", home.directory.path("hashed")});
        return contentOf(home.directory.path("hashed"));
    }();
    const std::string oddLines = "# a comment\r\n\n \t\nunreadable\n@revoked *" + wrong +
                                 "\n@cert-authority " + host + wrong + "\n127.0.0.1" + wrong + "\n";
    struct Case {
        std::string before;
        std::string after;
        bool isChanged = true;
    };
    for (const auto &[before, after, isChanged] : std::vector<Case>{
             {oddLines, oddLines, false},
             {"no newline", "no newline\n", false},
             {host + wrong, ""},
             {host + " " + other.hostKey("ecdsa") + " c\n" + oddLines + host + wrong + "\r\n#",
              oddLines + "#\n"},
             {" a," + host + ",b" + wrong + "  c d\r\n", " a,b" + wrong + "  c d\r\n"},
             {"a," + host + wrong + "\n" + host + ",b" + wrong, "a" + wrong + "\nb" + wrong + "\n"},
             {"x\n" + hashed + "y\n", "x\ny\n"},
             {"[127.*,z" + wrong + "\n", "[127.*,z" + wrong + "\n"},
             {"[127.*," + host + wrong + "\n", "[127.*" + wrong + "\n"}}) {
        SCOPED_TRACE(before);
        home.directory.write(".ssh/known_hosts", before);
        EXPECT_EQ(accepted(sshd), "trusted; " + asked(sshd, "ed25519", isChanged));
        EXPECT_EQ(contentOf(home.knownHosts()), after + line);
        EXPECT_EQ(ours(sshd), "trusted");
        EXPECT_THAT(sshs(sshd), testing::HasSubstr("Permission denied"));
    }
    home.directory.write(".ssh/known_hosts", host + wrong + "\n");
    user->whileShown = [&] { know("line", "late"); };
    EXPECT_EQ(accepted(sshd), "trusted; " + asked(sshd, "ed25519", true));
    EXPECT_EQ(contentOf(home.knownHosts()), "late line\n" + line);
    home.directory.write(".ssh/known_hosts", "");
    user->whileShown = [&] { know(sshd.hostKey("ed25519"), host); };
    EXPECT_EQ(accepted(sshd), "trusted; " + asked(sshd, "ed25519", false));
    EXPECT_EQ(contentOf(home.knownHosts()), line);

    // Names that a line would take for something else.
    for (const char *const odd : {"*", "a?", "a b", "a,b", "#a", "!a", "@a", "a\nb"}) {
        hostName = odd;
        const auto session = makeSession(22);
        const auto connection = session->beginConnection();
        SSHEngine::HostKeyCheck check;
        check.knownHostsPath = home.knownHosts();
        check.key = {"ssh-ed25519", wrong.substr(wrong.rfind(' ') + 1), ""};
        EXPECT_EQ(SSHEngine::recordHostKey(*connection, check), LIBSSH2_ERROR_INVAL) << odd;
    }
    EXPECT_EQ(contentOf(home.knownHosts()), line);
}

// Nothing hangs, nothing is trusted, and nothing is written.
TEST_F(RecordedKeysTest, WhatCannotBeReadIsAskedAbout) {
    const Sshd sshd({"ed25519"});
    const std::string entry = name(sshd) + sshd.hostKey("ed25519") + "\n";
    std::vector<std::string> scripts = {
        "rm known_hosts; mkfifo known_hosts", "rm known_hosts; mkdir known_hosts",
        "truncate -s 100M known_hosts", "echo >known_hosts; truncate -s 17M known_hosts",
        "cd ..; rm -r .ssh; > .ssh"};
    if (!isRoot())
        scripts.emplace_back("chmod 0 known_hosts");
    for (const std::string &script : scripts) {
        SCOPED_TRACE(script);
        std::filesystem::remove_all(home.directory.path(".ssh"));
        home.directory.write(".ssh/known_hosts", entry);
        require({"sh", "-c", "cd ~/.ssh; " + script});
        const std::string before = require({"ls", "-lAR", home.directory.path()});
        EXPECT_EQ(accepted(sshd), "trusted; " + asked(sshd, "ed25519", false) +
                                      "; Updating the known hosts file failed. | An error -16 "
                                      "occurred. The connection will still continue.");
        EXPECT_THAT(log.back(), testing::StartsWith("Could not read " + home.knownHosts() + ". "));
        EXPECT_EQ(require({"ls", "-lAR", home.directory.path()}), before);
    }
}
