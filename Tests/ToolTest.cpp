// The command-line program as its users run it: the real binary against a real server.
#include "Tests/Support/ScriptedServer.h"

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>
#include <regex>

using namespace std::string_literals;

namespace {

class ToolTest : public testing::Test {
  protected:
    ToolTest() {
        makeKey(key, "ed25519");
        server.authorize(key);
        home.directory.write(".ssh/known_hosts", "127.0.0.1 " + server.hostKey() + "\n");
    }
    void TearDown() override { std::cerr << (HasFailure() ? server.log() : ""); }

    // Runs the program, which is "$0" "$@" in the shell's `script`. What differs from one run to
    // the next is left out: times, and which stream was being read when the server disconnected.
    void check(Lines words, int status, const std::string &out, const std::string &err = "",
               const std::string &input = "", const std::string &script = R"("$0" "$@")") const {
        words.insert(words.begin(), {"sh", "-c", script, SSHSESSION_TOOL, "-p", port, "-i", key});
        const Outcome real = runProcess(words, input);
        const std::regex varying(R"([0-9]+\.[0-9]+( ms|[,}])|_stderr)");
        EXPECT_EQ(std::tuple(real.status, std::regex_replace(real.output, varying, "$1"),
                             std::regex_replace(real.errorOutput, varying, "$1")),
                  std::tuple(status, out, err))
            << testing::PrintToString(words);
    }

    TemporaryHome home;
    std::string key = home.directory.path("client");
    Sshd server;
    std::string port = std::to_string(server.port());
};

TEST_F(ToolTest, HandsThroughOutputAndStatus) {
    check({"127.0.0.1", R"(printf '\0\377\r'; printf '\376' >&2; exit 3)"}, 3, "\0\xff\r"s, "\xfe");
    check({"--", "127.0.0.1", "--", "echo", "b c", "-v", "--", "$((1+1))"}, 0, "b c -v -- 2\n");
    check({currentUser() + "@127.0.0.1", "kill -KILL $$"}, 137, "");
    check({"127.0.0.1", "echo out; kill -TRAP $$"}, 255, "out\n",
          "sshsession: The command was ended by the signal \"SIG@openssh.com\", which has no "
          "number on this system.\n");
    for (const char *const source : {"-", "/dev/stdin"})
        check({"--stdin", source, "127.0.0.1", "cat"}, 0, "\0\r\n\xff x"s, "", "\0\r\n\xff x"s);
    check({"--json", "127.0.0.1", R"(printf 'a\377bc'; printf '\303\274' >&2; kill $$)"}, 143,
          "{\"stdout\":\"a\uFFFDbc\",\"stdoutBase64\":\"Yf9iYw==\",\"stderr\":\"\u00fc\","
          "\"exitStatus\":0,\"exitSignal\":\"TERM\",\"timings\":{\"connect\":,\"handshake\":,"
          "\"hostKey\":,\"agent\":,\"authenticate\":,\"execute\":}}\n");
}

TEST_F(ToolTest, RefusesInOneLineWhatItCannotUse) {
    const auto refuses = [&](const Lines &words, const std::string &line) {
        check(words, 255, "", "sshsession: " + line + "\n", "a\0b"s);
    };
    const std::string help = " See \"sshsession --help\".";
    refuses({}, "There is no host to connect to." + help);
    refuses({"--", "host"}, "There is no command to run on host." + help);
    refuses({"--bogus", "host", "ls"}, "There is no option \"--bogus\"." + help);
    refuses({"@host", "true"}, "\"@host\" is not of the form [USER@]HOST." + help);
    refuses({"-p", "1", "host", "ls"}, "-p: At Most 1 required but received 2." + help);
    refuses({"--stdin", "-", "--admin-password-from", "-", "host", "ls"},
            "Only one option can read standard input (\"-\")." + help);
    refuses({"--stdin", "\x9b", "host", "ls"}, "Could not read \"?\": No such file or directory.");
    refuses({"--stdin", "/", "host", "ls"}, "Could not read \"/\": Is a directory.");
    refuses({"--password-from", "-", "host", "ls"}, "The password in \"-\" holds a zero byte.");
}

TEST_F(ToolTest, MeetsClosedFullAndBrokenStreams) {
    const Lines big = {"127.0.0.1", "head -c 200000 /dev/zero"}; // more than a pipe holds
    const std::string failed = "sshsession: Could not write to standard output: ";
    check(big, 255, "", failed + "Bad file descriptor.\n", "", R"("$0" "$@" >&-)");
    check(big, 255, "", failed + "No space left on device.\n", "", R"("$0" "$@" >/dev/full)");
    check(big, 0, "", failed + "Broken pipe.\n255\n", "", R"({ "$0" "$@"; echo $? >&2; } | :)");
    // A connection must not take the place of a stream.
    check({"-v", "127.0.0.1", "echo out"}, 0, "out\n", "", "", R"("$0" "$@" 2>&-)");
}

TEST_F(ToolTest, ReadsAPasswordAndTellsWhatTheServerDoes) {
    ScriptedServer scripted;
    port = std::to_string(scripted.port());
    home.directory.write(".ssh/known_hosts", "127.0.0.1 " + scripted.hostKey() + "\n");
    const auto asks = [](const std::string &script) {
        return Lines{"--password-from", "/dev/stdin", "password@127.0.0.1", script};
    };
    check(asks("out x; signal HUP@example.com; eof; close"), 129, "x", "", "a\r");
    check(asks("out x; status 256; eof; close"), 255, "x",
          "sshsession: The command's exit status is 256, which is more than can be handed "
          "through.\n",
          "b\n\n");
    check(asks("out x; disconnect 2 'by\\x1be\\xc2\\x9b\\n' en"), 255, "",
          "sshsession: The server ended the connection: by?e??\n"
          "An error occurred in libssh2_channel_read. (-13)\n"
          "The socket was disconnected. transport read\n",
          "c\r\n");
    check(asks("out x; status 0; eof; wait 0.1; disconnect 11"), 255, "x",
          "sshsession: The server ended the connection.\n"
          "The connection ended before the command did.\nWhat the command wrote may be cut, its "
          "exit status is not known, and it may still be running.\n",
          "d");
    EXPECT_THAT(scripted.received(),
                testing::IsSupersetOf({"password b'a\\r'", "password b'b\\n'", "password b'c'"}));
}

TEST_F(ToolTest, RefusesAnUnknownServerWithoutATerminal) {
    std::filesystem::remove(home.knownHosts());
    check({"-v", "--json", "127.0.0.1", "true"}, 255,
          R"({"error":{"domain":"sshsession","code":0,"description":)"
          R"("The server's host key was not accepted.","reason":)"
          R"("The question was answered with no, or there is no terminal to ask on."},)"
          "\"timings\":{\"connect\":,\"handshake\":,\"hostKey\":}}\n",
          "sshsession: connect: begins\nsshsession: connect: done after  ms\n"
          "sshsession: handshake: begins\nsshsession: handshake: done after  ms\n"
          "sshsession: hostKey: begins\nsshsession: Could not check for known_hosts because "
          "libssh2_knownhost_readfile failed. An error occurred in libssh2_knownhost_addc. (-16) "
          "Error -16. Failed to open file\nsshsession: hostKey: failed after  ms\n",
          "", R"(setsid -w "$0" "$@")");
}

const std::string hangUp = "closes the terminal";

// Runs a shell's command on a terminal of its own and types each answer once the screen ends with
// its prompt; an empty prompt is typed ahead of. Answers the whole screen.
std::string onTerminal(const std::string &command,
                       std::vector<std::pair<std::string, std::string>> answers) {
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        ::alarm(20);
        ::_exit(::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr));
    }
    std::string screen;
    char byte = 0;
    do {
        if (answers.empty() || !screen.ends_with(answers.front().first))
            continue;
        if (answers.front().second == hangUp)
            break;
        const std::string &typed = answers.front().second;
        EXPECT_EQ(::write(terminal, typed.data(), typed.size()), typed.size());
        answers.erase(answers.begin());
    } while (::read(terminal, &byte, 1) == 1 && (screen += byte, true));
    ::close(terminal);
    ::waitpid(child, nullptr, 0);
    return screen;
}

TEST_F(ToolTest, AsksOnTheTerminalAndRecordsTheServer) {
    ScriptedServer scripted;
    port = std::to_string(scripted.port());
    const std::string hostKey = scripted.hostKey();
    const std::string knownHosts = home.directory.write("\u009b/.ssh/known_hosts", "");
    const std::string password = "Password for password@127.0.0.1: ";
    const std::string choice = "  1) Add and Connect\r\n  2) Cancel\r\nYour choice [1]: ";
    EXPECT_EQ(onTerminal(
                  "HOME=" + home.directory.path("\u009b") + " " SSHSESSION_TOOL " -p " + port +
                      " --password-from prompt password@127.0.0.1 'out x; eof; close' | sed s/^/:/",
                  {{password, "secret\n"}, {choice, "7\n"}, {choice, "1\n"}}),
              password + "\r\n\r\nThe authenticity of host '127.0.0.1:" + port +
                  "' can't be established.\r\nThe server does not match not in " +
                  home.directory.path("?/.ssh/known_hosts") +
                  ". Do you want to add it to the list and connect?\r\n\r\nHost key: " +
                  hostKey.substr(hostKey.find(' ') + 1) + "\r\n" + choice +
                  "7\r\nPlease type a number from 1 to 2.\r\n" + choice + "1\r\n:x");
    EXPECT_EQ(contentOf(knownHosts), "127.0.0.1 " + hostKey + "\n");
    EXPECT_THAT(scripted.received(), testing::Contains("password b'secret'"));
}

TEST_F(ToolTest, OnlyALineIsAnAnswerAtATerminal) {
    using Answers = std::vector<std::pair<std::string, std::string>>;
    // What the program says, or runs ("in"), for each line typed at the question, and without one.
    // Return typed ahead is none. The program survives the loss of its terminal.
    const auto asks = [this](const std::string &knownHosts, const std::string &command,
                             const std::string &prompt, const std::string &unanswered,
                             Answers answers) {
        for (const std::string &none : {"\4"s, "1\4\4"s, hangUp})
            answers.emplace_back(none, unanswered);
        for (const auto &[typed, told] : answers) {
            SCOPED_TRACE(command + " | " + testing::PrintToString(typed));
            home.directory.write(".ssh/known_hosts", knownHosts);
            const std::string out = home.directory.path("out");
            onTerminal("trap '' HUP; exec " + command + " >" + out + " 2>&1",
                       {{"", "\n"}, {prompt, typed}});
            EXPECT_THAT(contentOf(out), testing::HasSubstr(told));
            EXPECT_EQ(contentOf(home.knownHosts()) != knownHosts,
                      prompt.starts_with("Your choice") && told == "in");
        }
    };
    const std::string locked = home.directory.path(".ssh/id_rsa");
    makeKey(locked, "rsa", "sesame");
    server.authorize(locked);
    const std::string known = "127.0.0.1 " + server.hostKey() + "\n";
    const std::string changed = "127.0.0.1 " + publicKey(locked) + "\n";
    const std::string run = SSHSESSION_TOOL " -p " + port + " 127.0.0.1 'echo in'";
    const std::string runWithKey =
        SSHSESSION_TOOL " -i " + key + " -p " + port + " 127.0.0.1 'echo in'";
    const std::string refused = "The server's host key was not accepted.";
    asks("", runWithKey, "Your choice [1]: ", refused, {{"\n", "in"}});
    asks(changed, runWithKey, "Your choice [2]: ", refused, {{"1\n", "in"}, {"\n", refused}});
    const std::string noPhrase = "No password was given. Failing.";
    asks(known, run, "> ", noPhrase, {{"sesame\n", "in"}, {"\n", noPhrase}});
    const std::string longest(4094, 'a');
    asks(known, ASK_FOR_RESPONSE, "> ", "none",
         {{"4\0042\n", "\"42\""}, // sent in two parts
          {"\n", "none"},
          {longest + "\n", '"' + longest + '"'},
          {longest + "a\n", "none"}});
    ScriptedServer scripted;
    port = std::to_string(scripted.port());
    asks("127.0.0.1 " + scripted.hostKey() + "\n",
         SSHSESSION_TOOL " --password-from prompt -p " + port +
             " password@127.0.0.1 'out in; eof; close'",
         "127.0.0.1: ", "Nobody gave a password at the terminal.",
         {{"sesame\n", "in"},
          {"\n", "SSH could not authenticate using the ssh user password. (-18)"},
          {"a\0b\n"s, "The password in \"prompt\" holds a zero byte."}});
    EXPECT_THAT(scripted.received(), testing::Contains("password b''"));
}

TEST_F(ToolTest, SignalsFindTheTerminalAsItWas) {
    const std::string prompt = "Password for a@127.0.0.1: ";
    const std::string command = "trap : INT; " SSHSESSION_TOOL
                                " --password-from prompt a@127.0.0.1 true; echo $?; stty -a | "
                                "grep -wo -e '-*echo'";
    // Nobody could continue the program, so that it goes on at once after a stop, and asks again.
    EXPECT_EQ(onTerminal(command, {{prompt, "s\x1a"}, {prompt + "\r\n" + prompt, "s\3"}}),
              prompt + "\r\n" + prompt + "\r\n130\r\necho\r\n");
}

} // namespace
