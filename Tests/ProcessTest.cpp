// That a test which crashes leaves nothing running.
#include "Tests/Support/ScriptedServer.h"

#include <fmt/format.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>

namespace {

// Processes with `text` in their command line.
std::ptrdiff_t countOf(const std::string &text) {
    const std::filesystem::directory_iterator processes("/proc");
    return std::count_if(begin(processes), end(processes), [&](const auto &entry) {
        std::ifstream file(entry.path() / "cmdline");
        std::string line;
        std::getline(file, line, '\n'); // nothing of a process that is gone by now
        return line.find(text) != std::string::npos;
    });
}

// With each kind of server, all below `directory`, and a command that the server's own child runs
// in a session of its own and that does not care for the end of its connection.
[[noreturn]] void serveUntilKilled(const std::string &directory) {
    ::setenv("TMPDIR", directory.c_str(), 1);
    const TemporaryHome home;
    const std::string key = home.directory.path("client");
    makeKey(key, "ed25519");
    const SshAgent agent({key});
    const ScriptedServer scripted;
    const Sshd sshd;
    sshd.authorize(key);
    const std::string known = home.directory.write(
        "known", fmt::format("[127.0.0.1]:{} {}\n", sshd.port(), sshd.hostKey()));
    const std::string sign = directory + "/runs";
    const Process client({"ssh", "-o", "UserKnownHostsFile=" + known, "-p",
                          std::to_string(sshd.port()), currentUser() + "@127.0.0.1",
                          "trap '' HUP PIPE; touch " + sign + "; sleep 1000; exit"},
                         directory + "/log");
    // These four, their supervisors, and the command's shell.
    const bool all = eventually(
        [&] { return std::filesystem::exists(sign) && countOf(directory) >= 2 * 4 + 1; });
    std::cerr << contentOf(directory + "/log");
    std::raise(all ? SIGKILL : SIGTERM);
    std::abort();
}

} // namespace

TEST(ProcessDeathTest, NothingOutlivesATestThatIsKilled) {
    if (!std::filesystem::exists("/proc/self/cmdline"))
        GTEST_SKIP() << "This system does not tell which processes run.";
    const TemporaryDirectory directory;
    EXPECT_EXIT(serveUntilKilled(directory.path()), testing::KilledBySignal(SIGKILL), "");
    EXPECT_TRUE(eventually([&] { return countOf(directory.path()) == 0; }));
}
