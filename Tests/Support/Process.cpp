#include "Tests/Support/Process.h"

#include "Tests/Support/TemporaryDirectory.h"

#include <fmt/format.h>

#if defined(__GLIBC__)
#include <malloc.h>
#endif
#include <sys/wait.h>

#include <regex>
#include <thread>

namespace {

// For the shell.
std::string quoted(const std::vector<std::string> &words) {
    std::string text;
    for (const std::string &word : words)
        text += " '" + std::regex_replace(word, std::regex("'"), R"('\'')") + "'";
    return text;
}

} // namespace

Outcome runProcess(const std::vector<std::string> &arguments, const std::string &input) {
    const TemporaryDirectory files;
    const auto command =
        fmt::format("exec {} <'{}' >'{}' 2>'{}'", quoted(arguments), files.write("in", input),
                    files.path("out"), files.path("err"));
    const int end = std::system(command.c_str());
    return {WIFSIGNALED(end) ? 128 + WTERMSIG(end) : WEXITSTATUS(end), contentOf(files.path("out")),
            contentOf(files.path("err"))};
}

std::string require(const std::vector<std::string> &arguments, const std::string &input) {
    const Outcome outcome = runProcess(arguments, input);
    if (outcome.status != 0)
        throw std::runtime_error(arguments[0] + ": " + outcome.errorOutput + outcome.output);
    return outcome.output;
}

// Beside the program, in the same process group, a shell waits for the end of the pipe whose other
// end is the test's alone.
Process::Process(const std::vector<std::string> &arguments, const std::string &logFile) {
    const std::string program = R"((read line; kill -KILL 0) <&3 & exec "$0" "$@" 3<&-)";
    const auto command = fmt::format("exec setsid sh -c '{}'{} 3<&0 </dev/null >>'{}' 2>&1",
                                     program, quoted(arguments), logFile);
    mLifeline = ::popen(command.c_str(), "we");
    ++count;
}

Process::~Process() {
    --count;
    ::pclose(mLifeline);
}

bool eventually(const std::function<bool()> &condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    bool holds = condition();
    for (; !holds && std::chrono::steady_clock::now() < deadline; holds = condition())
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return holds;
}

std::size_t heapSize() {
#if defined(__GLIBC__)
    return ::mallinfo2().uordblks;
#else
    return 0;
#endif
}
