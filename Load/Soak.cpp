// Many sessions, used by many threads at once in every way that is allowed: what was there before
// is there afterwards, and nothing else. SSHSESSION_SOAK_SECONDS says how long, SSHSESSION_SEED
// repeats the choices of an earlier time.
#include "Tests/Support/Relay.h"
#include "Tests/Support/ScriptedServer.h"

#include <SSHSession/RunLoop.h>

#include <fmt/format.h>

#include <malloc.h>

#include <future>
#include <iostream>
#include <map>
#include <random>
#include <regex>
#include <thread>

using namespace std::literals;
using Clock = std::chrono::steady_clock;
using SSHPlatform::RunLoop;

namespace {

constexpr unsigned workers = 12;
constexpr std::size_t longestLine = 200;
const std::string rest = "eof; status 3; close";

struct Random : std::mt19937 {
    using std::mt19937::mt19937;
    int below(int end) { return std::uniform_int_distribution<int>(0, end - 1)(*this); }
    template <typename Choices>
    auto &of(Choices &choices) {
        return choices[static_cast<std::size_t>(below(static_cast<int>(choices.size())))];
    }
};

// One that all threads share. To start a connected session is a programming error, so only who
// holds `starting` may start it, having seen that it is not connected.
struct Shared {
    std::string logIn;
    std::shared_ptr<TestSession> session;
    std::mutex starting;
};

// Does something in the middle of a `start`, once.
struct Intruder final : SSHSessionObserver {
    Intruder(int when, std::function<void()> what) : stage(when), action(std::move(what)) {}
    void willBeginStage(SSHSession & /*session*/, SSHSessionStage begun) noexcept override {
        if (static_cast<int>(begun) == stage && action)
            std::exchange(action, nullptr)();
    }
    const int stage;
    std::function<void()> action;
};

struct Resources {
    std::size_t descriptors = 1000;
    std::size_t threads = 1000;
    std::size_t heap = 0; // bytes in use
};

std::size_t entries(const char *directory) {
    const std::filesystem::directory_iterator all(directory);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

unsigned number(const char *variable, unsigned otherwise) {
    const char *const value = std::getenv(variable);
    return value ? static_cast<unsigned>(std::stoul(value)) : otherwise;
}

class Soak : public ScriptedServerTest {
  protected:
    void count(const std::string &what) {
        const std::lock_guard lock(mutex);
        ++counts[what.substr(0, std::min(what.find('\n'), longestLine))];
    }
    void sshSessionDisconnected(SSHSession & /*session*/,
                                const SSHErrorRef & /*why*/) noexcept override {
        count("delegate told");
    }
    std::shared_ptr<TestSession> fresh(const std::string &host, unsigned short port,
                                       const std::string &name, const std::string &password = "") {
        return std::make_shared<TestSession>(host, port, name, SSHPlatform::Secret::of(password),
                                             key());
    }

    // The agent's key opens the scripted server, which takes any, and the key file the other one.
    void SetUp() override {
        const std::string path = home.directory.path("in-agent");
        makeKey(path, "ed25519");
        agent = std::make_unique<SshAgent>(Lines{path});
        relay = std::make_unique<Relay>(server().port());
        for (std::size_t i = 0; i < pool.size(); i += 3) {
            pool[i].session = fresh("127.0.0.1", scripted.port(), pool[i].logIn = "publickey");
            pool[i + 1].session =
                fresh("127.0.0.1", scripted.port(), pool[i + 1].logIn = "password", "-");
            pool[i + 2].session = fresh("127.0.0.1", relay->port(), pool[i + 2].logIn = me);
        }
        user->whileShown = [this] { answer(); };
        SSHPlatform::setLogSink([this](const std::string &line) { count("logged: " + line); });
    }

    void TearDown() override {
        relay.reset();
        ScriptedServerTest::TearDown();
    }

    // The user: the name of the server says what to do. On the main thread.
    void answer() {
        const std::string text = std::exchange(user->shown, {}).at(0);
        const auto isAbout = [&](const char *what) { return text.find(what) != std::string::npos; };
        if (!isAbout("can't be established"))
            return count("prompt: " + text);
        if (isAbout("'127.1:"))
            return count("prompt refused");
        if (isAbout("'127.0.1:")) {
            EXPECT_EQ(
                SSHPlatform::waitForSocket(user->withdrawal, SSHPlatform::WaitFor::Reading, 20s),
                1);
            return count("prompt withdrawn");
        }
        EXPECT_FALSE(isAbout("'127.0.0.1:")) << "known hosts were forgotten: " << text;
        count("prompt accepted");
        user->answers = {SSHPlatform::AlertAnswer::FirstButton};
    }

    bool start(SSHSession &session, const std::string &how) {
        SSHErrorRef why;
        const bool succeeded = session.start(&why);
        EXPECT_TRUE(succeeded || why) << how;
        count("start " + how + ": " + (succeeded ? "connected" : summary(why)));
        return succeeded;
    }

    void start(Shared &shared, Random &random) {
        const std::unique_lock starting(shared.starting, std::try_to_lock);
        if (!starting || shared.session->isConnected())
            return;
        const auto second = std::make_shared<Intruder>(random.below(15), [&] {
            std::thread([&] { start(*shared.session, "in the middle of one"); }).join();
        });
        if (second->stage < static_cast<int>(SSHSessionStage::Execute))
            shared.session->addObserver(second);
        start(*shared.session, "as " + shared.logIn);
        shared.session->removeObserver(second);
    }

    void execute(Shared &shared, Random &random) {
        struct Job {
            const char *kind;
            std::string text;
            std::string outputs;
            std::string input;
            const char *adminPassword = nullptr;
        };
        const std::string bulk(static_cast<std::size_t>(random.below(300'000)) + 1, 'x');
        std::vector<Job> jobs = {{"plain", "out out; err err; " + rest, "out | err", ""},
                                 {"input", "read; out out; " + rest, "out | ", "line\n" + bulk},
                                 {"slow", "wait 0.3; " + rest, " | ", ""},
                                 {"sudo", "prompt; read; success; out x; " + rest, "x | ", "", "-"},
                                 {"disconnect", "disconnect 2 bye en", "", ""}};
        if (shared.logIn == me)
            jobs = {{"plain", "echo out; echo err >&2; exit 3", "out\n | err\n", ""},
                    {"input", "cat; exit 3", bulk + " | ", bulk},
                    {"slow", "sleep 0.3; exit 3", " | ", ""}};
        const Job &job = random.of(jobs);
        const std::string result = resultOf(
            *shared.session, job.text,
            job.adminPassword ? std::optional<std::string>(job.adminPassword) : std::nullopt,
            job.input);
        const bool isDone = result == "3 (null) | " + job.outputs;
        EXPECT_TRUE(isDone || result.starts_with("libssh2ErrorDomain ") ||
                    result.ends_with(", cut off"))
            << job.kind << ": " << result.substr(0, longestLine);
        count(fmt::format("execute {}: {}", job.kind, isDone ? "done" : result));
    }

    // A session that is let go of while it starts, and ended at any of its stages, also while a
    // question is shown, which nobody answers.
    void endStart(Random &random) {
        const bool isAsked = random.below(2) == 0;
        auto session = isAsked ? fresh("127.0.1", server().port(), me)
                               : fresh("127.0.0.1", scripted.port(), "password silent", "-");
        std::promise<void> reached;
        const auto intruder =
            std::make_shared<Intruder>(isAsked ? 2 : random.below(5), [&] { reached.set_value(); });
        session->addObserver(intruder);
        const bool isStopped = random.below(2) == 0;
        auto result = std::async(std::launch::async, [&, held = session.get()] {
            EXPECT_FALSE(start(*held, isStopped ? "to be stopped" : "to be cancelled"));
            if (const auto never = std::exchange(intruder->action, nullptr))
                never();
        });
        reached.get_future().wait();
        std::this_thread::sleep_for(std::chrono::milliseconds(random.below(20)));
        isStopped ? session->stop() : session->cancel();
        session.reset();
        result.get();
    }

    // About a server that is unknown under this name.
    void askUser(Random &random) {
        const auto width = [&] { return random.below(16) + 1; };
        const bool isTrusted = random.below(2) == 0;
        const std::string name =
            fmt::format("127.{:0{}}.{:0{}}.{:0{}}", 0, width() + 1, 0, width() + 1, 1, width() + 1);
        const auto session = fresh(isTrusted ? name : "127.1", server().port(), me);
        SSHErrorRef why;
        EXPECT_EQ(session->start(&why), isTrusted) << summary(why);
        EXPECT_TRUE(isTrusted || !why) << summary(why);
        session->stop();
    }

    void step(Random &random) {
        Shared &shared = random.of(pool);
        const std::vector<std::pair<int, std::function<void()>>> actions = {
            {40, [&] { start(shared, random); }},
            {50, [&] { execute(shared, random); }},
            {3, [&] { shared.session->stop(); }},
            {5, [&] { shared.session->cancel(); }},
            {9, [&] { shared.session->setDelegate(random.below(3) == 0 ? nullptr : this); }},
            {1, [&] { relay->reset(); }},
            {3, [&] { endStart(random); }},
            {3, [&] { askUser(random); }},
            {3, [&] {
                 EXPECT_FALSE(
                     start(*fresh("127.0.0.1", scripted.port(), "password", "wrong"), "wrongly"));
             }}};
        int chosen = random.below(117);
        for (const auto &[weight, action] : actions)
            if ((chosen -= weight) < 0)
                return action();
    }

    // The main thread is the user's and the timers' meanwhile.
    void work(Clock::duration time, unsigned seed) {
        const auto end = Clock::now() + time;
        std::atomic<unsigned> running = workers;
        std::vector<std::jthread> threads;
        for (unsigned i = 0; i < workers; ++i)
            threads.emplace_back([&, i] {
                for (Random random(seed + i); Clock::now() < end;)
                    step(random);
                --running;
            });
        for (Random random(seed); running > 0;) {
            RunLoop::main()->runFor(10ms);
            random.of(pool).session->keepAlive(); // its timer's work, more often
            if (Clock::now() > end + 1min) {
                std::cerr << running << " calls do not return." << std::endl;
                std::abort();
            }
        }
    }

    // Once nothing runs any more.
    Resources settled(const Resources &before) {
        for (const Shared &shared : pool)
            shared.session->stop();
        relay->reset();
        Resources now;
        eventually([&] {
            RunLoop::main()->runFor(10ms);
            now = {entries("/dev/fd"), entries("/proc/self/task")};
            return now.descriptors <= before.descriptors && now.threads <= before.threads;
        });
        ::malloc_trim(0);
        now.heap = heapSize();
        std::size_t residentPages = 0;
        std::ifstream("/proc/self/statm").ignore(longestLine, ' ') >> residentPages;
        fmt::print("{} descriptors, {} threads, {} kB in use on the heap, {} pages resident\n",
                   now.descriptors, now.threads, now.heap / 1024, residentPages);
        return now;
    }

    const std::string me = currentUser();
    std::unique_ptr<SshAgent> agent;
    std::unique_ptr<Relay> relay;
    std::array<Shared, 9> pool;
    std::mutex mutex;
    std::map<std::string, int> counts;
};

} // namespace

TEST_F(Soak, LeavesNothingBehind) {
    const std::chrono::seconds time(number("SSHSESSION_SOAK_SECONDS", 60));
    const unsigned seed = number("SSHSESSION_SEED", std::random_device()());
    fmt::print("{} s, {} threads, SSHSESSION_SEED={}\n", time.count(), workers, seed);
    const Resources idle = settled({});
    work(time / 4, seed);
    const Resources before = settled(idle);
    work(time * 3 / 4, seed + workers);
    const Resources after = settled(idle);
    for (const auto &[what, times] : counts)
        fmt::print("{:6} {}\n", times, what);

    for (const std::string &pattern :
         {"start as publickey: connected"s, "start as password: connected"s,
          "start as " + me + ": connected", "start as " + me + ": .* the handshake"s,
          "start in the middle of one: .*is being started already"s,
          "start to be stopped: .*was stopped while"s,
          "start to be cancelled: .*was cancelled while"s,
          "start wrongly: .*could not authenticate with any"s, "execute plain: done"s,
          "execute input: done"s, "execute slow: done"s, "execute sudo: done"s,
          "execute slow: .*was cancelled"s, "execute slow: .*transport read"s,
          "execute disconnect: .*was disconnected"s, "delegate told"s, "prompt accepted"s,
          "prompt refused"s, "prompt withdrawn"s})
        EXPECT_TRUE(std::any_of(
            counts.begin(), counts.end(),
            [&](const auto &each) { return std::regex_search(each.first, std::regex(pattern)); }))
            << "never seen: " << pattern;
    EXPECT_EQ(after.descriptors, idle.descriptors);
    EXPECT_EQ(after.threads, idle.threads);
    EXPECT_LE(after.heap, before.heap + 100'000);
}
