#include "Tests/Support/Process.h"

#include "Tests/Support/TemporaryDirectory.h"

#include <asio/ip/tcp.hpp>
#include <fmt/format.h>

#include <fcntl.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <thread>

using asio::ip::tcp;

namespace {

std::vector<char *> pointersTo(std::vector<std::string> &words) {
    std::vector<char *> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string &word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    return pointers;
}

void check(int error, const char *what) {
    if (error != 0)
        throw std::system_error(error, std::generic_category(), what);
}

// By way of a shell, which redirects the streams.
pid_t spawn(std::vector<std::string> words, const std::string &in, const std::string &out,
            const std::string &err) {
    const auto script = fmt::format("exec \"$@\" <'{}' >>'{}' 2>>'{}'", in, out, err);
    words.insert(words.begin(), {"sh", "-c", script, "sh"});
    pid_t id = -1;
    check(::posix_spawnp(&id, "sh", nullptr, nullptr, pointersTo(words).data(), environ), "sh");
    return id;
}

} // namespace

Outcome runProcess(const std::vector<std::string> &arguments, const std::string &input) {
    const TemporaryDirectory files;
    const pid_t id =
        spawn(arguments, files.write("in", input), files.path("out"), files.path("err"));
    int status = 0;
    ::waitpid(id, &status, 0);
    status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return {status, contentOf(files.path("out")), contentOf(files.path("err"))};
}

std::string require(const std::vector<std::string> &arguments, const std::string &input) {
    const Outcome outcome = runProcess(arguments, input);
    if (outcome.status != 0)
        throw std::runtime_error(arguments[0] + ": " + outcome.errorOutput + outcome.output);
    return outcome.output;
}

Process::Process(const std::vector<std::string> &arguments, const std::string &logFile) {
    std::vector<std::string> words = arguments;
    words.insert(words.begin(), SSHSESSION_SUPERVISOR);
    std::array<int, 2> pipe{};
    // Closed in all other children, lest one of them keep this program alive.
    check(::pipe2(pipe.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe2");
    posix_spawn_file_actions_t streams;
    ::posix_spawn_file_actions_init(&streams);
    ::posix_spawn_file_actions_adddup2(&streams, pipe[0], STDIN_FILENO);
    ::posix_spawn_file_actions_addopen(&streams, STDOUT_FILENO, logFile.c_str(),
                                       O_WRONLY | O_CREAT | O_APPEND, S_IRUSR | S_IWUSR);
    ::posix_spawn_file_actions_adddup2(&streams, STDOUT_FILENO, STDERR_FILENO);
    const int error = ::posix_spawn(&mSupervisor, SSHSESSION_SUPERVISOR, &streams, nullptr,
                                    pointersTo(words).data(), environ);
    ::posix_spawn_file_actions_destroy(&streams);
    ::close(pipe[0]);
    mLifeline = pipe[1];
    check(error, SSHSESSION_SUPERVISOR);
    ++instances;
}

Process::~Process() {
    --instances;
    ::close(mLifeline);
    if (isRunning())
        ::waitpid(mSupervisor, nullptr, 0);
}

bool Process::isRunning() {
    mHasEnded = mHasEnded || ::waitpid(mSupervisor, nullptr, WNOHANG) != 0;
    return !mHasEnded;
}

bool eventually(const std::function<bool()> &condition, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

unsigned short freePort() {
    asio::io_context context;
    const tcp::endpoint any(asio::ip::address_v4::loopback(), 0);
    return tcp::acceptor(context, any, false).local_endpoint().port();
}

bool isRoot() {
    return ::geteuid() == 0;
}

std::size_t heapSize() {
#if defined(__GLIBC__)
    return ::mallinfo2().uordblks;
#else
    return 0;
#endif
}
