#include "Fuzz/Support/Shell.h"

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

namespace {

using namespace std::string_view_literals;

// Were the quoting wrong, an input would be run: so the shell may neither start a program nor write
// a file, and is nobody where it would be root.
[[noreturn]] void become(int socket, const char *program) {
    constexpr unsigned nobody = 65534;
    constexpr rlimit none = {0, 0};
    ::dup2(socket, STDIN_FILENO);
    ::dup2(socket, STDOUT_FILENO);
    ::setenv("LC_ALL", "C.UTF-8", 1);
    ::setenv("PATH", "/nonexistent", 1);
    if (::chdir("/") != 0 ||
        (::geteuid() == 0 && (::setgid(nobody) != 0 || ::setuid(nobody) != 0)) ||
        ::setrlimit(RLIMIT_FSIZE, &none) != 0 || ::setrlimit(RLIMIT_NPROC, &none) != 0)
        ::_exit(1);
    ::execl(program, program, "-s", nullptr);
    ::_exit(1);
}

// libFuzzer has an alarm go off every few seconds.
template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR)
        result = call();
    return result;
}

class Shell {
  public:
    explicit Shell(const char *program, std::string preamble = "")
        : mName(program), mPreamble(std::move(preamble)) {
        std::array<int, 2> ends{};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
            return;
        if (::fork() == 0)
            become(ends[1], program);
        ::close(ends[1]);
        mSocket = ends[0]; // the shell ends with this process, at the end of its input
    }

    bool reads(std::string_view words, const std::vector<std::string> &expected) {
        write(std::exchange(mPreamble, ""));
        write("set -- ");
        write(words);
        write("\nprintf '%s\\000' \"$#\" \"$@\" end\n");
        std::string answer = std::to_string(expected.size()) + '\0';
        for (const std::string &word : expected)
            answer += word + '\0';
        answer += "end\0"sv;
        const std::string got = read(answer.size());
        if (got != answer)
            std::fprintf(stderr, "%s reads %.*s\nas %s\n", mName, static_cast<int>(words.size()),
                         words.data(), got.c_str());
        return got == answer;
    }

  private:
    void write(std::string_view bytes) const {
        while (!bytes.empty()) {
            const ssize_t written = uninterrupted(
                [&] { return ::send(mSocket, bytes.data(), bytes.size(), MSG_NOSIGNAL); });
            if (written <= 0)
                return; // read() then finds nothing
            bytes.remove_prefix(static_cast<std::size_t>(written));
        }
    }

    std::string read(std::size_t count) const {
        constexpr int patience = 5000; // ms
        std::string bytes(count, '\0');
        std::size_t size = 0;
        pollfd readable = {mSocket, POLLIN, 0};
        while (size < count && uninterrupted([&] { return ::poll(&readable, 1, patience); }) > 0) {
            const ssize_t got = uninterrupted(
                [&] { return ::recv(mSocket, bytes.data() + size, count - size, 0); });
            if (got <= 0)
                break;
            size += static_cast<std::size_t>(got);
        }
        bytes.resize(size);
        return bytes;
    }

    const char *mName;
    std::string mPreamble;
    int mSocket = -1;
};

constexpr const char *sh = "/bin/sh";
constexpr const char *bash = "/bin/bash";

bool hasBash() {
    return ::access(bash, X_OK) == 0;
}

} // namespace

bool everyShellReads(std::string_view words, const std::vector<std::string> &expected) {
    static Shell first(sh);
    static std::optional<Shell> second;
    if (!second && hasBash())
        second.emplace(bash);
    return first.reads(words, expected) && (!second || second->reads(words, expected));
}

bool historyShellReads(std::string_view words, const std::vector<std::string> &expected) {
    static std::optional<Shell> shell;
    if (!shell && hasBash())
        shell.emplace(bash, "HISTSIZE=1; set -o history; set -H\n");
    return !shell || shell->reads(words, expected);
}
