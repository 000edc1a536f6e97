#include "Output.h"

#include "Failure.h"

#include <SSHSession/TerminalPrompts.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

namespace {

// Answers 0 or an errno value. Whoever shares the stream may have made it non-blocking.
int writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            pollfd writable = {descriptor, POLLOUT, 0};
            ::poll(&writable, 1, -1);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

// Of the progress line that stands on the terminal, 0 for none.
struct Progress {
    std::mutex mutex;
    std::size_t width = 0; // guarded by it
};

Progress &progress() {
    static Progress value;
    return value;
}

void tellInPlaceOfProgress(const std::string &text) {
    const std::lock_guard lock(progress().mutex);
    const std::size_t width = std::exchange(progress().width, 0);
    const std::string blank = width == 0 ? "" : '\r' + std::string(width, ' ') + '\r';
    writeAll(STDERR_FILENO, blank + text);
}

void require(int number, const std::string &stream) {
    if (number != 0)
        throw Failure("Could not write to standard " + stream + ": " +
                      std::generic_category().message(number) + ".");
}

} // namespace

std::size_t columns(int descriptor) {
    constexpr std::size_t usual = 80;
    winsize size{};
    return ::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usual;
}

void reserveStandardStreams() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (::fcntl(descriptor, F_GETFD) == -1)
            ::open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

void writeOutput(std::string_view bytes) {
    require(writeAll(STDOUT_FILENO, bytes), "output");
}

void writeErrorOutput(std::string_view bytes) {
    require(writeAll(STDERR_FILENO, bytes), "error");
}

void requireOutput(int number) {
    require(number, "output");
}

void requireErrorOutput(int number) {
    require(number, "error");
}

bool isFile(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

bool hasRoom(int descriptor) {
    pollfd writable = {descriptor, POLLOUT, 0};
    return ::poll(&writable, 1, 0) != 0;
}

ssize_t writeSome(int descriptor, std::string_view bytes) {
    constexpr int patience = 200; // milliseconds
    // A pipe that can be written to at all takes this much without waiting for more room.
    const std::size_t most = isFile(descriptor) ? bytes.size() : PIPE_BUF;
    pollfd writable = {descriptor, POLLOUT, 0};
    const int ready = ::poll(&writable, 1, patience);
    const ssize_t written =
        ready > 0 ? ::write(descriptor, bytes.data(), std::min(bytes.size(), most)) : ready;
    return written >= 0 || errno == EAGAIN || errno == EINTR ? std::max<ssize_t>(written, 0)
                                                             : -errno;
}

void finishOutput() {
    require(::close(STDOUT_FILENO) == 0 ? 0 : errno, "output");
}

void tellText(std::string_view text) noexcept {
    const std::size_t end = text.find_last_not_of('\n') + 1;
    tellInPlaceOfProgress(SSHPlatform::printableText(text.substr(0, end), "\t\n") + "\n");
}

void tell(std::string_view line) noexcept {
    tellInPlaceOfProgress("sshsession: " + SSHPlatform::printableText(line, "\t") + "\n");
}

void showProgress(std::string_view line) noexcept {
    const std::lock_guard lock(progress().mutex);
    line = line.substr(0, columns(STDERR_FILENO) -
                              1); // what has gone on to another line cannot be taken back
    const std::size_t width = std::max(progress().width, line.size());
    progress().width = line.size();
    writeAll(STDERR_FILENO, '\r' + std::string(line) + std::string(width - line.size(), ' '));
}

void hideProgress() noexcept {
    tellInPlaceOfProgress("");
}
