// A queue that runs closures one at a time, strictly first in, first out.
//
// A synchronous closure runs on its caller's own thread when its turn has come; an asynchronous one
// runs on a worker thread that is started when there is work and ends when there is none, so that
// an idle queue costs no thread. What an asynchronous closure captured is released only after the
// worker has left the queue for good: a last reference in there may itself wait on the queue.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace SSHPlatform {

class SerialQueue {
  public:
    // `label` names the queue in the report of a programming error.
    explicit SerialQueue(std::string label);

    // Does not wait: closures that are already queued still run.
    ~SerialQueue();

    SerialQueue(const SerialQueue &) = delete;
    SerialQueue &operator=(const SerialQueue &) = delete;

    // Runs `work` on the calling thread after everything that was queued before, and returns when
    // it is done. Calling this from a closure of the same queue could never return; it ends the
    // process with a report instead.
    void sync(const std::function<void()> &work) noexcept;

    // Queues `work` and returns at once. When the system has no thread for it, `work` is dropped
    // and released instead, and the log says so.
    void async(std::function<void()> work) noexcept;

    bool isCurrent() const noexcept;

  private:
    struct State;
    std::shared_ptr<State> mState;
};

} // namespace SSHPlatform
