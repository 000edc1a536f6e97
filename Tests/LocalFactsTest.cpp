// What is seen on this computer, with files, keys and an agent as OpenSSH makes them.
#include "Session/LocalFacts.h"
#include "Auth/AgentList.h"
#include "Tests/Support/SessionTest.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class LocalFactsTest : public SessionTest {
  protected:
    LocalFactsTest() { hostName = "db"; }
    SSHLocalFacts local(const std::string &given = "") {
        return SSHEngine::localFacts(
            *makeSession(2222, std::nullopt, given.empty() ? std::nullopt : std::optional(given)));
    }
    std::string ssh(const std::string &name) const { return home.directory.path(".ssh/" + name); }
    static std::string fingerprint(const std::string &path) {
        const std::string line = require({"ssh-keygen", "-l", "-f", path});
        const std::size_t start = line.find("SHA256:");
        return line.substr(start, line.find(' ', start) - start);
    }
};

} // namespace

TEST_F(LocalFactsTest, KeyFilesAndTheAgent) {
    using State = SSHKeyFileState;
    makeKey(ssh("id_rsa"), "rsa");
    makeKey(ssh("id_ed25519"), "ed25519", "secret");
    std::filesystem::remove(ssh("id_rsa.pub"));
    const SshAgent agent({ssh("id_rsa")});
    for (const bool isOfToday : {false, true}) {
        options.triesKeysOfToday = isOfToday;
        const SSHLocalFacts facts = local();
        ASSERT_EQ(facts.keyFiles.size(), 4);
        const SSHKeyFileFacts &rsa = facts.keyFiles[0];
        EXPECT_EQ(std::tie(rsa.path, rsa.type, rsa.fingerprint),
                  std::make_tuple(ssh("id_rsa"), "ssh-rsa", fingerprint(ssh("id_rsa"))));
        EXPECT_TRUE(rsa.isInAgent && rsa.state == State::Plain && rsa.mode == 0600);
        EXPECT_TRUE(rsa.isTried == isOfToday && rsa.publicFile == SSHPublicFileState::Missing);
        EXPECT_EQ(facts.keyFiles[1].state, State::Missing);
        const SSHKeyFileFacts &modern = facts.keyFiles[2];
        EXPECT_TRUE(!modern.isInAgent && modern.state == State::Encrypted);
        EXPECT_TRUE(modern.isTried == isOfToday && modern.publicFile == SSHPublicFileState::Same);
        ASSERT_EQ(facts.agent.identities.size(), 1);
        EXPECT_EQ(facts.agent.identities[0].fingerprint, rsa.fingerprint);
    }
    const TemporaryDirectory &files = home.directory;
    const std::string pipe = files.path("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    const std::string rsa = contentOf(ssh("id_rsa"));
    const auto open = std::filesystem::perms(0644);
    require({"ssh-keygen", "-q", "-p", "-P", "secret", "-N", "secret", "-Z",
             "chacha20-poly1305@openssh.com", "-f", ssh("id_ed25519")});
    const std::vector<std::pair<std::string, State>> cases = {
        {files.path("none"), State::Missing},
        {files.path(), State::Unreadable},
        {pipe, State::Unreadable},
        {"/dev/zero", State::Unreadable},
        {files.write("text", "hello\n"), State::NoKey},
        {ssh("id_ed25519.pub"), State::PublicKey},
        {files.write("a.ppk", "PuTTY-User-Key-File-3: ssh-ed25519\n"), State::PuTTY},
        {files.write("exposed", rsa, open), State::Exposed},
        {ssh("id_ed25519"), State::UnknownCipher}};
    for (const auto &[path, state] : cases) {
        const SSHKeyFileFacts given = local(path).keyFiles.front();
        EXPECT_TRUE(given.isGiven && given.isTried && given.path == path) << path;
        EXPECT_EQ(given.state, state) << path;
    }
    makeKey(files.path("other"), "ed25519");
    files.write("other.pub", contentOf(ssh("id_ed25519.pub")));
    EXPECT_EQ(local(files.path("other")).keyFiles[0].publicFile, SSHPublicFileState::Foreign);
}

// An agent that is gone, that takes nobody in, and that says what no agent says.
TEST_F(LocalFactsTest, AnAgentThatIsNone) {
    EXPECT_EQ(SSHEngine::agentFacts().socket, "");
    const std::string path = home.directory.path("agent");
    ::setenv("SSH_AUTH_SOCK", path.c_str(), 1);
    EXPECT_EQ(SSHEngine::agentFacts().problem, "No such file or directory");
    {
        const Process silent({"python3", "-c",
                              "import socket, sys, time; s = socket.socket(socket.AF_UNIX); "
                              "s.bind(sys.argv[1]); s.listen(0); time.sleep(60)",
                              path},
                             home.directory.path("log"));
        ASSERT_TRUE(
            eventually([&] { return SSHEngine::agentFacts().problem == "Connection timed out"; }));
    }
    ::unsetenv("SSH_AUTH_SOCK");
    const std::string one("\x0C\0\0\0\1\0\0\0\4\0\0\0\0\0\0\0\1c", 18);
    EXPECT_EQ(SSHEngine::identitiesIn(one)->at(0).comment, "c");
    for (std::size_t size = 0; size < one.size(); ++size)
        EXPECT_FALSE(SSHEngine::identitiesIn(one.substr(0, size))) << size;
}

TEST_F(LocalFactsTest, KnownHosts) {
    makeKey(ssh("k"), "ed25519");
    const std::string key = publicKey(ssh("k"));
    const std::string file = home.directory.write(
        ".ssh/known_hosts", fmt::format("# db\n\nother {0}\nx,DB {0}\n[db]:22 {0}\nnonsense\n"
                                        "[db]:2222 ssh-rsa {0}\n@revoked *b {0}\n[db]:2222 {0}\n",
                                        key));
    const auto lines = [](const SSHKnownHostsFacts &facts) {
        std::string all;
        for (const SSHKnownHostsLine &each : facts.lines)
            all += fmt::format("{}{}{}:{} ", each.number, each.isForThisPort ? "!" : "",
                               each.isRevoked ? "-" : "", each.name);
        return all;
    };
    const SSHKnownHostsFacts facts = local().knownHosts;
    EXPECT_EQ(lines(facts), "4:DB 5:[db]:22 8-:*b 9!:[db]:2222 ");
    EXPECT_EQ(facts.badLines, (std::vector<std::size_t>{6, 7}));
    EXPECT_EQ(facts.lines.at(0).fingerprint, fingerprint(ssh("k.pub")));
    EXPECT_TRUE(facts.exists && facts.hasDirectory && facts.isWritable && facts.path == file);
    home.directory.write(".ssh/known_hosts", fmt::format("db {0}\n[db]:2222 {0}\nx {0}\n", key));
    require({"ssh-keygen", "-q", "-H", "-f", file});
    EXPECT_THAT(lines(local().knownHosts), testing::MatchesRegex("1:.1.[^ ]* 2!:.1.[^ ]* "));
    std::filesystem::remove(file);
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    EXPECT_EQ(local().knownHosts.problem, "Invalid argument");
    std::filesystem::remove_all(ssh(""));
    const SSHKnownHostsFacts none = local().knownHosts;
    EXPECT_FALSE(none.exists || none.hasDirectory || none.isWritable || !none.problem.empty());
}
