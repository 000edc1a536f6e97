#include "Platform/Qt/QuestionQueue.h"

#include <utility>

namespace SSHPlatform {

bool QuestionQueue::ask(const std::function<void()> &work, const std::function<void()> &wake) {
    Question question{.work = &work};
    std::unique_lock lock(mMutex);
    if (mHasEnded)
        return false;
    mWaiting.push_back(&question);
    wake();
    mAnswered.wait(lock, [&] { return question.state != State::Waiting; });
    return question.state == State::Done;
}

void QuestionQueue::askHere(const std::function<void()> &work, const std::function<void()> &wake) {
    std::unique_lock lock(mMutex);
    const bool wasServing = std::exchange(mIsServing, true);
    lock.unlock();
    work();
    lock.lock();
    mIsServing = wasServing;
    const bool isSomebodyLeft = !wasServing && !mWaiting.empty();
    lock.unlock();
    if (isSomebodyLeft)
        wake();
}

void QuestionQueue::serve() {
    std::unique_lock lock(mMutex);
    if (std::exchange(mIsServing, true))
        return;
    while (!mWaiting.empty()) {
        Question *const question = mWaiting.front();
        mWaiting.pop_front();
        lock.unlock();
        (*question->work)();
        lock.lock();
        question->state = State::Done;
        mAnswered.notify_all();
    }
    mIsServing = false;
}

void QuestionQueue::end() {
    const std::lock_guard lock(mMutex);
    mHasEnded = true;
    for (Question *const question : mWaiting)
        question->state = State::SentAway;
    mWaiting.clear();
    mAnswered.notify_all();
}

bool QuestionQueue::hasEnded() const {
    const std::lock_guard lock(mMutex);
    return mHasEnded;
}

} // namespace SSHPlatform
