#include "Identity/KnownHostsFile.h"
#include "Platform/AtomicFile.h"
#include "Tests/Support/SessionTest.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <csignal>
#include <future>
#include <iostream>

namespace fs = std::filesystem;
using SSHPlatform::AlertAnswer;

namespace {

constexpr const char *notWritten = "Updating the known hosts file failed. | An error -16 occurred. "
                                   "The connection will still continue.";

class HostKeyTest : public SessionTest {
  protected:
    // Connects and runs the host key stage alone.
    bool validate(const Sshd &sshd) {
        const auto session = makeSession(sshd.port());
        user->shown.clear();
        const bool valid = session->_validatedHostFingerprint(*session->handshaken(), &error);
        EXPECT_EQ(error, nullptr);
        session->stop();
        return valid;
    }

    // The user accepts: everything that is shown then.
    Lines accept(const Sshd &sshd) {
        user->answers.assign(3, AlertAnswer::FirstButton);
        EXPECT_TRUE(validate(sshd));
        return user->shown;
    }
    static std::string lineOf(const Sshd &sshd) { return "127.0.0.1 " + sshd.hostKey() + "\n"; }
    std::string unknown(const Sshd &sshd) const { return question(sshd, false); }
    std::string changed(const Sshd &sshd) const { return question(sshd, true); }
};

} // namespace

TEST_F(HostKeyTest, WhatTheFileHoldsDecides) {
    const Sshd sshd;
    const Sshd other({"ecdsa", "ed25519"});
    const std::string bracketed = fmt::format("[127.0.0.1]:{} ", sshd.port());
    const std::string otherPort = fmt::format("[127.0.0.1]:{} ", sshd.port() - 1);
    for (const auto &[line, shown] : std::vector<std::pair<std::string, Lines>>{
             {"127.0.0.1 " + sshd.hostKey(), {}},
             {bracketed + sshd.hostKey(), {}},
             {otherPort + sshd.hostKey(), {unknown(sshd)}},
             {"127.0.0.1 " + other.hostKey(), {changed(sshd)}},
             {bracketed + other.hostKey(), {changed(sshd)}},
             {"127.0.0.1 " + other.hostKey("ed25519"), {changed(sshd)}}}) {
        SCOPED_TRACE(line);
        home.directory.write(".ssh/known_hosts", line);
        EXPECT_EQ(validate(sshd), shown.empty()); // the user refuses
        EXPECT_EQ(user->shown, shown);
        EXPECT_EQ(contentOf(home.knownHosts()), line);
    }
}

// Whatever becomes of the file, the connection goes on.
TEST_F(HostKeyTest, AnAcceptedKeyIsAddedUnderThePlainName) {
    const Sshd sshd;
    const Sshd newer({"ed25519"});
    const std::string mine = lineOf(sshd);
    const std::string elses = "127.0.0.1 " + newer.hostKey("ed25519") + "\n";
    const std::string notAdded = "Adding the host fingerprint to the known hosts lists failed. | "
                                 "The connection will still continue.\n\nError -34\n";
    const std::string notRead = "An error occurred in libssh2_knownhost_addc. (-16) Error -16. ";
    const auto expect = [&](const Sshd &server, const Lines &shown) {
        EXPECT_EQ(accept(server), shown);
        return contentOf(home.knownHosts());
    };
    EXPECT_EQ(expect(newer, {question(newer, false, "ed25519"),
                             notAdded + "Earlier read error: -16 / " + notRead +
                                 "No key type set\nkeyType: 0"}),
              "");
    EXPECT_EQ(std::exchange(log, {}),
              Lines{"Could not check for known_hosts because libssh2_knownhost_readfile failed. " +
                    notRead + "Failed to open file"});
    EXPECT_EQ(expect(sshd, {unknown(sshd)}), mine);
    home.directory.write(".ssh/known_hosts", "");
    EXPECT_EQ(expect(newer, {question(newer, false, "ed25519"), notAdded}), "");
    home.directory.write(".ssh/known_hosts", elses);
    EXPECT_EQ(expect(sshd, {changed(sshd)}), elses + mine);
    home.directory.write(".ssh/known_hosts", mine + "unparsable\n" + elses);
    EXPECT_EQ(expect(sshd, {unknown(sshd)}), mine + mine);
    EXPECT_THAT(log.back(), testing::HasSubstr("(-46)"));

    std::filesystem::remove_all(home.directory.path(".ssh"));
    EXPECT_EQ(expect(sshd, {unknown(sshd), notWritten}), "");
}

// Others accept, and `ssh` adds, while the question is up and while the file is written.
TEST_F(HostKeyTest, WhatOthersAddMeanwhileStays) {
    const Sshd sshd;
    const Sshd other;
    user->whileShown = [&, isNested = false]() mutable {
        if (std::exchange(isNested, true))
            return;
        know(other.hostKey(), "ssh");
        accept(other);
        EXPECT_EQ(accept(sshd), Lines{changed(sshd)});
    };
    EXPECT_EQ(accept(sshd), Lines{changed(sshd)}); // the last one shown
    const std::string all = "ssh " + other.hostKey() + "\n" + lineOf(other) + lineOf(sshd);
    EXPECT_EQ(contentOf(home.knownHosts()), all);

    const std::string inherited = require({"ls", "/dev/fd"});
    const auto change = [&](const std::string &content) {
        if (content == all)
            know("key", "late");
        EXPECT_EQ(require({"ls", "/dev/fd"}), inherited);
        return std::optional(content + "changed");
    };
    EXPECT_EQ(SSHPlatform::changeFile(home.knownHosts(), change), 0);
    EXPECT_EQ(contentOf(home.knownHosts()), all + "late key\nchanged");
}

TEST_F(HostKeyTest, NothingIsLostWhenManyAcceptAtOnce) {
    const std::string path = home.knownHosts();
    // The system's libssh2 forgets names of one or two letters.
    const auto record = [&](const std::string &name) {
        LIBSSH2_SESSION *const session = libssh2_session_init();
        for (SSHEngine::KnownHost host{"to", "the public key", LIBSSH2_KNOWNHOST_KEY_SSHRSA};
             host.name.size() < 22;) {
            host.name += name;
            EXPECT_EQ(SSHEngine::recordKnownHost(session, path, host), 0);
        }
        libssh2_session_free(session);
    };
    for (int i = 0; i < 1000; ++i)
        know("ssh-rsa dGhlIHB1YmxpYyBrZXk=", std::to_string(1000 + i));
    const pid_t process = ::fork();
    if (process == 0) {
        record("p");
        ::_exit(HasFailure() ? 1 : 0);
    }
    {
        const std::jthread reader([&](const std::stop_token &end) {
            for (std::size_t last = 0, size = 0; !end.stop_requested(); last = size)
                EXPECT_GE(size = contentOf(path).size(), last);
        });
        const std::jthread thread(record, "t");
        record("m");
        int status = -1;
        EXPECT_EQ(::waitpid(process, &status, 0), process);
        EXPECT_EQ(status, 0);
    }
    const std::string all = contentOf(path);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 1060);

    const auto change = [](const std::string & /*content*/) { return ""; };
    const int lock = ::open(home.directory.path(".ssh").c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(::flock(lock, LOCK_EX), 0);
    EXPECT_EQ(SSHPlatform::changeFile(path, change), EWOULDBLOCK);
    ::close(lock);
    EXPECT_EQ(contentOf(path), all);
    EXPECT_EQ(::mkfifo((path + "-pipe").c_str(), 0600), 0);
    EXPECT_EQ(SSHPlatform::changeFile(path + "-pipe", change), EINVAL);
}

// Links, modes and owners are kept, and after a failure the content; nothing else is left there.
TEST_F(HostKeyTest, TheFileStaysWhatItIs) {
    enum Result { Written, WrittenByRoot, Made, LeftAlone, Fails };
    const Sshd sshd;
    const auto shell = [](const std::string &script) {
        return require({"sh", "-c", "set -e; umask 0; cd ~/.ssh; " + script});
    };
    const std::string list =
        "find .. ! -type d -printf '%P %y %m %U:%G %l\n' | sort; cat known_hosts || true";
    const std::string linked =
        "mv known_hosts ../real; ln -s ../real/link known_hosts; ln -s known_hosts ../real/link";
    std::vector<std::pair<std::string, Result>> cases = {
        {"chmod 640 known_hosts", Written},
        {linked, Written},
        {"", Made},
        {linked, Made},
        {"rm known_hosts; ln -s known_hosts known_hosts", Fails},
        {"rm known_hosts; mkdir known_hosts", Fails},
        {"chmod 500 .", Fails},
        {"chmod 400 known_hosts", Fails},
        {"chmod 200 known_hosts", Fails},
        // As on a full disk, a part can be written.
        {"prlimit --pid $PPID --fsize=300:", Fails},
    };
    if (isRoot() && runProcess({"mknod", home.directory.path("device"), "c", "1", "3"}).status == 0)
        cases.insert(cases.end(), {{"chown 12:34 known_hosts; chmod 666 known_hosts", Fails},
                                   {"chown 12:34 known_hosts", WrittenByRoot},
                                   {"mv ../device known_hosts", LeftAlone}});
    else
        std::cerr << "*** Not tested, as it takes root: other owners, and a device. ***\n";
    std::signal(SIGXFSZ, SIG_IGN);
    const mode_t mask = ::umask(0);
    for (const auto &[script, result] : cases) {
        SCOPED_TRACE(script);
        home.directory.write(".ssh/known_hosts",
                             result == Made ? "" : "example " + sshd.hostKey() + "\n");
        shell("mkdir -p ../real; test ! -O / || chown -R 65534 ~; " + script);
        const std::string before = shell(list);
        if (result == Made)
            fs::remove(fs::canonical(home.knownHosts()));
        EXPECT_EQ(::seteuid(isRoot() && result != WrittenByRoot ? 65534 : ::getuid()), 0);
        const Lines shown = accept(sshd);
        EXPECT_EQ(::seteuid(::getuid()), 0);
        shell("prlimit --pid $PPID --fsize=unlimited:");
        EXPECT_EQ(shown,
                  result == Fails ? (Lines{unknown(sshd), notWritten}) : Lines{unknown(sshd)});
        EXPECT_EQ(shell(list), before + (result <= Made ? lineOf(sshd) : ""));
        shell("chmod 700 .; rm -rf known_hosts ../real");
    }
    ::umask(mask);
}

TEST_F(HostKeyTest, AsksOnTheMainThreadAndRefusesWhenThereIsNobody) {
    const Sshd sshd;
    user->answers = {AlertAnswer::SecondButton};
    const auto stage = [&] { return validate(sshd); };
    EXPECT_FALSE(elsewhere(stage));
    EXPECT_EQ(user->shown, Lines{unknown(sshd)});
    EXPECT_EQ(user->thread, std::this_thread::get_id());

    SSHPlatform::install(nullptr, nullptr);
    EXPECT_FALSE(std::async(std::launch::async, stage).get()); // with no loop running
    EXPECT_THAT(log.back(), testing::StartsWith("There is nobody to ask; refused: The authenticity "
                                                "of host '127.0.0.1:"));
}
