// The command-line program as its users run it: the real binary against a real server.
#include "Tests/Support/ScriptedServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <iostream>
#include <regex>
#include <utility>

using namespace std::string_literals;
using testing::Contains;
using testing::MatchesRegex;
using Words = std::vector<std::string>;

namespace {

// All that a run of the program gives, for comparison in one step.
std::string whole(int status, const std::string &output, const std::string &errorOutput) {
    return std::to_string(status) + "\nout:" + output + "\nerr:" + errorOutput;
}

class ToolTest : public testing::Test {
  protected:
    ToolTest() {
        makeKey(key, "ed25519");
        server.authorize(key);
        home.directory.write(".ssh/known_hosts", "127.0.0.1 " + server.hostKey() + "\n");
    }
    void TearDown() override {
        if (HasFailure())
            std::cerr << "--- sshd's log:\n" << server.log();
    }

    // The program under `wrapper`; a wrapping shell has it as "$0" and "$@".
    std::string run(const Words &words, const std::string &input = "", Words wrapper = {}) const {
        for (const auto &word : {SSHSESSION_TOOL ""s, "-p"s, port, "-i"s, key})
            wrapper.push_back(word);
        wrapper.insert(wrapper.end(), words.begin(), words.end());
        const Outcome outcome = runProcess(wrapper, input);
        return whole(outcome.status, outcome.output, outcome.errorOutput);
    }

    TemporaryHome home;
    std::string key = home.directory.path("client");
    Sshd server;
    std::string port = std::to_string(server.port());
};

TEST_F(ToolTest, HandsThroughOutputAndStatus) {
    const std::string bytes = "\0\r\n\xff text"s;
    const std::string file = home.directory.write("input", bytes);
    const std::string signal = "sshsession: The command was ended by the signal "
                               "\"SIG@openssh.com\", which has no number on this system.\n";
    const std::vector<std::pair<Words, std::string>> cases = {
        {{"127.0.0.1", R"(printf 'a\0\377\r\n'; printf '\1\376' >&2; exit 3)"},
         whole(3, "a\0\xff\r\n"s, "\1\xfe")},
        {{"--", "127.0.0.1", "--", "echo", "a", "b c", "-v", "--json", "--", "$((1+1))"},
         whole(0, "a b c -v --json -- 2\n", "")},
        {{currentUser() + "@127.0.0.1", "kill -KILL $$"}, whole(137, "", "")},
        {{"127.0.0.1", "echo out; kill -TRAP $$"}, whole(255, "out\n", signal)},
        {{"--stdin", "-", "127.0.0.1", "cat"}, whole(0, bytes, "")},
        {{"--stdin", file, "127.0.0.1", "cat"}, whole(0, bytes, "")},
    };
    for (const auto &[words, expected] : cases)
        EXPECT_EQ(run(words, bytes), expected);
}

TEST_F(ToolTest, ReportsAsJson) {
    // Without what differs from one run to the next.
    const auto json = [&](const Words &words) {
        return std::regex_replace(
            run(words), std::regex(R"(:[0-9]+\.[0-9]+|-[0-9]+|handshake\. [^"\n]*)"), "X");
    };
    EXPECT_EQ(json({"--json", "127.0.0.1", R"(printf 'a\377bc'; printf '\303\274' >&2; kill $$)"}),
              whole(143,
                    "{\"stdout\":\"a\uFFFDbc\",\"stdoutBase64\":\"Yf9iYw==\",\"stderr\":\"\u00fc\","
                    "\"exitStatus\":0,\"exitSignal\":\"TERM\",\"timings\":{\"connect\"X,"
                    "\"handshake\"X,\"hostKey\"X,\"agent\"X,\"authenticate\"X,\"execute\"X}}\n",
                    ""));
    port = std::to_string(freePort());
    const std::string why = "Dravella could not make an SSH connection to ada@127.0.0.1.";
    EXPECT_EQ(json({"ada@127.0.0.1", "true"}),
              whole(255, "", why + "\nCould not complete the X\n"));
    EXPECT_EQ(json({"--json", "ada@127.0.0.1", "true"}),
              whole(255,
                    R"({"error":{"domain":"libssh2ErrorDomain","code":X,"description":")" + why +
                        R"(","reason":"Could not complete the X"},"timings":{"connect"X,)"
                        R"("handshake"X}})"
                        "\n",
                    ""));
}

TEST_F(ToolTest, RefusesInOneLineWhatItCannotUse) {
    const std::string help = " See \"sshsession --help\".";
    const std::string zero = home.directory.write("zero", "a\0b"s);
    const std::vector<std::pair<Words, std::string>> cases = {
        {{}, "There is no host to connect to." + help},
        {{"--", "host"}, "There is no command to run on host." + help},
        {{"--bogus", "host", "true"}, "There is no option \"--bogus\"." + help},
        {{"@host", "true"}, "\"@host\" is not of the form [USER@]HOST." + help},
        {{"-p", "1", "host", "true"}, "-p: At Most 1 required but received 2." + help},
        {{"--stdin", "-", "--admin-password-from", "-", "host", "true"},
         "Only one option can read standard input (\"-\")." + help},
        {{"--password-from", "/nowhere", "host", "true"},
         "Could not read \"/nowhere\": No such file or directory."},
        {{"--stdin", "/", "host", "true"}, "Could not read \"/\": Is a directory."},
        {{"--password-from", zero, "host", "true"},
         "The password in \"" + zero + "\" holds a zero byte."},
    };
    for (const auto &[words, line] : cases)
        EXPECT_EQ(run(words), whole(255, "", "sshsession: " + line + "\n"));
}

TEST_F(ToolTest, MeetsClosedFullAndBrokenStreams) {
    const std::string noWrite = "sshsession: Could not write to standard output: ";
    for (const auto &[script, expected] : std::vector<std::pair<const char *, std::string>>{
             {R"("$0" "$@" >&-)", whole(255, "", noWrite + "Bad file descriptor.\n")},
             {R"("$0" "$@" >/dev/full)", whole(255, "", noWrite + "No space left on device.\n")},
             {R"({ "$0" "$@"; echo $? >&2; } | :)", whole(0, "", noWrite + "Broken pipe.\n255\n")}})
        EXPECT_EQ(run({"127.0.0.1", "head -c 200000 /dev/zero"}, "", {"sh", "-c", script}),
                  expected); // more than a pipe holds
    // A connection must not take the place of a stream.
    EXPECT_EQ(run({"-v", "127.0.0.1", "echo out"}, "", {"sh", "-c", R"("$0" "$@" 2>&-)"}),
              whole(0, "out\n", ""));
}

TEST_F(ToolTest, ReadsAPasswordAndTellsWhatTheServerDoes) {
    ScriptedServer scripted;
    port = std::to_string(scripted.port());
    home.directory.write(".ssh/known_hosts", "127.0.0.1 " + scripted.hostKey() + "\n");
    const std::string file = home.directory.path("password");
    const std::vector<std::array<std::string, 4>> cases = {
        {"plain", "plain", "out x; signal HUP@example.com; eof; close", whole(129, "x", "")},
        {"two\n\n", "two\\n", "out x; status 256; eof; close",
         whole(255, "x",
               "sshsession: The command's exit status is 256, which is more than can be "
               "handed through.\n")},
        {"dos\r\n", "dos", "out x; disconnect 2 'by\\x1be\\xc2\\x9b\\n' en",
         whole(255, "",
               "sshsession: The server ended the connection: by?e??\n"
               "An error occurred in libssh2_channel_read. (-13)\n"
               "The socket was disconnected. transport read\n")},
        {"mac\r", "mac\\r", "err y; eof; close", whole(0, "", "y")},
    };
    for (const auto &[content, password, script, expected] : cases) {
        home.directory.write("password", content);
        // Whichever stream is read when the disconnect arrives gives the error its name.
        EXPECT_EQ(std::regex_replace(run({"--password-from", file, "password@127.0.0.1", script}),
                                     std::regex("read_stderr"), "read"),
                  expected);
        EXPECT_THAT(scripted.received(), Contains("password b'" + password + "'"));
    }
}

TEST_F(ToolTest, RefusesAnUnknownServerWithoutATerminal) {
    std::filesystem::remove(home.knownHosts());
    const std::string transcript = run({"-v", "127.0.0.1", "echo out"}, "", {"setsid", "-w"});
    EXPECT_EQ(std::regex_replace(transcript, std::regex("[0-9.]+ ms|An error .*"), "X"),
              whole(255, "",
                    "sshsession: connect: begins\nsshsession: connect: done after X\n"
                    "sshsession: handshake: begins\nsshsession: handshake: done after X\n"
                    "sshsession: hostKey: begins\n"
                    "sshsession: Could not check for known_hosts because "
                    "libssh2_knownhost_readfile failed. X\n"
                    "sshsession: hostKey: failed after X\n"
                    "The server's host key was not accepted.\n"
                    "The question was answered with no, or there is no terminal to ask on.\n"));
}

// Runs a shell's command on a terminal of its own and types each answer once the screen ends with
// its prompt. Answers the whole screen.
std::string onTerminal(const std::string &command,
                       const std::vector<std::pair<std::string, std::string>> &answers) {
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0)
        ::_exit(::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr));
    std::string screen;
    const auto readsMore = [&] { // not so once the program has ended, or says nothing for too long
        pollfd readable = {terminal, POLLIN, 0};
        char byte = 0;
        const bool isRead = ::poll(&readable, 1, 10'000) == 1 && ::read(terminal, &byte, 1) == 1;
        screen.append(isRead ? 1 : 0, byte);
        return isRead;
    };
    for (const auto &[prompt, answer] : answers) {
        while (readsMore() && !screen.ends_with(prompt)) {
        }
        EXPECT_EQ(::write(terminal, answer.data(), answer.size()), std::ssize(answer));
    }
    while (readsMore()) {
    }
    ::close(terminal);
    ::waitpid(child, nullptr, 0);
    return screen;
}

TEST_F(ToolTest, AsksOnTheTerminalAndRecordsTheServer) {
    std::filesystem::remove(home.knownHosts());
    const std::string output = home.directory.path("output");
    const std::string serverKey = server.hostKey();
    const std::string password = "Password for " + currentUser() + "@127.0.0.1: ";
    const std::string choice = "  1) Add and Connect\r\n  2) Cancel\r\nYour choice [1]: ";
    const std::string command = SSHSESSION_TOOL " -p " + port + " -i " + key +
                                " --password-from prompt 127.0.0.1 echo out >" + output;
    EXPECT_EQ(onTerminal(command, {{password, "secret\n"}, {choice, "7\n"}, {choice, "1\n"}}),
              password + "\r\n\r\nThe authenticity of host '127.0.0.1:" + port +
                  "' can't be established.\r\nThe server does not match not in " +
                  home.knownHosts() +
                  ". Do you want to add it to the list and connect?\r\n\r\nHost key: " +
                  serverKey.substr(serverKey.find(' ') + 1) + "\r\n" + choice +
                  "7\r\nPlease type a number from 1 to 2.\r\n" + choice + "1\r\n");
    EXPECT_EQ(contentOf(output), "out\n");
    EXPECT_EQ(contentOf(home.knownHosts()), "127.0.0.1 " + serverKey + "\n");
}

} // namespace
