// A link between client and server on loopback that is as slow, as far and as unreliable as a real
// one: loopback itself has segments of 64 KiB, buffers of megabytes and never fails.
#pragma once

#include <asio/ip/tcp.hpp>

#include <array>
#include <atomic>
#include <chrono>
#include <list>
#include <mutex>
#include <optional>
#include <thread>

struct RelaySettings {
    double bytesPerSecond = 1e12;       // each way, at most
    std::chrono::milliseconds delay{0}; // each way, after a silence
    // Of the relay and of each of its sockets, in bytes; the system may make twice as much of it.
    std::size_t bufferSize = 8192;
    std::optional<unsigned> seed = std::nullopt; // for pieces of random sizes, mostly small ones

    // What happens, once, when so many bytes have been carried in one direction.
    enum class End { Never, Cut, Reset, Close };
    End end = End::Never;
    bool isEndToServer = false; // else to the client
    std::size_t bytesBeforeEnd = 0;
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
    std::size_t carried(bool toServer) const { return toServer ? mCarried[1] : mCarried[0]; }
    bool hasEnded() const { return mHasEnded; } // as the settings say

  private:
    struct Line {
        asio::ip::tcp::socket client;
        asio::ip::tcp::socket server;
        std::jthread toServer;
        std::jthread toClient;
    };

    void accept(const std::stop_token &stop);
    void carry(const std::stop_token &stop, asio::ip::tcp::socket &from, asio::ip::tcp::socket &to,
               bool toServer);
    bool waitFor(const std::stop_token &stop, int descriptor, short event) const;

    const RelaySettings mSettings;
    std::atomic<unsigned short> mTarget;
    std::atomic<bool> mIsCut = false;
    std::atomic<bool> mHasEnded = false;
    std::atomic<bool> mIsResetDue = false;
    std::array<std::atomic<std::size_t>, 2> mCarried = {}; // to the client, to the server
    asio::io_context mContext;
    asio::ip::tcp::acceptor mListener;
    std::mutex mMutex; // of the lines
    std::list<Line> mLines;
    std::jthread mThread;
};
