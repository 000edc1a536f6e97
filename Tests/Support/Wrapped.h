// Calls that this program's objects, and a statically linked libssh2, reach by way of the tests
// (the linker's --wrap): what cannot be seen, waited for or made to fail otherwise.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

// The calls from number `first` on, `times` of them, are not made and answer at once.
struct Fault {
    std::string function;
    int first = 1;
    int times = 1;
    // What a function of libssh2 answers, or leaves behind as its last error where it answers a
    // pointer, which is null then; errno of a system call.
    int result = 0;
};

struct Wrapped {
    std::atomic<long> secondsAhead = 0; // time(2) as the library sees it, from the real one
    std::atomic<int> badCloses = 0;     // of descriptors that were not open
    std::atomic<int> plainPauses = 0;   // poll(2) that looks at no descriptor but the wake-up's
    std::atomic<int> inheritable = 0;   // sockets and files opened so that programs inherit them
    std::function<void()> beforeLookUp; // on the thread of the look-up
    std::vector<std::string> addresses; // that every name has, where there are any

    // Forgets what was counted, and from here on has the fault, if any.
    void inject(const Fault &fault = {});
    std::map<std::string, int> calls() const;
    // Of the sessions of libssh2 that begin while this is set: how many succeed before one fails.
    std::optional<int> goodAllocations;
    std::atomic<int> allocations = 0;
    std::atomic<int> liveAllocations = 0;

    bool shouldFail(const char *function);
    int result() const { return mFault.result; }

  private:
    mutable std::mutex mMutex;
    std::map<std::string, int> mCalls;
    Fault mFault;
};

Wrapped &wrapped();
