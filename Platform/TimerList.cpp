#include "Platform/TimerList.h"

#include <algorithm>
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
    mEntries[id] = {interval, Clock::now() + interval,
                    std::make_shared<const std::function<void()>>(std::move(action))};
    return std::make_shared<Timer>(weak_from_this(), id);
}

TimerList::Action TimerList::takeDue() {
    const auto now = Clock::now();
    const MutexLock lock(mMutex);
    const auto first =
        std::min_element(mEntries.begin(), mEntries.end(),
                         [](const auto &a, const auto &b) { return a.second.due < b.second.due; });
    if (first == mEntries.end() || first->second.due > now)
        return nullptr;
    first->second.due = now + first->second.interval;
    return first->second.action;
}

TimerList::Clock::time_point TimerList::nextDue() const {
    auto next = Clock::time_point::max();
    const MutexLock lock(mMutex);
    for (const auto &[id, entry] : mEntries)
        next = std::min(next, entry.due);
    return next;
}

// The action may hold the last reference to something that uses this list: it goes after the lock.
void TimerList::remove(Id id) {
    decltype(mEntries)::node_type removed;
    const MutexLock lock(mMutex);
    removed = mEntries.extract(id);
}

} // namespace SSHPlatform
