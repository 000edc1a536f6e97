#include "Tests/Support/ScriptedServer.h"

#include <csignal>

TEST(ProcessDeathTest, NothingOutlivesATestThatIsKilled) {
    const TemporaryDirectory directory;
    // Names the processes with the directory in their command line; in its own it stands otherwise.
    const std::string name = "[/]" + directory.path().substr(1);
    const Lines search = {"sh", "-c", "grep -ls '" + name + "' /proc/[0-9]*/cmdline"};
    const auto serveUntilKilled = [&] {
        ::setenv("TMPDIR", directory.path().c_str(), 1);
        const ScriptedServer scripted; // each with a shell beside it
        const Sshd sshd;
        const SshAgent agent;
        std::raise(std::ranges::count(runProcess(search).output, '\n') == 6 ? SIGKILL : SIGTERM);
    };
    EXPECT_EXIT(serveUntilKilled(), testing::KilledBySignal(SIGKILL), "");
    EXPECT_TRUE(eventually([&] { return runProcess(search).output.empty(); }));
}
