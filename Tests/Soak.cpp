// Many sessions, used by many threads at once in every way that is allowed, for as long as
// SSHSESSION_SOAK_SECONDS says: what has been there before is there afterwards, and nothing else.
#include "Tests/Support/Relay.h"
#include "Tests/Support/ScriptedServer.h"

#include <SSHSession/RunLoop.h>

#include <fmt/format.h>

#include <malloc.h>

#include <future>
#include <iostream>
#include <map>
#include <random>
#include <thread>

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using SSHPlatform::AlertAnswer;

namespace {

using Random = std::mt19937;
using Session = std::shared_ptr<TestSession>;

constexpr int workers = 12;
constexpr std::size_t logEnd = 10'000; // bytes to be shown

int pick(Random &random, int below) {
    return std::uniform_int_distribution<int>(0, below - 1)(random);
}

// One that all threads share. Only who holds `starting` may start it, and only when it is not
// connected: to start a connected session is a programming error.
struct Shared {
    const Session session;
    const std::string logIn;
    const bool isScripted;
    std::mutex starting;
};

// Does something in the middle of a `start`, once.
struct Intruder final : SSHSessionObserver {
    Intruder(SSHSessionStage when, std::function<void()> what)
        : stage(when), action(std::move(what)) {}
    void willBeginStage(SSHSession & /*session*/, SSHSessionStage begun) noexcept override {
        if (begun == stage && action)
            std::exchange(action, nullptr)();
    }
    const SSHSessionStage stage;
    std::function<void()> action;
};

struct Resources {
    std::size_t descriptors = 0;
    std::size_t threads = 0;
    std::size_t heap = 0;     // bytes in use
    std::size_t resident = 0; // bytes
};

std::size_t entries(const char *directory) {
    const std::filesystem::directory_iterator all(directory);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

class Soak : public SessionTest, SSHSessionDelegate {
  protected:
    void SetUp() override;
    void TearDown() override;

    Session fresh(const std::string &host, unsigned short port, const std::string &name,
                  std::optional<std::string> password = std::nullopt) {
        return std::make_shared<TestSession>(host, port, name, std::move(password), key());
    }
    void answer();
    bool start(TestSession &session, const std::string &how);
    void start(Shared &shared, Random &random);
    void execute(Shared &shared, Random &random);
    void endStart(Random &random);
    void askUser(Random &random);
    void refuseLogIn();
    void step(Random &random);
    void work(std::chrono::duration<double> time, unsigned seed);
    Resources settled(const Resources &before);
    void count(const std::string &what) {
        const std::lock_guard lock(mMutex);
        ++mCounts[what];
    }
    void sshSessionDisconnected(SSHSession & /*session*/,
                                const SSHErrorRef & /*why*/) noexcept override {
        count("delegate told");
    }

    ScriptedServer scripted;
    const std::string agentKey = home.directory.path("in-agent");
    const std::string settings = "MaxStartups 1000\n";
    Sshd direct{{"ecdsa"}, settings};
    Sshd behindRelay{{"ecdsa"}, settings};
    std::unique_ptr<Relay> relay = std::make_unique<Relay>(behindRelay.port());
    std::unique_ptr<SshAgent> agent;
    std::vector<std::unique_ptr<Shared>> pool;
    const std::shared_ptr<Intruder> onlooker =
        std::make_shared<Intruder>(SSHSessionStage::Handshake, nullptr);

    std::mutex mMutex;
    std::map<std::string, int> mCounts;
};

void Soak::SetUp() {
    SSHPlatform::setLogSink([this](const std::string &line) { count("logged: " + line); });
    for (const std::string &hostKey : {scripted.hostKey(), direct.hostKey(), behindRelay.hostKey()})
        know(hostKey);
    makeKey(agentKey, "ed25519");
    agent = std::make_unique<SshAgent>(Lines{agentKey});
    direct.authorize(agentKey);
    behindRelay.authorize(key());
    user->whileShown = [this] { answer(); };
    const auto add = [this](const std::string &logIn, const Session &session) {
        pool.push_back(
            std::unique_ptr<Shared>(new Shared{session, logIn, logIn == "password", {}}));
    };
    for (int i = 0; i < 3; ++i) {
        add("agent", fresh("127.0.0.1", direct.port(), currentUser()));
        add("key file", fresh("127.0.0.1", relay->port(), currentUser()));
        add("password", fresh("127.0.0.1", scripted.port(), "password", "sesame"));
    }
}

void Soak::TearDown() {
    relay.reset();
    SessionTest::TearDown();
    if (HasFailure())
        for (const std::string &whole : {scripted.log(), direct.log(), behindRelay.log()})
            std::cerr << "--- a server's log ends:\n"
                      << std::string_view(whole).substr(whole.size() -
                                                        std::min(whole.size(), logEnd));
}

// The user: the name of the server says what to do. On the main thread.
void Soak::answer() {
    const std::string text = std::exchange(user->shown, {}).at(0);
    if (text.find("can't be established") == std::string::npos) {
        count("prompt: " + text);
        return;
    }
    const auto asksAbout = [&](const char *host) { return text.find(host) != std::string::npos; };
    if (asksAbout("'127.1:")) {
        count("prompt refused");
        return;
    }
    if (asksAbout("'127.0.1:")) {
        const int withdrawn =
            SSHPlatform::waitForSocket(user->withdrawal, SSHPlatform::WaitFor::Reading, 20s);
        EXPECT_EQ(withdrawn, 1) << "nobody took the question back";
        count("prompt withdrawn");
        return;
    }
    count(asksAbout("'127.0.0.1:") ? "prompt for a known host" : "prompt accepted");
    user->answers = {AlertAnswer::FirstButton};
}

// Answers false for a failure, which has an error.
bool Soak::start(TestSession &session, const std::string &how) {
    SSHErrorRef why;
    const bool succeeded = session.start(&why);
    EXPECT_TRUE(succeeded || why) << how;
    count("start " + how + ": " +
          (succeeded ? "connected"
           : why     ? why->localizedFailureReason().value_or("-")
                     : ""));
    return succeeded;
}

void Soak::start(Shared &shared, Random &random) {
    const std::unique_lock starting(shared.starting, std::try_to_lock);
    if (!starting || shared.session->isConnected())
        return;
    // A second one in the middle of the first, at any of its stages.
    const auto second =
        std::make_shared<Intruder>(static_cast<SSHSessionStage>(pick(random, 5)), [&] {
            std::thread([&] { start(*shared.session, "a second time"); }).join();
        });
    if (pick(random, 3) == 0)
        shared.session->addObserver(second);
    start(*shared.session, "by " + shared.logIn);
    shared.session->removeObserver(second);
}

void Soak::execute(Shared &shared, Random &random) {
    struct Job {
        const char *kind;
        std::string text;
        std::string output;
        std::string input = {};
        bool isSudo = false;
    };
    const std::string input(static_cast<std::size_t>(pick(random, 300'000)) + 1, 'x');
    const std::string rest = "eof; status 3; close";
    const std::vector<Job> jobs =
        shared.isScripted
            ? std::vector<Job>{{"plain", "out out; err err; " + rest, "out"},
                               {"input", "read; out out; " + rest, "out", "line\n" + input},
                               {"slow", "wait 0.3; out out; " + rest, "out"},
                               {"sudo", "prompt; read; success; out out; " + rest, "out", "", true},
                               {"disconnect", "disconnect 2 bye en", ""}}
            : std::vector<Job>{{"plain", "echo out; echo err >&2; exit 3", "out\n"},
                               {"input", "cat; exit 3", input, input},
                               {"slow", "sleep 0.3; echo out; exit 3", "out\n"}};
    const Job &job = jobs[static_cast<std::size_t>(pick(random, static_cast<int>(jobs.size())))];
    const auto command = makeCommand(job.text);
    command->setStdinData(job.input);
    if (job.isSudo)
        command->setAdminPassword("sesame");
    SSHErrorRef why;
    if (!shared.session->execute(command, &why)) {
        EXPECT_TRUE(why) << job.kind;
        count(fmt::format("execute {}: {}", job.kind,
                          why ? why->localizedFailureReason().value_or("-") : ""));
    } else if (command->isClosedInOrder()) {
        EXPECT_TRUE(command->stdoutData()->view() == job.output) << job.kind;
        EXPECT_EQ(command->exitStatus(), 3) << job.kind;
        count(fmt::format("execute {}: done", job.kind));
    } else {
        EXPECT_TRUE(std::string_view(job.output).starts_with(command->stdoutData()->view()));
        count(fmt::format("execute {}: cut off", job.kind));
    }
}

// A session that is let go of while it starts, and ended at any of its stages, also while a
// question is shown, which nobody answers.
void Soak::endStart(Random &random) {
    const bool isAsked = pick(random, 2) == 0;
    Session session = isAsked ? fresh("127.0.1", behindRelay.port(), currentUser())
                              : fresh("127.0.0.1", scripted.port(), "password silent", "sesame");
    std::promise<void> reached;
    const auto stage =
        isAsked ? SSHSessionStage::HostKey : static_cast<SSHSessionStage>(pick(random, 5));
    const auto intruder = std::make_shared<Intruder>(stage, [&] { reached.set_value(); });
    session->addObserver(intruder);
    const bool isStopped = pick(random, 2) == 0;
    auto result = std::async(std::launch::async, [&, held = session.get()] {
        return start(*held, isStopped ? "to be stopped" : "to be cancelled");
    });
    const auto moment = reached.get_future();
    while (moment.wait_for(1ms) != std::future_status::ready &&
           result.wait_for(0s) != std::future_status::ready) {
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(pick(random, 20)));
    isStopped ? session->stop() : session->cancel();
    session.reset();
    EXPECT_FALSE(result.get());
    count("let go of");
}

// A server that is unknown under this name.
void Soak::askUser(Random &random) {
    const auto part = [&] { return std::string(static_cast<std::size_t>(pick(random, 16)), '0'); };
    const bool isTrusted = pick(random, 2) == 0;
    const std::string name =
        isTrusted ? "127.0" + part() + ".0" + part() + ".0" + part() + "1" : "127.1";
    const Session session = fresh(name, behindRelay.port(), currentUser());
    SSHErrorRef why;
    const bool started = session->start(&why);
    EXPECT_EQ(started, isTrusted);
    EXPECT_TRUE(started || !why) << summary(why);
    EXPECT_FALSE(started && resultOf(*session, "echo out") != "0 (null) | out\n | ");
    session->stop();
}

void Soak::refuseLogIn() {
    const Session session = fresh("127.0.0.1", scripted.port(), "password", "wrong");
    EXPECT_FALSE(start(*session, "with a wrong password"));
    EXPECT_TRUE(session->isIdle());
}

void Soak::step(Random &random) {
    Shared &shared = *pool[static_cast<std::size_t>(pick(random, static_cast<int>(pool.size())))];
    const std::vector<std::pair<int, std::function<void()>>> actions = {
        {30, [&] { start(shared, random); }},
        {50, [&] { execute(shared, random); }},
        {3, [&] { shared.session->stop(); }},
        {5, [&] { shared.session->cancel(); }},
        {5, [&] { shared.session->setDelegate(pick(random, 3) == 0 ? nullptr : this); }},
        {5, [&] { shared.session->addObserver(onlooker); }},
        {5, [&] { shared.session->removeObserver(onlooker); }},
        {1, [&] { relay->reset(); }},
        {3, [&] { endStart(random); }},
        {3, [&] { askUser(random); }},
        {3, [&] { refuseLogIn(); }},
    };
    int chosen = pick(random, 113);
    for (const auto &[weight, action] : actions)
        if ((chosen -= weight) < 0)
            return action();
}

// The calling thread is the user's and the timers' meanwhile.
void Soak::work(std::chrono::duration<double> time, unsigned seed) {
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(time);
    std::atomic<int> running = workers;
    std::vector<std::jthread> threads;
    for (unsigned i = 0; i < workers; ++i)
        threads.emplace_back([&, i] {
            for (Random random(seed + i); Clock::now() < end;)
                step(random);
            --running;
        });
    while (running > 0) {
        SSHPlatform::RunLoop::main()->runFor(10ms);
        if (Clock::now() > end + 1min) {
            std::cerr << "Calls that do not return: " << running << std::endl;
            std::abort();
        }
    }
}

// Once nothing runs any more.
Resources Soak::settled(const Resources &before) {
    for (const auto &shared : pool)
        shared->session->stop();
    relay->reset();
    Resources now;
    eventually([&] {
        SSHPlatform::RunLoop::main()->runFor(10ms);
        now.descriptors = entries("/dev/fd");
        now.threads = entries("/proc/self/task");
        return now.descriptors <= before.descriptors && now.threads <= before.threads;
    });
    ::malloc_trim(0);
    now.heap = heapSize();
    std::size_t ignored = 0;
    std::ifstream("/proc/self/statm") >> ignored >> now.resident;
    now.resident *= static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    fmt::print("{} descriptors, {} threads, {} kB of heap, {} kB resident\n", now.descriptors,
               now.threads, now.heap / 1024, now.resident / 1024);
    return now;
}

unsigned number(const char *variable, unsigned otherwise) {
    const char *const value = std::getenv(variable);
    return value ? static_cast<unsigned>(std::stoul(value)) : otherwise;
}

} // namespace

TEST_F(Soak, LeavesNothingBehind) {
    const unsigned seconds = number("SSHSESSION_SOAK_SECONDS", 60);
    const unsigned seed = number("SSHSESSION_SEED", std::random_device()());
    fmt::print("{} s with {} threads; SSHSESSION_SEED={}\n", seconds, workers, seed);
    const Resources idle = settled({1000, 1000});
    work(std::chrono::seconds(seconds) / 4., seed);
    const Resources before = settled(idle);
    work(std::chrono::seconds(seconds) * 3 / 4., seed + workers);
    const Resources after = settled(idle);
    for (const auto &[what, times] : mCounts)
        fmt::print("{:6} {}\n", times, what);
    EXPECT_EQ(after.descriptors, idle.descriptors);
    EXPECT_EQ(after.threads, idle.threads);
    EXPECT_LE(after.heap, before.heap + 100'000);
}
