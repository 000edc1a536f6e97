// A link between client and server on loopback that is as slow, as far and as unreliable as a real
// one: loopback itself has segments of 64 KiB, buffers of megabytes and never fails.
#pragma once

#include <asio/ip/tcp.hpp>

#include <atomic>
#include <chrono>
#include <list>
#include <mutex>
#include <thread>

struct RelaySettings {
    double bytesPerSecond = 1e12;       // each way, at most
    std::chrono::milliseconds delay{0}; // each way, after a silence
    // Of the relay and of each of its sockets, in bytes; the system may make twice as much of it.
    std::size_t bufferSize = 8192;
};

// From a port of its own to the port `target`, both on loopback. Resets what is open when it ends.
class Relay {
  public:
    explicit Relay(unsigned short target, const RelaySettings &settings = {});
    unsigned short port() const { return mListener.local_endpoint().port(); }

    // Any thread:
    void retarget(unsigned short target) { mTarget = target; } // where later connections lead
    void cut() { mIsCut = true; } // carries nothing any more and closes nothing, for good
    void reset();                 // resets the open connections at both ends

  private:
    struct Line {
        asio::ip::tcp::socket client;
        asio::ip::tcp::socket server;
        std::jthread toServer;
        std::jthread toClient;
    };

    void accept(const std::stop_token &stop);
    void carry(const std::stop_token &stop, asio::ip::tcp::socket &from,
               asio::ip::tcp::socket &to) const;
    bool waitFor(const std::stop_token &stop, int descriptor, short event) const;

    const RelaySettings mSettings;
    std::atomic<unsigned short> mTarget;
    std::atomic<bool> mIsCut = false;
    asio::io_context mContext;
    asio::ip::tcp::acceptor mListener;
    std::mutex mMutex; // of the lines
    std::list<Line> mLines;
    std::jthread mThread;
};
