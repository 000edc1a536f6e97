// Every call and allocation that a session makes fails in its turn, and links end at any byte: a
// session's operation always returns, and either its result is right or its error says something.
#include "Platform/Text.h"
#include "Tests/Support/Relay.h"
#include "Tests/Support/ScriptedServer.h"
#include "Tests/Support/Wrapped.h"

#include <fmt/format.h>
#include <netdb.h>

#include <iostream>
#include <random>
#include <regex>
#include <set>

using testing::HasSubstr;
using End = RelaySettings::End;

namespace {

// From a log-in to a stop, with one command between.
struct Scenario {
    std::string user;
    std::string command;
    std::string input = "";
    std::optional<std::string> adminPassword = std::nullopt;
    bool hasKeyFile = false;
    std::regex functions = std::regex(".*"); // that fail
};

struct StageWatch final : SSHSessionObserver {
    void didEndStage(SSHSession & /*session*/, SSHSessionStage /*stage*/,
                     bool /*succeeded*/) noexcept override {
        if (action)
            action();
    }
    std::function<void()> action;
};

class FaultInjectionTest : public ScriptedServerTest {
  protected:
    // The command's result, or the error of `start` or `execute`: what it was when nothing was
    // amiss, or an error that says something in all of its texts. A run that takes too long is
    // cancelled, as is one for which `isOver` says so.
    std::string run(const Scenario &scenario, unsigned short port, const std::string &amiss,
                    const std::function<bool()> &isOver = nullptr) {
        SCOPED_TRACE(amiss);
        std::cout << amiss << std::endl;
        std::ofstream(home.knownHosts()).flush();
        user->shown.clear();
        user->answers = {SSHPlatform::AlertAnswer::FirstButton};
        const auto session =
            makeSession(port, "sesame", scenario.hasKeyFile ? std::optional(key()) : std::nullopt,
                        scenario.user);
        session->addObserver(watch);
        std::atomic<bool> isLate = false;
        std::jthread watchdog([&](const std::stop_token &done) {
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
            while (!done.stop_requested()) {
                isLate = isLate || std::chrono::steady_clock::now() > deadline;
                if (isLate || (isOver && isOver()))
                    session->cancel();
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            }
        });
        error = nullptr;
        std::string result =
            session->start(&error)
                ? resultOf(*session, scenario.command, scenario.adminPassword, scenario.input)
                : "start: " + summary(error);
        watchdog = {};
        EXPECT_FALSE(isLate) << "it hangs";
        EXPECT_TRUE(session->isConnected() || session->isIdle());
        session->stop();
        EXPECT_TRUE(session->isIdle());
        for (std::size_t i = 1; i < user->shown.size(); ++i) // after the question about the key
            result += "\n" + user->shown[i];
        std::cout << "   " << result << std::endl;
        if (right.empty())
            EXPECT_THAT(right = result, testing::StartsWith("3 (null) | x"));
        else if (result != right + ", cut off" && !(result + "\n").starts_with(right + "\n")) {
            EXPECT_THAT(result, testing::MatchesRegex("(start: )?libssh2ErrorDomain -?[0-9]+ \\| "
                                                      "[^|]{20,} \\| [^|]{5,} \\| .*"));
            const SSHErrorRef last = session->lastError();
            EXPECT_TRUE(last && last->cause() != SSHErrorCause::Unknown) << summary(last);
            for (const char *fault : {", still connected", ", record written", " was stopped"})
                EXPECT_THAT(result, testing::Not(HasSubstr(fault)));
        }
        return result;
    }

    void injectFaults(const Scenario &scenario);
    void failAllocations(const Scenario &scenario);

    std::string right;
    std::minstd_rand random{static_cast<std::minstd_rand::result_type>(seed())};
    const std::shared_ptr<StageWatch> watch = std::make_shared<StageWatch>();

  private:
    static unsigned long seed() {
        const char *const given = std::getenv("SSHSESSION_SEED");
        const auto value = given ? std::strtoul(given, nullptr, 10) : std::random_device()();
        std::cout << "SSHSESSION_SEED=" << value << '\n';
        return value;
    }
};

const std::vector<int> libraryResults = {LIBSSH2_ERROR_ALLOC, LIBSSH2_ERROR_TIMEOUT,
                                         LIBSSH2_ERROR_SOCKET_DISCONNECT, LIBSSH2_ERROR_EAGAIN};
const std::map<std::string, std::vector<int>> otherResults = {
    {"getaddrinfo", {EAI_NONAME, EAI_AGAIN}},
    {"socket", {EMFILE, ENOBUFS}},
    {"connect", {ECONNREFUSED, EINTR, EAGAIN}},
    {"poll", {EINTR, ENOMEM}},
    {"send", {EINTR, EAGAIN, EPIPE}},
    {"recv", {EINTR, EAGAIN, ECONNRESET}},
    {"setsockopt", {EINVAL}},
    {"pipe2", {EMFILE}},
    {"libssh2_agent_get_identity", {1, LIBSSH2_ERROR_AGENT_PROTOCOL}},
    {"libssh2_knownhost_checkp", {1, 2, 3}},
};

// The end of a command's input is told until it has been told: nothing else ends such a command.
bool isPassing(int result, const std::string &function) {
    return function == "libssh2_channel_send_eof" || result == EINTR || result == EAGAIN ||
           result == LIBSSH2_ERROR_EAGAIN;
}

// What is said of a fault that shows, where it is always the same: {0} stands for what the function
// answers, {1} for the sentence about that, {2} for the same of a system call, {3} for a
// description, {4} for that of a look-up.
const std::map<std::string, std::string> sayings = {
    {"getaddrinfo", " | {3} | Could not look up the host. Error: {4} ({0}). | -"},
    {"socket", "{0} | {3} | Could not create a socket. Error: {2} ({0}). | -"},
    {"libssh2_session_init_ex", "12 | {3} | Could not create an SSH session. | -"},
    {"libssh2_session_handshake", "{0} | {3} | Could not complete the handshake. {1} | -"},
    {"libssh2_session_hostkey", "{0} | {3} | Could not check against known_hosts because "},
    {"libssh2_knownhost_checkp", "0 | {3} | Could not check against known_hosts because libssh2_"},
    // To what was read at first, or to what the file holds by then.
    {"libssh2_knownhost_init", " failed. | "},
    {"libssh2_knownhost_addc", " failed. | "},
    {"libssh2_knownhost_writeline", "file failed. | An error {0} occurred. The connection will "},
    {"libssh2_userauth_list", "could not get a list of the available authentication methods. {1}"},
    {"libssh2_userauth_password_ex", "authenticate using the ssh user password. ({0})\n"},
    {"libssh2_userauth_keyboard_interactive_ex", "using keyboard-interactive. ({0})"},
    {"libssh2_userauth_keyboard_interactive_ex -9", "Failed because of timeout.\n"},
    {"libssh2_userauth_publickey_fromfile_ex", "and no password...\nFailed. ({0})\n"},
    {"libssh2_channel_open_ex", "in libssh2_channel_open_session. ({0}) | {1} injected | {1} inj"},
    {"libssh2_channel_open_ex -9", "{0} | Dravella lost the connection to the SSH server "},
    {"libssh2_channel_process_startup",
     "{0} | An error occurred in libssh2_channel_exec. ({0}) | {1} | {1}"},
    {"libssh2_channel_read_ex", "{0} | An error occurred in libssh2_channel_read"},
    {"libssh2_channel_write_ex", "{0} | An error occurred in libssh2_channel_read_stderr. ({0})"},
};

std::string saying(const std::string &user, const std::string &function, int result) {
    auto found = sayings.find(fmt::format("{} {}", function, result));
    if (found == sayings.end())
        found = sayings.find(function);
    if (found == sayings.end())
        return "";
    return fmt::format(
        fmt::runtime(found->second), result, SSHSession_libssh2::_stringForErrorCode(result),
        SSHPlatform::errnoText(result),
        fmt::format("Dravella could not make an SSH connection to {}@127.0.0.1.", user),
        ::gai_strerror(result));
}

void FaultInjectionTest::injectFaults(const Scenario &scenario) {
    wrapped().inject();
    right.clear();
    run(scenario, scripted.port(), "nothing");
    std::set<std::string> silent;
    for (const auto &[function, count] : wrapped().calls()) {
        if (!std::regex_match(function, scenario.functions))
            continue;
        silent.insert(function);
        const auto listed = otherResults.find(function);
        for (const int first : std::set<int>{1, (count + 1) / 2, std::max(count - 1, 1), count})
            for (const int result : listed == otherResults.end() ? libraryResults : listed->second)
                for (const int times : {1, isPassing(result, function) ? 4 : 1000}) {
                    wrapped().inject({function, first, times, result});
                    const std::string what = fmt::format("{} {} of {} x{} answers {}", function,
                                                         first, count, times, result);
                    const std::string was = run(scenario, scripted.port(), what);
                    if (was == right || was == right + ", cut off")
                        continue;
                    silent.erase(function);
                    EXPECT_THAT(was, HasSubstr(saying(scenario.user, function, result))) << what;
                    EXPECT_TRUE(result != EINTR || function == "connect") << what;
                }
    }
    wrapped().inject();
    for (const std::string &function : silent)
        EXPECT_FALSE(sayings.contains(function)) << function;
}

void FaultInjectionTest::failAllocations(const Scenario &scenario) {
    int count = 0;
    for (int good = -1; good < count; ++good) { // at first none fails
        wrapped().inject();
        wrapped().goodAllocations = good;
        run(scenario, scripted.port(), fmt::format("{} allocations of {}", good, count));
        count = good < 0 ? wrapped().allocations.load() : count;
#ifdef SSHSESSION_MENDED_LIBSSH2
        EXPECT_EQ(wrapped().liveAllocations.exchange(0), 0) << good;
#endif
    }
#ifndef SSHSESSION_MENDED_LIBSSH2
    GTEST_LOG_(WARNING) << "*** leaks are not looked for: the system's libssh2 has some ***";
#endif
    wrapped().goodAllocations.reset();
}

const Scenario byAgent = {.user = "publickey,password",
                          .command = "read; read; out x; err e; status 3; eof; close",
                          .input = "data\n"};
const Scenario byKeyFile = {
    .user = "publickey",
    .command = "prompt; read; success; read; read; out x; err e; status 3; eof; close",
    .input = "data\n",
    .adminPassword = "admin",
    .hasKeyFile = true,
    .functions = std::regex("poll|libssh2_(channel_(read|write|wait).*|userauth_pub.*)")};

} // namespace

TEST_F(FaultInjectionTest, ByAgent) {
    const SshAgent agent({key()});
    injectFaults(byAgent);
}

TEST_F(FaultInjectionTest, ByKeyFileAndWithSudo) {
    injectFaults(byKeyFile);
}

TEST_F(FaultInjectionTest, ByPasswordAndByKeyboard) {
    for (const char *name : {"password", "keyboard-interactive 1"})
        injectFaults({.user = name,
                      .command = "out x; err e; status 3; eof; close",
                      .functions = std::regex("libssh2_userauth.*")});
}

// In each stage, at its beginning and at random places, in each direction, in each way.
TEST_F(FaultInjectionTest, LinksEnd) {
    using Place = std::array<std::size_t, 2>; // bytes to the client, and to the server
    std::vector<Place> places;
    for (int i = 0; i < 5; ++i) {
        const Relay pieces(scripted.port(), {.seed = random()});
        const auto note = [&] { places.push_back({pieces.carried(false), pieces.carried(true)}); };
        places.clear();
        watch->action = note;
        const std::string was = run(byKeyFile, pieces.port(), "pieces");
        note();
        EXPECT_EQ(was, right);
    }
    watch->action = nullptr;
    for (unsigned i = 0; i < 96; ++i) {
        const std::size_t stage = i / 2 % (places.size() - 1);
        const bool toServer = i % 2 == 0;
        const std::size_t begin = places[stage][toServer];
        const std::size_t size = places[stage + 1][toServer] - begin;
        const std::size_t place = begin + (i < 24 || size == 0 ? 0 : random() % size);
        const End end = std::array{End::Reset, End::Close, End::Cut}.at(random() % 3);
        const Relay link(scripted.port(),
                         {.end = end, .isEndToServer = toServer, .bytesBeforeEnd = place});
        run(byKeyFile, link.port(),
            fmt::format("end {} {} after {} bytes", static_cast<int>(end),
                        toServer ? "to server" : "to client", place),
            [&] { return end == End::Cut && link.hasEnded(); });
    }
}

TEST_F(FaultInjectionTest, AllocationsFailByAgent) {
    const SshAgent agent({key()});
    failAllocations(byAgent);
}

TEST_F(FaultInjectionTest, AllocationsFailByKeyFile) {
    failAllocations(byKeyFile);
}
