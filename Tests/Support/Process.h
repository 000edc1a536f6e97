// Child processes that do not outlive their object, nor this process, however it ends.
#pragma once

#include <unistd.h>

#include <atomic>
#include <cstdio>
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

// A program in the background, killed in the end with all of its process group. A process that is
// killed, or crashes, takes its programs along.
class Process {
  public:
    // Standard input is empty; standard output and error go to `logFile`.
    Process(const std::vector<std::string> &arguments, const std::string &logFile);
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;
    ~Process();

    // Each of these keeps one descriptor of this process open.
    static inline std::atomic<std::size_t> count = 0;

  private:
    std::FILE *mLifeline = nullptr; // while this is open, the program may run
};

// Polls until `condition` holds; answers false when it still does not at the deadline.
bool eventually(const std::function<bool()> &condition);

inline bool isRoot() {
    return ::geteuid() == 0;
}

// Bytes in use on the heap, where the C library tells; else 0. The sanitizers' heaps do not.
std::size_t heapSize();
