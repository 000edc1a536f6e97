#include "Identity/KnownHostsFile.h"
#include "Platform/AtomicFile.h"
#include "Tests/Support/SessionTest.h"

#include <SSHSession/RunLoop.h>

#include <fmt/format.h>

#include <fcntl.h>
#include <pwd.h>
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

    // What the user is shown.
    std::string prompt(const Sshd &sshd, bool isChanged, const std::string &type = "ecdsa") const {
        return fmt::format(
            "{}The authenticity of host '127.0.0.1:{}' can't be established. | The server{} Do you "
            "want to add it to the list and connect?\n\nHost key: {} | {}",
            isChanged ? "Critical: " : "", sshd.port(),
            isChanged ? "'s identity does not match the existing entry in " + home.knownHosts() +
                            ". This could be because the server's identity has changed or a "
                            "Man-in-the-Middle attack."
                      : " does not match not in " + home.knownHosts() + ".",
            sshd.hostKey(type).substr(sshd.hostKey(type).find(' ') + 1),
            isChanged ? "Add and Connect= | Cancel=\r" : "Add and Connect=\r | Cancel=");
    }
    // The same, and the user accepts: everything that is shown then.
    Lines accept(const Sshd &sshd) {
        user->answers.assign(3, AlertAnswer::FirstButton);
        EXPECT_TRUE(validate(sshd));
        return user->shown;
    }
    static std::string lineOf(const Sshd &sshd) { return "127.0.0.1 " + sshd.hostKey() + "\n"; }
    std::string unknown(const Sshd &sshd) const { return prompt(sshd, false); }
    std::string changed(const Sshd &sshd) const { return prompt(sshd, true); }
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
    EXPECT_EQ(expect(newer, {prompt(newer, false, "ed25519"),
                             notAdded + "Earlier read error: -16 / " + notRead +
                                 "No key type set\nkeyType: 0"}),
              "");
    EXPECT_EQ(std::exchange(log, {}),
              Lines{"Could not check for known_hosts because libssh2_knownhost_readfile failed. " +
                    notRead + "Failed to open file"});
    EXPECT_EQ(expect(sshd, {unknown(sshd)}), mine);
    home.directory.write(".ssh/known_hosts", "");
    EXPECT_EQ(expect(newer, {prompt(newer, false, "ed25519"), notAdded}), "");
    home.directory.write(".ssh/known_hosts", elses);
    EXPECT_EQ(expect(sshd, {changed(sshd)}), elses + mine);
    home.directory.write(".ssh/known_hosts", mine + "unparsable\n" + elses);
    EXPECT_EQ(expect(sshd, {unknown(sshd)}), mine + mine);
    EXPECT_THAT(log.back(), testing::HasSubstr("(-46)"));

    std::filesystem::remove_all(home.directory.path(".ssh"));
    EXPECT_EQ(expect(sshd, {unknown(sshd), notWritten}), "");
}

// Others accept, and `ssh` adds, while the question is up: the file is read again, and no key is
// written twice.
TEST_F(HostKeyTest, WhatOthersAddMeanwhileStays) {
    const Sshd sshd;
    const Sshd other;
    user->whileShown = [&, count = 0]() mutable {
        if (++count != 1)
            return;
        know(other.hostKey(), "ssh");
        accept(other);
        EXPECT_EQ(accept(sshd), Lines{changed(sshd)});
    };
    EXPECT_EQ(accept(sshd), Lines{changed(sshd)}); // the last one shown
    EXPECT_EQ(contentOf(home.knownHosts()),
              "ssh " + other.hostKey() + "\n" + lineOf(other) + lineOf(sshd));

    // Between reading and replacing, too.
    int calls = 0;
    EXPECT_EQ(SSHPlatform::changeFile(home.knownHosts(),
                                      [&](const std::string &content) {
                                          if (++calls == 1)
                                              know("c", "appended");
                                          return std::optional(content + "changed\n");
                                      }),
              0);
    EXPECT_THAT(contentOf(home.knownHosts()), testing::EndsWith("\nappended c\nchanged\n"));
}

TEST_F(HostKeyTest, NothingIsLostWhenManyAcceptAtOnce) {
    const std::string path = home.knownHosts();
    const auto record = [&](const std::string &name) {
        LIBSSH2_SESSION *const session = libssh2_session_init();
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(SSHEngine::recordKnownHost(session, path,
                                                 {name + std::to_string(i), "the public key",
                                                  LIBSSH2_KNOWNHOST_KEY_SSHRSA}),
                      0);
        libssh2_session_free(session);
    };
    for (int i = 0; i < 1000; ++i)
        know("ssh-rsa dGhlIHB1YmxpYyBrZXk=", "old" + std::to_string(i));
    const pid_t process = ::fork();
    if (process == 0) {
        record("process");
        ::_exit(HasFailure() ? 1 : 0);
    }
    int fewer = 0;
    {
        const std::jthread reader([&](const std::stop_token &end) {
            for (std::size_t last = 0, size = 0; !end.stop_requested(); last = size)
                fewer += (size = contentOf(path).size()) < last ? 1 : 0;
        });
        const std::jthread one(record, "one");
        const std::jthread two(record, "two");
        int status = -1;
        EXPECT_EQ(::waitpid(process, &status, 0), process);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(fewer, 0);
    const std::string all = contentOf(path);
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 1030);

    const int lock = ::open(home.directory.path(".ssh").c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(::flock(lock, LOCK_EX), 0);
    EXPECT_EQ(SSHPlatform::changeFile(path, [](const auto &) { return ""; }), EWOULDBLOCK);
    ::close(lock);
    EXPECT_EQ(contentOf(path), all);
}

// Link, mode and owner are kept, and after a failure the content; nothing else is left there.
TEST_F(HostKeyTest, TheFileStaysWhatItIs) {
    enum Result { Written, Made, LeftAlone, Fails };
    const Sshd sshd;
    const std::string asked = unknown(sshd);
    const auto shell = [](const std::string &script) {
        return require({"sh", "-c", "set -e; umask 0; cd ~/.ssh; " + script});
    };
    const auto listing = [&] {
        return shell("find .. ! -type d -printf '%P %y %m %U:%G %l\n' | sort");
    };
    const auto content = [&] { return shell("cat known_hosts || true"); };
    const uid_t nobody = isRoot() ? ::getpwnam("nobody")->pw_uid : ::getuid();
    std::vector<std::tuple<std::string, Result, uid_t>> cases = {
        {"", Made, nobody},
        {"", Written, nobody},
        {"chmod 640 known_hosts", Written, nobody},
        {"mv known_hosts ../real; ln -s ../real/link known_hosts; ln -s known_hosts ../real/link",
         Written, nobody},
        {"mv known_hosts ../real; ln -s ../real/link known_hosts; ln -s known_hosts ../real/link",
         Made, nobody},
        {"rm known_hosts; ln -s known_hosts known_hosts", Fails, nobody},
        {"rm known_hosts; mkdir known_hosts", Fails, nobody},
        {"chmod 500 .", Fails, nobody},
        {"chmod 400 known_hosts", Fails, nobody},
        {"chmod 200 known_hosts", Fails, nobody},
        // As on a full disk, a part can be written.
        {"prlimit --pid $PPID --fsize=200:", Fails, nobody},
    };
    if (isRoot() && runProcess({"mknod", home.directory.path("device"), "c", "1", "3"}).status == 0)
        cases.insert(cases.end(),
                     {{"chown 12:34 known_hosts; chmod 666 known_hosts", Fails, nobody},
                      {"chown 12:34 known_hosts", Written, 0},
                      {"mv ../device known_hosts", LeftAlone, nobody}});
    else
        std::cerr << "*** Not tested, as it takes root: other owners, and a device. ***\n";
    std::signal(SIGXFSZ, SIG_IGN);
    const mode_t mask = ::umask(0);
    for (const auto &[script, result, as] : cases) {
        SCOPED_TRACE(script);
        home.directory.write(".ssh/known_hosts", "example.com " + sshd.hostKey() + "\n");
        shell("mkdir -p ../real; test ! -O / || chown -R nobody ~; " + script);
        const std::string before = listing();
        if (result == Made)
            fs::remove(fs::canonical(home.knownHosts()));
        const std::string old = content();
        EXPECT_EQ(::seteuid(as), 0);
        const Lines shown = accept(sshd);
        EXPECT_EQ(::seteuid(::getuid()), 0);
        shell("prlimit --pid $PPID --fsize=unlimited:");
        EXPECT_EQ(shown, result == Fails ? (Lines{asked, notWritten}) : Lines{asked});
        EXPECT_EQ(content(), old + (result == Written || result == Made ? lineOf(sshd) : ""));
        EXPECT_EQ(listing(), before);
        shell("chmod 700 .; rm -rf known_hosts ../real");
    }
    ::umask(mask);
}

TEST_F(HostKeyTest, AsksOnTheMainThreadAndRefusesWhenThereIsNobody) {
    const Sshd sshd;
    user->answers = {AlertAnswer::SecondButton};
    const auto onAnotherThread = [&] {
        return std::async(std::launch::async, [&] { return validate(sshd); });
    };
    auto valid = onAnotherThread();
    while (valid.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready)
        SSHPlatform::RunLoop::main()->runFor(std::chrono::milliseconds(10));
    EXPECT_FALSE(valid.get());
    EXPECT_EQ(user->shown, Lines{unknown(sshd)});
    EXPECT_EQ(user->thread, std::this_thread::get_id());

    SSHPlatform::install(nullptr, nullptr);
    EXPECT_FALSE(onAnotherThread().get()); // with no loop running
    EXPECT_THAT(log.back(), testing::StartsWith("There is nobody to ask; refused: The authenticity "
                                                "of host '127.0.0.1:"));
}
