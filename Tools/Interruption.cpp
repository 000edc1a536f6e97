#include "Interruption.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace {

constexpr std::array endingSignals = {SIGINT, SIGTERM, SIGHUP};

// All that a handler can reach.
volatile std::sig_atomic_t caught = 0;
volatile std::sig_atomic_t wakeDescriptor = -1;

void set(void (*handler)(int)) {
    for (const int signal : endingSignals)
        if (std::signal(signal, handler) == SIG_IGN)
            std::signal(signal, SIG_IGN);
}

void handle(int signal) {
    const int number = errno;
    caught = signal;
    set(SIG_DFL); // the next one has its usual effect
    [[maybe_unused]] const ssize_t written = ::write(wakeDescriptor, "c", 1);
    errno = number;
}

} // namespace

Interruption::Interruption(const std::shared_ptr<SSHSession> &session) {
    if (::pipe(mPipe.data()) != 0)
        return; // then a signal ends the process, as ever
    for (const int end : mPipe)
        ::fcntl(end, F_SETFD, FD_CLOEXEC);
    try {
        mThread = std::thread([session, descriptor = mPipe[0]] {
            char why = 0;
            while (::read(descriptor, &why, 1) < 0 && errno == EINTR)
                ;
            if (why == 'c')
                session->cancel();
        });
    } catch (const std::system_error &) { // no thread to be had: the same
        for (const int end : mPipe)
            ::close(end);
        return;
    }
    wakeDescriptor = mPipe[1];
    set(handle);
}

Interruption::~Interruption() {
    if (!mThread.joinable())
        return;
    set(SIG_DFL);
    [[maybe_unused]] const ssize_t written = ::write(mPipe[1], "e", 1);
    mThread.join();
    wakeDescriptor = -1;
    for (const int end : mPipe)
        ::close(end);
}

void Interruption::willBeginStage(SSHSession &session, SSHSessionStage /*stage*/) noexcept {
    if (caught != 0)
        session.cancel();
}

void Interruption::didEndStage(SSHSession &session, SSHSessionStage stage,
                               bool /*succeeded*/) noexcept {
    willBeginStage(session, stage);
}

void Interruption::takeEffect() {
    if (caught == 0)
        return;
    std::signal(caught, SIG_DFL);
    ::raise(caught);
}
