#include "Tests/Support/Process.h"

#include "Tests/Support/TemporaryDirectory.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace {

pid_t spawn(const std::vector<std::string> &arguments, const std::string &input,
            const std::string &output, const std::string &errorOutput) {
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    const int create = O_WRONLY | O_CREAT | O_APPEND;
    ::posix_spawn_file_actions_addopen(&actions, 0, input.c_str(), O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), create, 0600);
    ::posix_spawn_file_actions_addopen(&actions, 2, errorOutput.c_str(), create, 0600);
    std::vector<char *> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t id = -1;
    const int failure = ::posix_spawnp(&id, argv[0], &actions, nullptr, argv.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (failure != 0)
        throw std::system_error(failure, std::generic_category(), arguments[0]);
    return id;
}

int shellStatus(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

class LoopbackSocket {
  public:
    explicit LoopbackSocket(unsigned short port) : descriptor(::socket(AF_INET, SOCK_STREAM, 0)) {
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    LoopbackSocket(const LoopbackSocket &) = delete;
    LoopbackSocket &operator=(const LoopbackSocket &) = delete;
    ~LoopbackSocket() { ::close(descriptor); }

    sockaddr *generic() { return reinterpret_cast<sockaddr *>(&address); }

    const int descriptor;
    sockaddr_in address{};
};

} // namespace

Outcome runProcess(const std::vector<std::string> &arguments, const std::string &input) {
    const TemporaryDirectory files;
    const pid_t id =
        spawn(arguments, files.write("in", input), files.path("out"), files.path("err"));
    int status = 0;
    ::waitpid(id, &status, 0);
    return {shellStatus(status), contentOf(files.path("out")), contentOf(files.path("err"))};
}

std::string require(const std::vector<std::string> &arguments) {
    Outcome outcome = runProcess(arguments);
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
    LoopbackSocket socket(0);
    socklen_t length = sizeof socket.address;
    if (::bind(socket.descriptor, socket.generic(), length) != 0 ||
        ::getsockname(socket.descriptor, socket.generic(), &length) != 0)
        throw std::system_error(errno, std::generic_category(), "free port");
    return ntohs(socket.address.sin_port);
}

bool accepts(unsigned short port) {
    LoopbackSocket socket(port);
    return ::connect(socket.descriptor, socket.generic(), sizeof socket.address) == 0;
}

bool isRoot() {
    return ::geteuid() == 0;
}
