#include "Tests/Support/Process.h"

#include "Tests/Support/TemporaryDirectory.h"

#include <asio/ip/tcp.hpp>
#include <fmt/format.h>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <system_error>
#include <thread>

using asio::ip::tcp;

namespace {

// By way of a shell, which redirects the streams.
pid_t spawn(std::vector<std::string> words, const std::string &in, const std::string &out,
            const std::string &err) {
    const auto script = fmt::format("exec \"$@\" <'{}' >>'{}' 2>>'{}'", in, out, err);
    words.insert(words.begin(), {"sh", "-c", script, "sh"});
    std::vector<char *> argv;
    argv.reserve(words.size() + 1);
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t id = -1;
    if (const int failure = ::posix_spawnp(&id, "sh", nullptr, nullptr, argv.data(), environ))
        throw std::system_error(failure, std::generic_category(), "sh");
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

Process::Process(const std::vector<std::string> &arguments, const std::string &logFile)
    : mId(spawn(arguments, "/dev/null", logFile, logFile)) {}

Process::~Process() {
    if (!isRunning())
        return;
    ::kill(mId, SIGTERM);
    if (!eventually([this] { return !isRunning(); }, std::chrono::seconds(5))) {
        ::kill(mId, SIGKILL);
        ::waitpid(mId, nullptr, 0);
    }
}

bool Process::isRunning() {
    mHasEnded = mHasEnded || ::waitpid(mId, nullptr, WNOHANG) != 0;
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
