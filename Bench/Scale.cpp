// What many sessions cost, beside as many of bare libssh2: while they are idle, and while all of
// them are at work. Prints one JSON object.
//
//   bench_scale PORT USER KEYFILE idle|work ours|plain|bare SESSIONS
//
// "plain" is a session without options. The server's key must be in ~/.ssh/known_hosts, and no
// agent is asked.
#include <SSHSession/Platform.h>
#include <SSHSession/RunLoop.h>
#include <SSHSession/SSHSession.h>

#include <fmt/format.h>
#include <libssh2.h>

#include <arpa/inet.h>
#include <linux/tcp.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

struct Server {
    std::uint16_t port;
    std::string user, keyFile;
};

void require(bool condition, const char *what) {
    if (!condition)
        throw std::runtime_error(what);
}

double since(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

class Session {
  public:
    Session() = default;
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;
    virtual ~Session() = default;
    virtual void runTrue() = 0;
    virtual void keepAlive() {} // of ours the main loop does
};

class Ours final : public Session {
  public:
    Ours(const Server &server, const SSHSessionOptions &options)
        : mSession(SSHSession::sessionWithHost("127.0.0.1", server.port, server.user, std::nullopt,
                                               server.keyFile, options)) {
        SSHErrorRef error;
        if (!mSession->start(&error))
            throw std::runtime_error(error ? error->text() : "refused");
    }
    ~Ours() override { mSession->stop(); }

    void runTrue() override {
        const auto command = std::make_shared<SSHCommand>();
        command->setCommand("true");
        require(mSession->execute(command, nullptr) && command->exitStatus() == 0, "command");
    }

  private:
    const std::shared_ptr<SSHSession> mSession;
};

// Straight on, blocking.
class Bare final : public Session {
  public:
    explicit Bare(const Server &server) : mSocket(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in peer{};
        peer.sin_family = AF_INET;
        peer.sin_port = htons(server.port);
        peer.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        require(::connect(mSocket, reinterpret_cast<const sockaddr *>(&peer), sizeof peer) == 0,
                "connect");
        const int on = 1;
        ::setsockopt(mSocket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        libssh2_session_flag(mSession, LIBSSH2_FLAG_COMPRESS, 1);
        require(libssh2_session_handshake(mSession, mSocket) == 0, "handshake");
        checkHostKey(server.port);
        require(libssh2_userauth_publickey_fromfile(mSession, server.user.c_str(), nullptr,
                                                    server.keyFile.c_str(), nullptr) == 0,
                "authentication");
    }
    ~Bare() override {
        libssh2_session_free(mSession);
        ::close(mSocket);
    }

    void runTrue() override {
        LIBSSH2_CHANNEL *const channel = libssh2_channel_open_session(mSession);
        require(channel && libssh2_channel_exec(channel, "true") == 0, "channel");
        std::array<char, 4096> piece{};
        while (libssh2_channel_read(channel, piece.data(), piece.size()) > 0) {
        }
        libssh2_channel_close(channel);
        require(libssh2_channel_get_exit_status(channel) == 0, "command");
        libssh2_channel_free(channel);
    }

    void keepAlive() override {
        constexpr auto passed = static_cast<unsigned>(-1 << 30); // an interval in the past
        libssh2_keepalive_config(mSession, 1, passed);
        require(libssh2_keepalive_send(mSession, nullptr) == 0, "keepalive");
    }

  private:
    void checkHostKey(std::uint16_t port) {
        std::size_t size = 0;
        int type = 0;
        const char *const key = libssh2_session_hostkey(mSession, &size, &type);
        LIBSSH2_KNOWNHOSTS *const hosts = libssh2_knownhost_init(mSession);
        const std::string file = std::string(std::getenv("HOME")) + "/.ssh/known_hosts";
        libssh2_knownhost_readfile(hosts, file.c_str(), LIBSSH2_KNOWNHOST_FILE_OPENSSH);
        const int result = libssh2_knownhost_checkp(
            hosts, "127.0.0.1", port, key, size,
            LIBSSH2_KNOWNHOST_TYPE_PLAIN | LIBSSH2_KNOWNHOST_KEYENC_RAW, nullptr);
        libssh2_knownhost_free(hosts);
        require(result == LIBSSH2_KNOWNHOST_CHECK_MATCH, "host key");
    }

    const int mSocket;
    LIBSSH2_SESSION *const mSession = libssh2_session_init();
};

// Keeps the sessions' timers back, so that all of them fall due together, in the built-in loop.
class HeldBackLoop final : public SSHPlatform::MainLoop {
  public:
    bool isMainThread() const noexcept override { return mLoop->isMainThread(); }
    bool runAndWait(const std::function<void()> &work) noexcept override {
        return mLoop->runAndWait(work);
    }
    std::shared_ptr<SSHPlatform::RepeatingTimer>
    scheduleRepeating(milliseconds /*interval*/, std::function<void()> action) noexcept override {
        mHeldBack.push_back(std::make_shared<Timer>(std::move(action)));
        return mHeldBack.back();
    }

    void begin(milliseconds interval) {
        for (const auto &timer : mHeldBack)
            timer->inLoop = mLoop->scheduleRepeating(interval, [timer] { timer->action(); });
    }
    void end() {
        for (const auto &timer : mHeldBack)
            timer->invalidate();
        mHeldBack.clear();
    }

  private:
    struct Timer final : SSHPlatform::RepeatingTimer {
        explicit Timer(std::function<void()> work) : action(std::move(work)) {}
        void invalidate() noexcept override {
            if (inLoop)
                std::exchange(inLoop, nullptr)->invalidate();
            action = nullptr;
        }
        std::function<void()> action;
        std::shared_ptr<SSHPlatform::RepeatingTimer> inLoop;
    };

    const std::shared_ptr<SSHPlatform::RunLoop> mLoop = SSHPlatform::RunLoop::main();
    std::vector<std::shared_ptr<Timer>> mHeldBack;
};

// The connections of this process to the server, whoever made them.
class Connections {
  public:
    explicit Connections(std::uint16_t port) {
        for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            const int descriptor = std::stoi(entry.path().filename());
            sockaddr_in peer{};
            socklen_t size = sizeof peer;
            if (::getpeername(descriptor, reinterpret_cast<sockaddr *>(&peer), &size) == 0 &&
                peer.sin_family == AF_INET && ntohs(peer.sin_port) == port)
                mSilent.emplace_back(descriptor, sentOn(descriptor));
        }
    }

    // How many of them have sent nothing since.
    std::size_t silent() {
        std::erase_if(mSilent, [](const auto &each) { return sentOn(each.first) > each.second; });
        return mSilent.size();
    }

  private:
    static std::uint32_t sentOn(int descriptor) {
        tcp_info info{};
        socklen_t size = sizeof info;
        ::getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size);
        return info.tcpi_data_segs_out;
    }

    std::vector<std::pair<int, std::uint32_t>> mSilent;
};

long threads() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::distance(begin(tasks), end(tasks));
}

struct Memory {
    long resident = 0, heap = 0;
};

Memory memory() {
    long pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    const auto heap = ::mallinfo2();
    return {pages * ::sysconf(_SC_PAGESIZE), static_cast<long>(heap.uordblks + heap.hblkhd)};
}

class Scale {
  public:
    Scale(Server server, std::string side)
        : mServer(std::move(server)), mSide(std::move(side)),
          mLoop(std::make_shared<HeldBackLoop>()) {
        require(mSide == "ours" || mSide == "plain" || mSide == "bare", "ours, plain or bare?");
        SSHPlatform::install(mLoop, nullptr);
        libssh2_init(0);
    }
    ~Scale() { mLoop->end(); }
    Scale(const Scale &) = delete;
    Scale &operator=(const Scale &) = delete;

    void measureIdle(std::size_t count) {
        connect(1); // which has what the first one alone costs
        const Memory before = memory();
        connect(count + 1);
        const Memory after = memory();
        const long threadsAtRest = threads();
        const auto share = [&](long Memory::*kind) {
            return (after.*kind - before.*kind) / static_cast<long>(count);
        };
        const Keepalives keepalives = sendKeepalives();
        fmt::print(
            R"({{"measure":"idle","side":"{}","sessions":{},"resident_bytes":{},"heap_bytes":{},)"
            R"("threads":{},"keepalive_seconds":{:.4f},"keepalive_threads":{},"not_sent":{}}})"
            "\n",
            mSide, count, share(&Memory::resident), share(&Memory::heap), threadsAtRest,
            keepalives.time, keepalives.threads, keepalives.notSent);
    }

    void measureWork(std::size_t count) {
        constexpr seconds length(5);
        connect(count);
        std::vector<std::size_t> commands(count);
        std::vector<std::thread> workers;
        const auto begin = Clock::now();
        for (std::size_t i = 0; i < count; ++i)
            workers.emplace_back([&, i] {
                while (Clock::now() < begin + length) {
                    mSessions[i]->runTrue();
                    ++commands[i];
                }
            });
        for (std::thread &worker : workers)
            worker.join();
        const double time = since(begin);
        std::sort(commands.begin(), commands.end());
        std::size_t all = 0;
        for (const std::size_t each : commands)
            all += each;
        const auto rate = [&](std::size_t each) { return static_cast<double>(each) / time; };
        fmt::print(R"({{"measure":"work","side":"{}","sessions":{},"seconds":{:.3f},)"
                   R"("commands_per_second":{:.1f},"per_session_minimum":{:.2f},)"
                   R"("per_session_median":{:.2f},"per_session_maximum":{:.2f},"processors":{}}})"
                   "\n",
                   mSide, count, time, rate(all), rate(commands.front()), rate(commands[count / 2]),
                   rate(commands.back()), std::thread::hardware_concurrency());
    }

  private:
    struct Keepalives {
        double time = 0; // from when they are due until all have been sent
        long threads = 0;
        std::size_t notSent = 0;
    };

    std::unique_ptr<Session> connected() const {
        if (mSide == "bare")
            return std::make_unique<Bare>(mServer);
        return std::make_unique<Ours>(mServer, mSide == "ours" ? SSHSessionOptions::recommended()
                                                               : SSHSessionOptions());
    }

    void connect(std::size_t count) {
        mSessions.reserve(count);
        while (mSessions.size() < count)
            mSessions.push_back(connected());
    }

    Keepalives sendKeepalives() {
        constexpr milliseconds ahead(1000);
        constexpr seconds longest(10);
        if (mSide != "bare") // which are due when the last message is 30 s old
            std::this_thread::sleep_for(seconds(31));
        Connections connections(mServer.port);
        const auto due = Clock::now() + ahead;
        if (mSide != "bare")
            mLoop->begin(ahead);
        Keepalives result;
        std::atomic<bool> isOver = false;
        std::thread observer([&] {
            std::this_thread::sleep_until(due);
            while ((result.notSent = connections.silent()) > 0 && Clock::now() < due + longest) {
                result.threads = std::max(result.threads, threads() - 1);
                std::this_thread::sleep_for(milliseconds(1));
            }
            result.time = since(due);
            isOver = true;
        });
        if (mSide == "bare") {
            std::this_thread::sleep_until(due);
            for (const auto &session : mSessions)
                session->keepAlive();
        }
        while (!isOver)
            SSHPlatform::RunLoop::main()->runFor(milliseconds(10));
        observer.join();
        return result;
    }

    const Server mServer;
    const std::string mSide;
    const std::shared_ptr<HeldBackLoop> mLoop;
    std::vector<std::unique_ptr<Session>> mSessions;
};

void allowManyDescriptors() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

} // namespace

int main(int argc, char **argv) try {
    const std::vector<std::string> words(argv + 1, argv + argc);
    require(words.size() == 6, "bench_scale PORT USER KEYFILE idle|work ours|plain|bare SESSIONS");
    allowManyDescriptors();
    ::unsetenv("SSH_AUTH_SOCK");
    Scale scale({static_cast<std::uint16_t>(std::stoi(words[0])), words[1], words[2]}, words[4]);
    const std::size_t count = std::stoul(words[5]);
    require(count > 0 && (words[3] == "idle" || words[3] == "work"), "idle or work? of how many?");
    words[3] == "idle" ? scale.measureIdle(count) : scale.measureWork(count);
    return 0;
} catch (const std::exception &failure) {
    fmt::print(stderr, "bench_scale: {}\n", failure.what());
    return 1;
}
