#include "Waiting.h"

#include "Output.h"

#include <SSHSession/SSHWaiting.h>

#include <array>
#include <cstdio>
#include <string>
#include <system_error>
#include <utility>

namespace {

constexpr std::chrono::seconds untilFirstWord(10);
constexpr std::chrono::seconds untilNextWord(60);
constexpr std::chrono::seconds lookEvery(1);
constexpr std::size_t longTransfer = 4'000'000;

std::string megabytes(std::size_t bytes) {
    constexpr double million = 1e6;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f", static_cast<double>(bytes) / million);
    return text.data();
}

std::string progressText(const SSHCommandFacts &command) {
    std::string text;
    if (command.hasInput)
        text = megabytes(command.inputBytes) + " MB sent, ";
    return text + megabytes(command.outputBytes) + " MB received";
}

} // namespace

Waiting::Waiting(std::shared_ptr<SSHSession> session, bool showsProgress)
    : mSession(std::move(session)), mShowsProgress(showsProgress) {
    try {
        mThread = std::thread([this] { watch(); });
    } catch (const std::system_error &) { // no thread to be had: then in silence
    }
}

Waiting::~Waiting() {
    {
        const std::lock_guard lock(mMutex);
        mHasEnded = true;
    }
    mEnds.notify_one();
    if (mThread.joinable())
        mThread.join();
    hideProgress();
}

void Waiting::watch() {
    std::unique_lock lock(mMutex);
    while (!mEnds.wait_for(lock, lookEvery, [this] { return mHasEnded; })) {
        lock.unlock();
        look();
        lock.lock();
    }
}

void Waiting::look() {
    const SSHFacts facts = mSession->facts();
    if (facts.isUserAsked || !facts.isStageUnderWay || facts.command.isHeldUp)
        return;
    if (facts.stage == SSHSessionStage::Execute && mShowsProgress)
        showProgress(facts.command);
    // Output shows that the command is at work, and when it pauses.
    if (facts.command.outputBytes == 0 || facts.command.waitsForSudo)
        tellSilence(facts);
}

void Waiting::tellSilence(const SSHFacts &facts) {
    const Clock::time_point since = SSHWaitingSince(facts);
    if (std::exchange(mSilentSince, since) != since)
        mNextWord = since + untilFirstWord;
    const Clock::time_point now = Clock::now();
    if (now < mNextWord)
        return;
    mNextWord = now + untilNextWord;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - since).count();
    tell("Still waiting " + SSHWaitingText(facts) + " (" + std::to_string(seconds) + " s).");
}

void Waiting::showProgress(const SSHCommandFacts &command) {
    const std::size_t moved = command.outputBytes + command.inputBytes;
    if (std::exchange(mMoved, moved) == moved)
        hideProgress();
    else if (moved >= longTransfer)
        ::showProgress(progressText(command));
}
