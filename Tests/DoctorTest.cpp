// Examinations of servers that are well, and of those that are not.
#include "Tests/Support/ScriptedServer.h"

#include <SSHSession/SSHDoctor.h>

#include <asio/ip/tcp.hpp>
#include <fmt/format.h>

#include <sys/stat.h>

#include <regex>
#include <thread>

using asio::ip::tcp;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

// Answers what is said first with this, and hangs up.
class Speaker {
  public:
    explicit Speaker(std::string text) : mText(std::move(text)) {}
    ~Speaker() { ::shutdown(mListener.native_handle(), SHUT_RDWR); }
    unsigned short port() const { return mListener.local_endpoint().port(); }

  private:
    const std::string mText;
    asio::io_context mContext;
    tcp::acceptor mListener{mContext, {asio::ip::address_v4::loopback(), 0}};
    std::jthread mThread{[this] {
        tcp::socket client(mContext);
        char byte = 0;
        std::error_code failure;
        if (!mListener.accept(client, failure) && client.read_some(asio::buffer(&byte, 1), failure))
            client.write_some(asio::buffer(mText), failure);
    }};
};

class DoctorTest : public ScriptedServerTest {
  protected:
    DoctorTest() {
        options = SSHSessionOptions::recommended();
        options.connectTimeout = options.handshakeTimeout = std::chrono::seconds(2);
    }

    // "verdict step: text | advice", without what differs from run to run. Whatever happens, nobody
    // is asked and the file of known hosts stays as it is.
    Lines report(unsigned short port, const std::string &name, const std::string &password = "",
                 const std::optional<std::string> &keyFile = std::nullopt) {
        static const std::regex varying(
            R"([0-9]+ ms|SHA256:[^ ,)]+|[Pp]ort [0-9]+|SSH-2.0-[^")]+|all .*|[^ (]*sshsession-[^/]+)");
        const std::string known = contentOf(home.knownHosts());
        const auto secret = [](const std::string &text) {
            return text.empty() ? SSHPlatform::Secret::none() : SSHPlatform::Secret::of(text);
        };
        SSHDoctor doctor(hostName, port, name, secret(password), keyFile, options,
                         secret(adminPassword));
        Lines lines;
        doctor.examine([&](const SSHDoctorLine &line) {
            const char *const verdicts[] = {"ok", "note", "FAIL"};
            std::string text = fmt::format("{} {}: {}", verdicts[static_cast<int>(line.verdict)],
                                           line.step, line.text);
            text += line.advice.empty() ? "" : " | " + line.advice;
            EXPECT_EQ(line.verdict == SSHDoctorLine::Verdict::Fail, !line.advice.empty()) << text;
            lines.push_back(std::regex_replace(text, varying, "~"));
            if (line.step == cancelledAt)
                doctor.cancel();
        });
        EXPECT_EQ(user->shown, Lines());
        EXPECT_EQ(contentOf(home.knownHosts()), known);
        return lines;
    }

    // The first line of a step that tells of trouble beyond this computer.
    static std::string trouble(const Lines &lines) {
        for (const std::string &line : lines)
            if (!line.starts_with("ok ") &&
                !std::regex_search(line, std::regex("^note (key files|agent|known hosts|keys):")))
                return line;
        return "none";
    }

    std::string adminPassword, cancelledAt;
};

} // namespace

TEST_F(DoctorTest, AHealthyServer) {
    const std::string record = "note known hosts: ~/.ssh/known_hosts, line ";
    const std::string recorded = ": ecdsa-sha2-nistp256 ~ for 127.0.0.1. That is for every port.";
    const Lines middle = {record + "1" + recorded,
                          record + "2" + recorded,
                          "ok look-up: 127.0.0.1 is an address; no name is looked up.",
                          "ok connect: 127.0.0.1, ~: connected after ~.",
                          "ok first words: The server says \"~\".",
                          "ok algorithms: Something of each kind in common, first of ~"};
    const Lines end = {"ok shell: \"true\" has run, and the shell prints nothing of its own."};
    const auto whole = [&](Lines lines, const Lines &rest) {
        for (const Lines &more : {middle, rest, end})
            lines.insert(lines.end(), more.begin(), more.end());
        return lines;
    };
    server();
    EXPECT_EQ(report(mServer->port(), currentUser(), "", key()),
              whole({"ok key files: ~/client (ssh-ed25519 ~): Usable.",
                     "note agent: None is named (SSH_AUTH_SOCK is not set)."},
                    {"ok host key: ecdsa-sha2-nistp256 ~, as on line 2 of ~/.ssh/known_hosts.",
                     "ok keepalive: The server bears one before the log-in.",
                     "ok methods: The server offers publickey.",
                     "ok keys: The server would take ~/client (ssh-ed25519).",
                     "ok log-in: \"" + currentUser() + "\" is in, by publickey with ~/client."}));
    const SshAgent agent({key()});
    Lines logIn = {"ok host key: ecdsa-sha2-nistp256 ~, as on line 1 of ~/.ssh/known_hosts.",
                   "ok keepalive: The server bears one before the log-in.",
                   "ok methods: The server offers password.",
                   "note keys: The server takes no keys.",
                   "ok log-in: \"password banner 'Hello\\x1b'\" is in, by password."};
#ifdef SSHSESSION_WRAPS_LIBSSH2 // others lose what comes with an answer
    logIn.emplace_back("note log-in: At the log-in the server shows \"Hello?\".");
#endif
    EXPECT_EQ(
        report(scripted.port(), "password banner 'Hello\\x1b'", "sesame"),
        whole({"note key files: None was given, and there is none in ~/.ssh that a session would "
               "try.",
               "ok agent: ssh-ed25519 ~ (~/client)"},
              logIn));
}

TEST_F(DoctorTest, WhatIsSeenFirst) {
    asio::io_context context;
    const tcp::acceptor silent(context, {asio::ip::address_v4::loopback(), 0});
    EXPECT_THAT(trouble(report(silent.local_endpoint().port(), "ada")),
                AllOf(StartsWith("FAIL first words: "), HasSubstr("has not said a word")));
    EXPECT_THAT(trouble(report(freePort(), "ada")),
                StartsWith("note connect: 127.0.0.1, ~: Connection refused."));
    for (const auto &[said, line] : std::vector<std::pair<std::string, std::string>>{
             {"HTTP/1.1 400 Bad Request\r\n",
              "FAIL first words: ~ of 127.0.0.1 belongs to a web server"},
             {"", "FAIL first words: 127.0.0.1 took the connection to ~ and ended it"},
             {"SSH-2.", "FAIL first words: 127.0.0.1 took the connection to ~ and ended it"},
             {"SSH-1.5-x\r\n", "FAIL first words: 127.0.0.1 calls itself \"SSH-1.5-x\""},
             {"Hi\nSSH-2.0-x\r\n", "note first words: Before its version the server says \"Hi\"."},
             {"SSH-2.0-x\r\n", "FAIL algorithms: 127.0.0.1 (~) began the handshake"}})
        EXPECT_THAT(trouble(report(Speaker(said).port(), "ada")), StartsWith(line));
}

TEST_F(DoctorTest, SecretsAreSentOnce) {
    adminPassword = "admin";
    const std::string refused = "FAIL log-in: The server refused the password for ";
    for (const auto &[name, password, line, sent] :
         std::vector<std::tuple<std::string, std::string, std::string, Lines>>{
             {"password,keyboard-interactive '|I|-Password: '",
              "wrong",
              refused,
              {"password b'wrong'"}},
             {"keyboard-interactive '|I|-Password: '", "wrong", refused, {"answers [b'wrong']"}},
             {"keyboard-interactive '|I|-Password: ' endless",
              "sesame",
              "",
              {"answers [b'sesame']"}},
             {"password>keyboard-interactive '|I|-Code: '",
              "sesame",
              "note log-in: password: taken as one factor; the server wants keyboard-interactive "
              "as well.",
              {"password b'sesame'"}},
             {"password expired",
              "sesame",
              "FAIL log-in: The server knows the password",
              {"password b'sesame'"}},
             {"password",
              "",
              "note log-in: 127.0.0.1 lets password log in by a password, and none was given.",
              {}},
             {"password",
              "sesame",
              "FAIL sudo: ",
              {"password b'sesame'", "done", "line b'admin'", "line b'<end>'", "done"}}}) {
        EXPECT_THAT(trouble(report(scripted.port(), name, password)), StartsWith(line)) << name;
        Lines received{"keepalive"};
        received.insert(received.end(), sent.begin(), sent.end());
        EXPECT_EQ(scripted.received(received.size()), received) << name;
    }
}

TEST_F(DoctorTest, NoSecretForAnUntrustedServer) {
    std::filesystem::remove_all(home.directory.path(".ssh"));
    Lines lines = report(scripted.port(), "password", "sesame");
    EXPECT_THAT(trouble(lines),
                StartsWith("note host key: ecdsa-sha2-nistp256 ~ is on no record."));
    EXPECT_FALSE(std::filesystem::exists(home.directory.path(".ssh")));
    EXPECT_THAT(lines, Contains("ok methods: The server offers password."));
    const std::string name = "[127.0.0.1]:" + std::to_string(scripted.port()) + " ";
    makeKey(home.directory.path("other"), "ecdsa");
    for (const std::string &line : {name + publicKey(home.directory.path("other")),
                                    "@revoked " + name + scripted.hostKey()}) {
        home.directory.write(".ssh/known_hosts", line + "\n");
        lines = report(scripted.port(), "password", "sesame");
        EXPECT_THAT(trouble(lines), StartsWith("FAIL host key: ")) << line;
        EXPECT_EQ(lines.back(), "note rest: Not examined, because they need what is missing above: "
                                "keys, log-in, shell.");
    }
    EXPECT_EQ(scripted.received(3), Lines(3, "keepalive"));
}

TEST_F(DoctorTest, EndsWhenCancelled) {
    cancelledAt = "first words";
    EXPECT_THAT(
        report(scripted.port(), "password", "sesame").back(),
        StartsWith("note rest: Not examined, because it was cancelled: algorithms, host key"));
}

// What is opened and read once must not be waited for the second time.
TEST_F(DoctorTest, EndsWithWhatHangsOnThisComputer) {
    options = SSHSessionOptions();
    std::filesystem::remove(home.knownHosts());
    ASSERT_EQ(::mkfifo(home.knownHosts().c_str(), 0600), 0);
    SSHDoctor doctor(hostName, scripted.port(), "password", SSHPlatform::Secret::none(), {});
    Lines steps;
    doctor.examine([&](const SSHDoctorLine &line) { steps.push_back(line.step); });
    EXPECT_THAT(steps, Contains("methods"));
}
