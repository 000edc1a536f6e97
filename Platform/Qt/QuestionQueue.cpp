#include "Platform/Qt/QuestionQueue.h"

#include <utility>

namespace SSHPlatform {

bool QuestionQueue::ask(const std::function<void()> &work, const std::function<void()> &wake) {
    Question question{.work = &work};
    MutexLock lock(mMutex);
    if (mHasEnded)
        return false;
    mWaiting.push_back(&question);
    wake();
    while (question.state == State::Waiting)
        mAnswered.wait(lock);
    return question.state == State::Done;
}

void QuestionQueue::askHere(const std::function<void()> &work, const std::function<void()> &wake) {
    MutexLock lock(mMutex);
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
    MutexLock lock(mMutex);
    if (std::exchange(mIsServing, true))
        return;
    while (!mWaiting.empty()) {
        Question *const question = mWaiting.front();
        mWaiting.pop_front();
        lock.unlock();
        (*question->work)();
        lock.lock();
        question->state = State::Done;
        mAnswered.notifyAll();
    }
    mIsServing = false;
}

void QuestionQueue::end() {
    const MutexLock lock(mMutex);
    mHasEnded = true;
    for (Question *const question : mWaiting)
        question->state = State::SentAway;
    mWaiting.clear();
    mAnswered.notifyAll();
}

bool QuestionQueue::hasEnded() const {
    const MutexLock lock(mMutex);
    return mHasEnded;
}

} // namespace SSHPlatform
