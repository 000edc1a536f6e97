// A link between client and server on loopback that is as slow, as far and as unreliable as a real
// one: loopback itself has segments of 64 KiB, buffers of megabytes and never fails.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

struct RelaySettings {
    std::size_t segment = 1448;         // bytes of data in a TCP segment, to and from both ends
    std::size_t bytesPerSecond = 0;     // each way; 0: no limit
    std::chrono::milliseconds delay{0}; // each way
    // Bytes, each way: what the relay holds beyond what is on its way, and each of its sockets'
    // buffers, of which the system may make twice as much. A sender whose reader sleeps gets rid of
    // these and of what fits into its own buffer, no more; without a limit on the rate, this much
    // goes through in each delay.
    std::size_t bufferSize = 8192;
};

// Counts among the process's descriptors, and ends with the object: connections that are still open
// are closed then. Throws std::system_error when there is no socket to be had.
class Relay {
  public:
    // `target` is the server's port on loopback.
    explicit Relay(unsigned short target, const RelaySettings &settings = {});
    Relay(const Relay &) = delete;
    Relay &operator=(const Relay &) = delete;
    ~Relay();

    // Where clients connect to.
    unsigned short port() const;

    // Any thread, and done when it returns:
    void retarget(unsigned short target); // where later connections lead
    void cut();                           // carries nothing any more and closes nothing, for good
    void reset();                         // resets the open connections at both ends

    // Bytes of all connections that the relay has handed on, counted a moment later.
    std::uint64_t bytesToServer() const;
    std::uint64_t bytesToClient() const;

  private:
    class Line;
    std::unique_ptr<Line> mLine;
};
