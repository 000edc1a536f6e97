// The command-line program as its users run it: the real binary against a real server.
#include "Tests/Support/ScriptedServer.h"

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <iostream>
#include <regex>
#include <thread>

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
        // What is wrong and what to do is for other tests.
        const std::regex varying(
            R"([0-9]+\.[0-9]+( ms|[,}])|_stderr|("findings":\[).+?(?=\],"tim))"
            R"(|What is wrong: .*\nWhat to do: .*\n|SHA256:[^"]{43}|OpenSSH_.*|agreed on: .*)");
        EXPECT_EQ(std::tuple(real.status, std::regex_replace(real.output, varying, "$1$2"),
                             std::regex_replace(real.errorOutput, varying, "$1$2")),
                  std::tuple(status, out, err))
            << testing::PrintToString(words);
    }

    TemporaryHome home;
    std::string key = home.directory.path("client");
    Sshd server;
    std::string port = std::to_string(server.port());
};

TEST_F(ToolTest, HandsThroughOutputAndStatus) {
    for (const Lines &input : {Lines{}, Lines{"--stdin", "-"}, Lines{"--stdin", "/dev/stdin"}}) {
        Lines words = input;
        words.insert(words.end(), {"127.0.0.1", R"(cat; printf '\376' >&2; exit 3)"});
        check(words, 3, "\0\r\n\xff x"s, "\xfe", "\0\r\n\xff x"s);
    }
    check({"-n", "127.0.0.1", "cat"}, 0, "", "", "not read");
    check({"127.0.0.1", "cat"}, 0, "", "", "", R"("$0" "$@" <&-)");
    // Each line is shown before the next one is made, and input that never ends holds up nothing.
    const std::string more = home.directory.path("more");
    check({"127.0.0.1", "echo one; while ! test -e " + more + "; do sleep 0.01; done; echo two"}, 0,
          "one\ntwo\n", "", "",
          R"(mkfifo $HOME/in; sleep 9 >$HOME/in & "$0" "$@" <$HOME/in |)"
          "{ read line; echo $line; touch " +
              more + "; cat; kill $!; }");
    const std::string address = "[127.0.0.1]:" + std::exchange(port, "1");
    check({"--", address, "--", "echo", "b c", "-v", "--", "$((1+1))"}, 0, "b c -v -- 2\n");
    port = std::to_string(server.port());
    std::string other = home.directory.path("other");
    require({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", other});
    std::swap(key, other);
    check({"-i", other, "-l", currentUser(), "-4", "127.0.0.1", "echo", "-h"}, 0, "-h\n");
    std::swap(key, other);
    check({"127.0.0.1", "echo out; kill -TRAP $$"}, 255, "out\n",
          "sshsession: The command was ended by the signal \"SIG@openssh.com\", which has no "
          "number on this system.\n");
    const std::string facts =
        R"("stage":"execute","cause":null,"attempts":[{"method":"publickey","key":")" + key +
        R"(","keyType":"ssh-ed25519","keyFingerprint":"","isFromAgent":false,"result":"accepted",)"
        R"("wanted":[]}],"disconnect":null,"banner":"","findings":[],)";
    check(
        {"--json", "127.0.0.1", R"(printf 'a\377bc'; printf '\303\274\177\302\233' >&2; kill $$)"},
        143,
        "{\"stdout\":\"a\\ufffdbc\",\"stdoutBase64\":\"Yf9iYw==\","
        "\"stderr\":\"\\u00fc\\u007f\\u009b\","
        "\"exitStatus\":0,\"exitSignal\":\"TERM\"," +
            facts +
            "\"timings\":{\"connect\":,\"handshake\":,\"hostKey\":,\"authenticate\":,"
            "\"execute\":}}\n");
    check({"--classic", "--json", "127.0.0.1", "true"}, 0,
          "{\"stdout\":\"\",\"stderr\":\"\",\"exitStatus\":0,\"exitSignal\":null," + facts +
              "\"timings\":{\"connect\":,\"handshake\":,\"hostKey\":,\"agent\":,\"authenticate\":,"
              "\"execute\":}}\n");
}

TEST_F(ToolTest, RefusesInOneLineWhatItCannotUse) {
    const std::string help = " See \"sshsession --help\".";
    const std::string form = " is not of the form [USER@]HOST or [USER@][HOST]:PORT." + help;
    for (const auto &[words, line] : std::vector<std::pair<Lines, std::string>>{
             {{}, "There is no host to connect to." + help},
             {{"--", "host"}, "There is no command to run on host." + help},
             {{"--bogus", "host", "ls"}, "There is no option \"--bogus\"." + help},
             {{"@host", "true"}, "\"@host\"" + form},
             {{"a@[::1", "true"}, "\"a@[::1\"" + form},
             {{"[::1]:65536", "true"}, "\"[::1]:65536\"" + form},
             {{"[]:22", "true"}, "\"[]:22\"" + form},
             {{"ada@host:2222", "true"},
              "\"ada@host:2222\" is written \"-p 2222 ada@host\", or \"ada@[host]:2222\"." + help},
             {{"-l", "ada", "bob@host", "true"},
              "Both -l and the destination name a user: ada and bob." + help},
             {{"-4", "-6", "host", "true"}, "-4 and -6 exclude each other." + help},
             {{"--classic", "-6", "host", "true"},
              "--classic takes one key file, and IPv4 addresses alone." + help},
             {{"--timeout", "0", "host", "ls"},
              "--timeout: Value 0 not in range 1 to 1000000." + help},
             {{"-n", "--stdin", "-", "host", "ls"}, "-n and --stdin exclude each other." + help},
             {{"--stdin", "-", "--admin-password-from", "-", "host", "ls"},
              "Only one option can read standard input (\"-\")." + help},
             {{"--stdin", "\x9b", "host", "ls"},
              "Could not read \"?\": No such file or directory."},
             {{"--stdin", "/", "host", "ls"}, "Could not read \"/\": Is a directory."}})
        check(words, 255, "", "sshsession: " + line + "\n");
}

TEST_F(ToolTest, MeetsClosedFullAndBrokenStreams) {
    const Lines big = {"127.0.0.1", "head -c 200000 /dev/zero"}; // more than a pipe holds
    const std::string failed = "sshsession: Could not write to standard output: ";
    check({"127.0.0.1", "yes"}, 0, "y\n", "141\n", "",
          R"({ "$0" "$@"; echo $? >&2; } | head -n 1)");
    check(big, 255, "", failed + "Bad file descriptor.\n", "", R"("$0" "$@" >&-)");
    check(big, 255, "", failed + "No space left on device.\n", "", R"("$0" "$@" >/dev/full)");
    check(big, 0, "", "141\n", "", R"({ "$0" "$@"; echo $? >&2; } | :)"); // as usual, in silence
    // A connection must not take the place of a stream.
    check({"-v", "127.0.0.1", "echo out"}, 0, "out\n", "", "", R"("$0" "$@" 2>&-)");
}

TEST_F(ToolTest, ReadsAPasswordAndTellsWhatTheServerDoes) {
    ScriptedServer scripted;
    port = std::to_string(scripted.port());
    home.directory.write(".ssh/known_hosts", "127.0.0.1 " + scripted.hostKey() + "\n");
    const auto runs = [&](const std::string &script, const std::string &typed, int status,
                          const std::string &out, const std::string &err) {
        check({"--password-from", "/dev/stdin", "password@127.0.0.1", script}, status, out, err,
              typed);
    };
    runs("out x; signal HUP@example.com; eof; close", "a\r", 129, "x", "");
    runs("out x; status 256; eof; close", "b\n\n", 255, "x",
         "sshsession: The command's exit status is 256, which is more than can be handed "
         "through.\n");
    runs("disconnect 2 'by\\x1be\\xc2\\x9b\\n' en", "c\r\n", 255, "",
         "sshsession: The server ended the connection: by?e??\nAn error occurred in "
         "libssh2_channel_read. (-13)\nThe socket was disconnected. transport read\n");
    runs("out x; status 0; eof; wait 0.1; disconnect 11", "d", 255, "x",
         "sshsession: The server ended the connection.\nThe connection ended before the command "
         "did.\nWhat the command wrote may be cut, its exit status is not known, and it may still "
         "be running.\n");
#ifdef SSHSESSION_WRAPS_LIBSSH2 // others lose what comes with an answer
    check(
        {"--password-from", "/dev/stdin", "password banner 'Wel\\x1bcome'@127.0.0.1", "eof; close"},
        0, "", "Wel?come\n", "e");
#endif
    EXPECT_THAT(scripted.received(),
                testing::IsSupersetOf({"password b'a\\r'", "password b'b\\n'", "password b'c'"}));
}

TEST_F(ToolTest, RefusesAnUnknownServerWithoutATerminal) {
    home.directory.write(".ssh/known_hosts", "");
    check({"-v", "--json", "127.0.0.1", "true"}, 255,
          R"({"error":{"domain":"libssh2ErrorDomain","code":0,"description":)"
          R"("The server's host key was not accepted.","reason":"Nobody has answered the )"
          R"(question."},"stage":"hostKey","cause":"hostKeyUnknownUnasked","attempts":[],)"
          R"("disconnect":null,"banner":"","findings":[],)"
          "\"timings\":{\"connect\":,\"handshake\":,\"hostKey\":}}\n",
          "sshsession: connect: begins\nsshsession: connect: done after  ms\n"
          "sshsession: handshake: begins\nsshsession: handshake: done after  ms\n"
          "sshsession: server: SSH-2.0-\nsshsession: \n"
          "sshsession: hostKey: begins\nsshsession: hostKey: failed after  ms\n"
          "sshsession: host key: ecdsa-sha2-nistp256 , unknown\n",
          "", R"(setsid -w "$0" "$@")");
}

TEST_F(ToolTest, ASignalCancels) {
    // By which it ends in the end; the command itself lives on.
    const std::string running = home.directory.path("running");
    check({"127.0.0.1", "echo $$ > " + running + "; exec sleep 60"}, 143, "",
          "Dravella could not execute the SSH command.\nThe command was cancelled. It may still be "
          "running on the server.\n",
          "", "r=" + running + R"(; exec 3>&2 2>/dev/null # for the shell's own words
                 "$0" "$@" 2>&3 & until [ -s $r ]; do sleep 0.01; done
                 kill $!; wait $!; status=$?; kill $(cat $r); exit $status)");
}

using Answers = std::vector<std::pair<std::string, std::string>>;

// Runs a shell's command on a terminal of its own and types each answer once the screen ends with
// its prompt; an empty answer closes the terminal. Answers the whole screen.
std::string onTerminal(const std::string &command, Answers answers) {
    std::array<int, 2> gate{}; // opens once it is typed what comes before any prompt
    EXPECT_EQ(::pipe(gate.data()), 0);
    int terminal = -1;
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        ::alarm(60);
        ::close(gate[1]);
        char none = 0;
        while (::read(gate[0], &none, 1) < 0 && errno == EINTR)
            ;
        ::close(gate[0]);
        ::_exit(::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr));
    }
    ::close(gate[0]);
    if (!answers.empty() && answers.front().first.empty()) {
        EXPECT_EQ(::write(terminal, answers.front().second.data(), answers.front().second.size()),
                  answers.front().second.size());
        answers.erase(answers.begin());
    }
    ::close(gate[1]);
    std::string screen;
    char byte = 0;
    do {
        if (answers.empty() || !screen.ends_with(answers.front().first))
            continue;
        const std::string typed = answers.front().second;
        if (typed.empty())
            break;
        EXPECT_EQ(::write(terminal, typed.data(), typed.size()), typed.size());
        answers.erase(answers.begin());
    } while (::read(terminal, &byte, 1) == 1 && (screen += byte, true));
    ::close(terminal);
    ::waitpid(child, nullptr, 0);
    return screen;
}

TEST_F(ToolTest, ATerminalDoesNotObeyTheServer) {
    for (const auto &[words, screen] :
         {std::pair("", "a?[1m\tb\r\nc?\u00e4??"),
          std::pair("--raw ", "a\x1b[1m\tb\r\r\nc\r\u00e4\u009b\u202e")})
        EXPECT_EQ(
            onTerminal(SSHSESSION_TOOL " -p " + port + " -i " + key + ' ' + words +
                           R"(127.0.0.1 "printf 'a\033[1m\tb\r'; sleep 0.1; printf '\nc\r\303';)"
                           R"( sleep 0.1; printf '\244\302\233\342\200\256'")",
                       {}),
            screen);
}

TEST_F(ToolTest, OnlyALineIsAnAnswerAtATerminal) {
    const std::string knownHosts = home.directory.path("\u009b/.ssh/known_hosts");
    const std::string choice = "  1) Add and Connect\r\n  2) Cancel\r\nYour choice [1]: ";
    // What the program says, or runs ("in"), for each line typed at the question, and without one.
    // Return typed ahead is none. The program survives the loss of its terminal.
    const auto asks = [&](const std::string &known, const std::string &words,
                          const std::string &prompt, const std::string &unanswered,
                          Answers answers) {
        for (const auto *const none : {"\4", "1\4\4", ""})
            answers.emplace_back(none, unanswered);
        for (const auto &[typed, told] : answers) {
            SCOPED_TRACE(words + " | " + testing::PrintToString(typed));
            home.directory.write("\u009b/.ssh/known_hosts", known);
            const std::string screen =
                onTerminal("trap '' HUP; HOME=$HOME/\u009b exec " SSHSESSION_TOOL " -p " + port +
                               ' ' + words + " >$HOME/out 2>&1",
                           {{"", "\n"},
                            {prompt, typed},
                            {"7\r\nPlease type a number from 1 to 2.\r\n" + choice, "1\n"}});
            EXPECT_THAT(contentOf(home.directory.path("out")), testing::HasSubstr(told));
            EXPECT_THAT(screen, testing::Not(testing::HasSubstr("sesame")));
            EXPECT_EQ(contentOf(knownHosts) != known, prompt.ends_with("]: ") && told == "in");
        }
    };
    const std::string locked = home.directory.path("\u009b/.ssh/id_rsa");
    home.directory.write("\u009b/.ssh/known_hosts", "");
    makeKey(locked, "rsa", "sesame");
    server.authorize(locked);
    const std::string hostKey = server.hostKey();
    const std::string printed = require({"ssh-keygen", "-l", "-f", "-"}, hostKey); // "256 SHA..."
    const std::string run = "-i " + key + " 127.0.0.1 'echo in'";
    const std::string refused = "The server's host key was not accepted.";
    asks("", run,
         home.directory.path("?/.ssh/known_hosts") +
             ". Do you want to add it to the list and connect?\r\n\r\nHost key: " +
             hostKey.substr(hostKey.find(' ') + 1) +
             "\r\nKey type: ECDSA\r\nFingerprint: " + printed.substr(4, 50) + "\r\n" + choice,
         refused, {{"\n", "in"}, {"7\n", "in"}});
    asks("[127.0.0.1]:" + port + ' ' + publicKey(locked) + "\n", run, "Your choice [2]: ", refused,
         {{"1\n", "in"}, {"\n", refused}});
    const std::string noPhrase = "No password was given. Failing.";
    asks("127.0.0.1 " + hostKey + "\n", "127.0.0.1 'echo in'",
         "\"id_rsa\".\r\nThis SSH key is password-protected.\r\n> ", noPhrase,
         {{"sesame\n", "in"}, {"\n", noPhrase}});
    ScriptedServer scripted;
    port = std::to_string(scripted.port());
    const std::string nobody = "Nobody gave a password at the terminal.";
    const std::string longest(4094, 'a');
    asks("127.0.0.1 " + scripted.hostKey() + "\n",
         "--password-from prompt password@127.0.0.1 'out in; eof; close'",
         "Password for password@127.0.0.1: ", nobody,
         {{"ses\4ame\n", "in"}, // sent in two parts
          {"\n", "SSH could not authenticate using the ssh user password. (-18)"},
          {"a\0b\n"s, "The password in \"prompt\" holds a zero byte."},
          {longest + "\n", "in"},
          {longest + "a\n", nobody}});
    EXPECT_THAT(scripted.received(),
                testing::IsSupersetOf({"password b'sesame'"s, "password b'" + longest + "'"}));
}

TEST_F(ToolTest, LeavesNoCoreWhileItHoldsAPassword) {
    // What the shell says of a command that is aborted when there is a file "ready".
    const TemporaryDirectory directory;
    const auto abort = [&](const std::string &command) {
        return runProcess({"sh", "-c",
                           "cd " + directory.path() + R"(; ulimit -c unlimited
            (until [ -e ready ] && [ -s id ]; do sleep 0.01; done; kill -ABRT $(cat id)) &
            LC_ALL=C sh -c 'echo $$ >id; exec "$@"' sh )" +
                               command + "; exit"})
            .errorOutput;
    };
    directory.write("ready", "");
    if (abort("sleep 60") != "Aborted (core dumped)\n")
        GTEST_SKIP() << "*** core dumps are not tested: this system makes none here ***";
    std::filesystem::remove(directory.path("ready"));
    ScriptedServer scripted;
    home.directory.write(".ssh/known_hosts", "127.0.0.1 " + scripted.hostKey() + "\n");
    const std::jthread whenReady([&] {
        EXPECT_EQ(scripted.received(1), Lines{"password b'sesame'"});
        directory.write("ready", "");
    });
    EXPECT_EQ(abort(SSHSESSION_TOOL " -p " + std::to_string(scripted.port()) + " --password-from " +
                    directory.write("password", "sesame") + " 'password silent@127.0.0.1' true"),
              "Aborted\n");
}

TEST_F(ToolTest, SignalsFindTheTerminalAsItWas) {
#ifdef SSHSESSION_HOLDS_SIGNALS_BACK
    GTEST_SKIP() << "*** signals at a terminal are not tested: the thread sanitizer loses some ***";
#endif
    const std::string prompt = "Password for a@127.0.0.1: ";
    const std::string command = "trap : INT; " SSHSESSION_TOOL
                                " --password-from prompt a@127.0.0.1 true; echo $?; stty -a | "
                                "grep -wo -e '-*echo'";
    // Nobody could continue the program, so that it goes on at once after a stop, and asks again.
    EXPECT_EQ(onTerminal(command, {{prompt, "s\x1a"}, {prompt + "\r\n" + prompt, "s\3"}}),
              prompt + "\r\n" + prompt + "\r\n130\r\necho\r\n");
    home.directory.write(".ssh/known_hosts", "");
    EXPECT_THAT(
        onTerminal("trap : INT; " SSHSESSION_TOOL " -p " + port + " 127.0.0.1 true; echo $?",
                   {{"Your choice [1]: ", "\3"}}),
        testing::ContainsRegex("an SSH connection to .+\\.\r\nThe session was cancelled "
                               "while it was connecting\\.\r\n130\r\n$"));
}

} // namespace
