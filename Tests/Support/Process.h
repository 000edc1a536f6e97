// Child processes that do not outlive their object, nor this process, however it ends.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

struct Outcome {
    int status = 0; // as a shell gives it: 128 + the signal's number for a death by signal
    std::string output;
    std::string errorOutput;
};

// Runs a program to its end, with `input` on its standard input.
Outcome runProcess(const std::vector<std::string> &arguments, const std::string &input = "");

// The same, and an exception with the program's standard error unless its status is 0.
std::string require(const std::vector<std::string> &arguments, const std::string &input = "");

// A program in the background, killed in the end with all that it has started. A process that is
// killed, or crashes, takes its programs along.
class Process {
  public:
    // Standard input is empty; standard output and error go to `logFile`.
    Process(const std::vector<std::string> &arguments, const std::string &logFile);
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;
    ~Process();

    bool isRunning();

    // How many of these there are. Each keeps one descriptor of this process open.
    static std::size_t count() { return instances; }

  private:
    static inline std::atomic<std::size_t> instances = 0;

    pid_t mSupervisor = -1;
    int mLifeline = -1; // while this is open, the supervisor lets the program run
    bool mHasEnded = false;
};

// Polls until `condition` holds; answers false when it still does not at the deadline.
bool eventually(const std::function<bool()> &condition,
                std::chrono::milliseconds timeout = std::chrono::seconds(10));

// A TCP port on loopback that nobody uses at this moment.
unsigned short freePort();

bool isRoot();

// Bytes in use on the heap, where the C library tells; else 0. The sanitizers' heaps do not.
std::size_t heapSize();
