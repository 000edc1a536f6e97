// The repeating timers of a main loop, which fires them when it runs. They are kept here and
// nowhere else, so that a timer that is invalidated is gone, also where the loop never runs.
#pragma once

#include <SSHSession/MainLoop.h>
#include <SSHSession/Mutex.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <utility>

namespace SSHPlatform {

// Any thread.
class TimerList : public std::enable_shared_from_this<TimerList> {
  public:
    using Clock = std::chrono::steady_clock;
    using Action = std::shared_ptr<const std::function<void()>>;

    std::shared_ptr<RepeatingTimer> add(std::chrono::milliseconds interval,
                                        std::function<void()> action);

    // What the timer that is due first has to do, once it is due; the timer's next interval begins.
    // Null while none is due.
    Action takeDue();

    // When the next one is due; the end of time when there is none.
    Clock::time_point nextDue() const;

  private:
    class Timer;
    using Id = std::uint64_t;
    struct Entry {
        std::chrono::milliseconds interval{0};
        Clock::time_point due;
        Action action;
    };

    void remove(Id id);

    mutable Mutex mMutex;
    Id mNextId SSHSESSION_GUARDED_BY(mMutex) = 0;
    std::map<Id, Entry> mEntries SSHSESSION_GUARDED_BY(mMutex);
    // All of them, the next one first.
    std::set<std::pair<Clock::time_point, Id>> mInTurn SSHSESSION_GUARDED_BY(mMutex);
};

} // namespace SSHPlatform
