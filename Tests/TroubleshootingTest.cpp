// Docs/troubleshooting.md says what the findings say. It is written anew by this test itself:
//   SSHSESSION_REWRITE_DOCS=1 ./run --core test 'TroubleshootingTest.*'
#include "Diagnosis/FindingTexts.h"
#include "Tests/Support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <sstream>

namespace {

using enum SSHFindingID;

const char *const introduction =
    "# Troubleshooting\n\n"
    "What a session says when it fails, what that means, and what to do. The same sentences, with "
    "the names, paths and ports of the case filled in, are what `SSHFindings` "
    "([Diagnosis/SSHFinding.h](../Diagnosis/SSHFinding.h)) makes of a session that has failed, and "
    "what `sshsession` prints. Search this page for the words of the error; words in capitals "
    "stand "
    "for what differs from case to case.\n";

// In the place of the usual, which is the argument's name in capitals.
const std::map<std::string, std::string> shownAs = {
    {"hostWord", "HOST"},
    {"userWord", "USER"},
    {"remoteUserWord", "USER"},
    {"login", "USER@HOST"},
    {"entryWord", "'[HOST]:PORT'"},
    {"addressWord", "ADDRESS"},
    {"suggestion", "HOST"},
    {"file", "~/.ssh/known_hosts"},
    {"fileWord", "~/.ssh/known_hosts"},
    {"directory", "~/.ssh"},
    {"directoryWord", "~/.ssh"},
    {"path", "KEY"},
    {"keys", "the key KEY"},
    {"agentPublicFile", "KEY.pub"},
    {"convertedPath", "KEY_openssh"},
    {"count", "several keys"},
    {"serverKeyFile", "/etc/ssh/ssh_host_ed25519_key.pub"},
    {"choice", "NAME"},
    {"bring", "Bring the key to the server with `ssh-copy-id -i KEY.pub -p PORT USER@HOST`"},
    {"damage", "is no entry of a known host. What stands in it does not count, and a session with "
               "--classic reads nothing of what follows it."},
    {"lineStep",
     "Look at it with `sed -n LINEp ~/.ssh/known_hosts`, and remove it with `sed -i.bak "
     "LINEd ~/.ssh/known_hosts` unless you can mend it, as by `sed -i.bak 's/\\r$//' "
     "~/.ssh/known_hosts` where it ends as on Windows."},
    {"startAgent", ""},
    {"fewerGiven", "T"},
    {"insteadOfKey", "Log in with a password, or h"},
    {"longerThan", "can be sent, which is about 35 KB"},
    {"giveStep", "Give what the server asks for, a password or the file of a key that it knows, or "
                 "have another way allowed in /etc/ssh/sshd_config on the server."},
    {"privateHint", "as a rule the file beside it without \".pub\""},
    {"terminalStep", "Have `Defaults:USER !requiretty` added on the server with `sudo visudo`, or, "
                     "with sudo in the command itself, give its password apart "
                     "(--admin-password-from)."},
    {"killedStep",
     "Have `journalctl -k` (or `dmesg`) read on the server at this time: it names what "
     "a shortage of memory has ended."},
    {"writeStep",
     "Make the file and its directory yours to write to: `ls -ld ~/.ssh "
     "~/.ssh/known_hosts` shows whose they are; or, where they are, leave out --classic "
     "(knowsEveryHostKeyType, as SSHSessionOptions::recommended() sets it)."},
    {"moreStep", "Give what the other factor needs as well, and leave out --classic "
                 "(triesFurtherFactors, as SSHSessionOptions::recommended() sets it)."}};
// Pieces that are there in some cases only.
const std::string optional = " said detail output within address version entry kind limit "
                             "status more why meaning cipher during usual rootBarred where ";

std::string shown(const std::string &text) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '{') {
            result += text[at];
            continue;
        }
        std::string name = text.substr(at + 1, text.find('}', at) - at - 1);
        at += name.size() + 1;
        if (const auto found = shownAs.find(name); found != shownAs.end())
            result += found->second;
        else if (optional.find(" " + name + " ") == std::string::npos)
            for (const char letter : name)
                result += static_cast<char>(std::toupper(letter));
    }
    return result;
}

std::string document() {
    const std::map<SSHFindingID, const char *> sections = {
        {HostIsNoName, "Connecting"},         {SpeaksHTTP, "The handshake"},
        {HostKeyUnknown, "The server's key"}, {MethodsUntold, "Logging in"},
        {SessionRefused, "Commands"},         {ServerDisconnected, "At any time"}};
    std::ostringstream text;
    text << introduction;
    for (const SSHEngine::FindingText &row : SSHEngine::findingTexts()) {
        if (const auto section = sections.find(row.id); section != sections.end())
            text << "\n## " << section->second << "\n";
        text << "\n### " << row.heading << "\n\n";
        if (*row.fixedTexts)
            text << "```text\n" << row.fixedTexts << "\n```\n\n";
        text << shown(row.text) << "\n\n**What to do:** " << shown(row.step) << " (`" << row.name
             << "`)\n";
    }
    return text.str();
}

} // namespace

TEST(TroubleshootingTest, TheDocumentSaysWhatTheFindingsSay) {
    const std::string path = SSHSESSION_DOCS "/troubleshooting.md";
    if (std::getenv("SSHSESSION_REWRITE_DOCS"))
        std::ofstream(path) << document();
    EXPECT_TRUE(contentOf(path) == document())
        << path << " is not up to date. Set SSHSESSION_REWRITE_DOCS=1 and run this test again.";
}
