// Runs a program for a test, and ends it, with all that it has started, when standard input ends:
// the other end is the test's alone, and closes however the test dies.
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#if defined(__linux__)
#include <sys/prctl.h>
#endif

namespace {

#if defined(__linux__)

// Orphans come to this process, also those that have left the program's process group.
void adoptOrphans() {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
}

// Whatever else the test has open is closed when the test closes it.
void closeOthers() {
    ::close_range(STDERR_FILENO + 1, ~0U, 0);
}

void endWithParent() {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
}

pid_t parentOf(const std::filesystem::path &process) {
    std::ifstream file(process / "stat"); // as in "1 (name) S 0 ..."
    std::string text;
    std::getline(file, text, '\0'); // nothing of a process that is gone by now
    std::istringstream rest(text.substr(text.rfind(')') + 1));
    char state = 0;
    pid_t parent = 0;
    rest >> state >> parent;
    return parent;
}

std::vector<pid_t> children() {
    std::vector<pid_t> ids;
    for (const auto &entry : std::filesystem::directory_iterator("/proc"))
        if (parentOf(entry.path()) == ::getpid())
            ids.push_back(std::stoi(entry.path().filename()));
    return ids;
}

#else

void adoptOrphans() {}
void closeOthers() {}
void endWithParent() {}
std::vector<pid_t> children() {
    return {};
}

#endif

[[noreturn]] void become(char **arguments, const sigset_t &mask) {
    endWithParent();
    ::setpgid(0, 0);
    ::sigprocmask(SIG_SETMASK, &mask, nullptr);
    ::close(STDIN_FILENO);
    ::open("/dev/null", O_RDONLY);
    ::execvp(arguments[0], arguments);
    std::perror(arguments[0]);
    ::_exit(127);
}

// Until the program has ended, or nobody wants it any more.
void waitFor(pid_t program, const sigset_t &mask) {
    pollfd test = {STDIN_FILENO, POLLIN, 0};
    do {
        for (pid_t id = 1; id > 0;) {
            id = ::waitpid(-1, nullptr, WNOHANG);
            if (id == program)
                return;
        }
    } while (::ppoll(&test, 1, nullptr, &mask) < 0 && errno == EINTR);
}

// Each that ends may leave orphans, which are ended next.
void endAll(pid_t program) {
    ::kill(-program, SIGKILL);
    const auto end = [](pid_t id) { return ::kill(id, SIGKILL) == 0; };
    for (auto ids = children(); std::count_if(ids.begin(), ids.end(), end) > 0; ids = children()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        while (::waitpid(-1, nullptr, WNOHANG) > 0)
            continue;
    }
}

} // namespace

int main(int /*count*/, char **arguments) {
    ::setsid(); // a key that interrupts the test leaves this alone
    adoptOrphans();
    closeOthers();
    sigset_t child;
    sigset_t mask;
    ::sigemptyset(&child);
    ::sigaddset(&child, SIGCHLD);
    ::sigprocmask(SIG_BLOCK, &child, &mask);
    std::signal(SIGCHLD, [](int) {});
    const pid_t program = ::fork();
    if (program == 0)
        become(arguments + 1, mask);
    waitFor(program, mask);
    endAll(program);
}
