// System calls that this program's objects, and a statically linked libssh2, reach by way of the
// tests (the linker's --wrap): what cannot be seen or waited for otherwise.
#pragma once

#include <atomic>
#include <functional>

struct Wrapped {
    std::atomic<long> secondsAhead = 0; // time(2) as the library sees it, from the real one
    std::atomic<int> badCloses = 0;     // of descriptors that were not open
    std::atomic<int> plainPauses = 0;   // poll(2) that looks at no descriptor but the wake-up's
    std::atomic<int> inheritable = 0;   // sockets and files opened so that programs inherit them
    std::function<void()> beforeLookUp; // on the thread of the look-up
};

Wrapped &wrapped();
