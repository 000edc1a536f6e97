#include "Platform/TimerList.h"

#include <utility>

namespace SSHPlatform {

class TimerList::Timer final : public RepeatingTimer {
  public:
    Timer(std::weak_ptr<TimerList> list, Id id) : mList(std::move(list)), mId(id) {}

    void invalidate() noexcept override {
        if (const auto list = mList.lock())
            list->remove(mId);
    }

  private:
    const std::weak_ptr<TimerList> mList;
    const Id mId;
};

std::shared_ptr<RepeatingTimer> TimerList::add(std::chrono::milliseconds interval,
                                               std::function<void()> action) {
    const MutexLock lock(mMutex);
    const Id id = mNextId++;
    const Clock::time_point due = Clock::now() + interval;
    mEntries[id] = {interval, due,
                    std::make_shared<const std::function<void()>>(std::move(action))};
    mInTurn.emplace(due, id);
    return std::make_shared<Timer>(weak_from_this(), id);
}

TimerList::Action TimerList::takeDue() {
    const auto now = Clock::now();
    const MutexLock lock(mMutex);
    if (mInTurn.empty() || mInTurn.begin()->first > now)
        return nullptr;
    auto turn = mInTurn.extract(mInTurn.begin());
    Entry &entry = mEntries.at(turn.value().second);
    turn.value().first = entry.due = now + entry.interval;
    mInTurn.insert(std::move(turn));
    return entry.action;
}

TimerList::Clock::time_point TimerList::nextDue() const {
    const MutexLock lock(mMutex);
    return mInTurn.empty() ? Clock::time_point::max() : mInTurn.begin()->first;
}

// The action may hold the last reference to something that uses this list: it goes after the lock.
void TimerList::remove(Id id) {
    decltype(mEntries)::node_type removed;
    const MutexLock lock(mMutex);
    removed = mEntries.extract(id);
    if (removed)
        mInTurn.erase({removed.mapped().due, id});
}

} // namespace SSHPlatform
