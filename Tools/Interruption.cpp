#include "Interruption.h"

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>

#include <atomic>
#include <csignal>
#include <thread>

namespace {

bool isIgnored(int signal) {
    struct sigaction current {};
    return ::sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_IGN;
}

} // namespace

struct Interruption::State {
    std::atomic<int> signal = 0;
    asio::io_context context;
    asio::signal_set signals{context};
    std::thread thread;
};

Interruption::Interruption(const std::shared_ptr<SSHSession> &session)
    : mState(std::make_unique<State>()) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        if (!isIgnored(signal))
            mState->signals.add(signal);
    mState->signals.async_wait([state = mState.get(), session](auto failure, int signal) {
        if (failure)
            return;
        state->signal = signal;
        state->signals.clear(); // the next one has its usual effect
        session->cancel();
    });
    mState->thread = std::thread([state = mState.get()] { state->context.run(); });
}

Interruption::~Interruption() {
    mState->context.stop();
    mState->thread.join();
}

void Interruption::willBeginStage(SSHSession &session, SSHSessionStage /*stage*/) noexcept {
    if (mState->signal != 0)
        session.cancel();
}

void Interruption::takeEffect() const {
    if (mState->signal == 0)
        return;
    std::signal(mState->signal, SIG_DFL);
    ::raise(mState->signal);
}
