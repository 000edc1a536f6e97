#include "Platform/Terminal/TerminalLine.h"

#include <SSHSession/Secret.h>

#include "Platform/Terminal/SignalWatch.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <mutex>

namespace SSHPlatform {

namespace {

class Terminal {
  public:
    Terminal() : mDescriptor(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)) {}
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;
    ~Terminal() {
        if (isOpen())
            ::close(mDescriptor);
    }

    bool isOpen() const { return mDescriptor >= 0; }
    int descriptor() const { return mDescriptor; }

    void write(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t written = ::write(mDescriptor, text.data(), text.size());
            if (written > 0)
                text.remove_prefix(static_cast<std::size_t>(written));
            else if (written == 0 || errno != EINTR)
                return;
        }
    }

  private:
    const int mDescriptor;
};

// Whole lines, with or without echo, for as long as it lives; forgets what nobody has read, first
// and last.
class LineMode {
  public:
    LineMode(const Terminal &terminal, Echo echo, const SignalWatch &signals)
        : mTerminal(terminal), mSignals(signals) {
        if (::tcgetattr(mTerminal.descriptor(), &mBefore) != 0)
            return;
        termios mode = mBefore;
        mode.c_iflag |= ICRNL;
        mode.c_lflag |= ICANON;
        if (echo == Echo::Off)
            mode.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
        mIsSet = set(mode);
    }
    LineMode(const LineMode &) = delete;
    LineMode &operator=(const LineMode &) = delete;
    ~LineMode() {
        if (mIsSet)
            set(mBefore);
    }

    bool isSet() const { return mIsSet; }

  private:
    // In the background every attempt is answered by a signal.
    bool set(const termios &mode) const {
        int result = 0;
        do {
            result = ::tcsetattr(mTerminal.descriptor(), TCSAFLUSH, &mode);
        } while (result != 0 && errno == EINTR && !mSignals.hasSeenStop());
        return result == 0;
    }

    const Terminal &mTerminal;
    const SignalWatch &mSignals;
    termios mBefore{};
    bool mIsSet = false;
};

// What ends the wait for a line.
struct Interruptions {
    const SignalWatch &signals;
    const int withdrawal; // a descriptor
};

// Waits for what the user types; answers false when an interruption comes first.
bool waitForInput(const Terminal &terminal, const Interruptions &by) {
    std::array<pollfd, 3> sources{{{terminal.descriptor(), POLLIN, 0},
                                   {by.signals.descriptor(), POLLIN, 0},
                                   {by.withdrawal, POLLIN, 0}}};
    while (::poll(sources.data(), sources.size(), -1) < 0 && errno == EINTR &&
           !by.signals.hasSeenAny())
        ;
    return !by.signals.hasSeenAny() && sources[2].revents == 0;
}

// Into room for it all, so that no secret is left behind by growing.
Secret readLine(const Terminal &terminal, const Interruptions &by) {
    Secret line = Secret::none();
    std::array<char, longestTerminalLine + 2> buffer{};
    std::size_t size = 0;
    while (size < buffer.size() && waitForInput(terminal, by)) {
        const ssize_t count =
            ::read(terminal.descriptor(), buffer.data() + size, buffer.size() - size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        size += static_cast<std::size_t>(count);
        const std::string_view typed(buffer.data(), size);
        if (!typed.ends_with('\n'))
            continue;
        if (size - 1 <= longestTerminalLine)
            line = Secret::of(typed.substr(0, size - 1));
        break;
    }
    wipe(buffer.data(), buffer.size());
    return line;
}

Secret ask(const Terminal &terminal, std::string_view prompt, Echo echo, const Interruptions &by) {
    const LineMode mode(terminal, echo, by.signals);
    if (!mode.isSet())
        return Secret::none();
    terminal.write(prompt);
    Secret line = readLine(terminal, by);
    if (!line || echo == Echo::Off) // the user's own line end has not been shown
        terminal.write("\n");
    return line;
}

} // namespace

void writeToTerminal(std::string_view text) {
    const Terminal terminal;
    if (terminal.isOpen())
        terminal.write(text);
}

Secret readLineFromTerminal(std::string_view prompt, Echo echo, int withdrawal) {
    static std::mutex oneAtATime;
    const std::lock_guard lock(oneAtATime);
    const Terminal terminal;
    if (!terminal.isOpen())
        return Secret::none();
    Secret line = Secret::none();
    bool wasStopped = false;
    do {
        const SignalWatch signals;
        line = ask(terminal, prompt, echo, {.signals = signals, .withdrawal = withdrawal});
        wasStopped = signals.hasSeenStop();
    } while (!line && wasStopped);
    return line;
}

} // namespace SSHPlatform
