#include "Tests/Support/Relay.h"

#include <asio/ip/tcp.hpp>
#include <asio/packaged_task.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>

#include <fcntl.h>
#include <netinet/tcp.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

using asio::ip::tcp;
using Clock = std::chrono::steady_clock;
using Count = std::atomic<std::uint64_t>;

namespace {

constexpr std::size_t timestampOption = 12; // in every segment, beside the data

// What both ends agree on while they connect has to be set before. Programs that tests start
// inherit nothing: a descriptor of theirs would keep a connection open.
template <typename Socket>
void prepare(Socket &socket, const RelaySettings &settings) {
    const auto size = static_cast<int>(settings.bufferSize);
    socket.set_option(asio::socket_base::receive_buffer_size(size));
    socket.set_option(asio::socket_base::send_buffer_size(size));
    socket.set_option(tcp::no_delay(true));
    const auto segment = static_cast<int>(settings.segment + timestampOption);
    if (::setsockopt(socket.native_handle(), IPPROTO_TCP, TCP_MAXSEG, &segment, sizeof segment))
        throw std::system_error(errno, std::generic_category(), "TCP_MAXSEG");
    ::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
}

tcp::endpoint onLoopback(unsigned short port) {
    return {asio::ip::address_v4::loopback(), port};
}

enum class End { Orderly, Broken };

// One way through a connection. An empty packet is the end of the stream.
class Pipe {
  public:
    Pipe(tcp::socket &from, tcp::socket &to, const RelaySettings &settings, Count &carried,
         std::function<void(End)> whenOver)
        : mFrom(from), mTo(to), mSettings(settings), mCarried(carried),
          mWhenOver(std::move(whenOver)), mTimer(from.get_executor()) {}

    void read() {
        if (mIsReading || mHasEnded || mHeld >= capacity())
            return;
        mIsReading = true;
        mFresh.resize(mSettings.segment);
        mFrom.async_read_some(asio::buffer(mFresh),
                              [this](const asio::error_code &error, std::size_t size) {
                                  mIsReading = false;
                                  take(error, size);
                              });
    }

  private:
    struct Packet {
        std::vector<char> bytes;
        Clock::time_point due;
    };

    std::size_t capacity() const {
        const auto onItsWay = std::chrono::duration<double>(mSettings.delay).count() *
                              static_cast<double>(mSettings.bytesPerSecond);
        return mSettings.bufferSize + static_cast<std::size_t>(onItsWay);
    }

    void take(const asio::error_code &error, std::size_t size) {
        mHasEnded = error == asio::error::eof;
        if (error && !mHasEnded)
            return mWhenOver(End::Broken);
        mFresh.resize(size);
        mHeld += size;
        mLineFree = std::max(mLineFree, Clock::now()) + timeOnLine(size);
        mPackets.push_back({std::move(mFresh), mLineFree + mSettings.delay});
        write();
        read();
    }

    Clock::duration timeOnLine(std::size_t size) const {
        if (mSettings.bytesPerSecond == 0)
            return {};
        return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
            static_cast<double>(size) / static_cast<double>(mSettings.bytesPerSecond)));
    }

    void write() {
        if (mIsWriting || mPackets.empty())
            return;
        mIsWriting = true;
        mTimer.expires_at(mPackets.front().due);
        mTimer.async_wait([this](const asio::error_code &) { deliver(mPackets.front().bytes); });
    }

    void deliver(const std::vector<char> &bytes) {
        if (bytes.empty()) {
            asio::error_code ignored;
            mTo.shutdown(tcp::socket::shutdown_send, ignored);
            return mWhenOver(End::Orderly);
        }
        asio::async_write(mTo, asio::buffer(bytes),
                          [this](const asio::error_code &error, std::size_t size) {
                              mCarried += size;
                              mHeld -= size;
                              if (error)
                                  return mWhenOver(End::Broken);
                              mPackets.pop_front();
                              mIsWriting = false;
                              write();
                              read();
                          });
    }

    tcp::socket &mFrom;
    tcp::socket &mTo;
    const RelaySettings &mSettings;
    Count &mCarried;
    const std::function<void(End)> mWhenOver;
    asio::steady_timer mTimer;
    std::vector<char> mFresh;
    std::deque<Packet> mPackets;
    std::size_t mHeld = 0;
    Clock::time_point mLineFree; // when it will have sent what it was given
    bool mIsReading = false;
    bool mIsWriting = false;
    bool mHasEnded = false;
};

class Connection {
  public:
    Connection(tcp::socket client, unsigned short target, const RelaySettings &settings,
               Count &toServer, Count &toClient)
        : mClient(std::move(client)), mServer(mClient.get_executor(), tcp::v4()),
          mToServer(mClient, mServer, settings, toServer, [this](End how) { over(how); }),
          mToClient(mServer, mClient, settings, toClient, [this](End how) { over(how); }) {
        prepare(mServer, settings);
        ::fcntl(mClient.native_handle(), F_SETFD, FD_CLOEXEC);
        mServer.async_connect(onLoopback(target), [this](const asio::error_code &error) {
            if (error)
                return reset();
            mToServer.read();
            mToClient.read();
        });
    }

    void reset() {
        for (tcp::socket *const socket : {&mClient, &mServer}) {
            asio::error_code ignored;
            socket->set_option(asio::socket_base::linger(true, 0), ignored);
            socket->close(ignored);
        }
    }

  private:
    void over(End how) {
        if (how == End::Broken)
            return reset();
        if (++mOrderlyEnds < 2)
            return;
        mClient.close();
        mServer.close();
    }

    tcp::socket mClient;
    tcp::socket mServer;
    Pipe mToServer;
    Pipe mToClient;
    int mOrderlyEnds = 0;
};

} // namespace

class Relay::Line {
  public:
    Line(unsigned short target, const RelaySettings &settings)
        : mSettings(settings), mTarget(target), mAcceptor(mContext, tcp::v4()) {
        prepare(mAcceptor, mSettings);
        mAcceptor.bind(onLoopback(0));
        mAcceptor.listen();
        mPort = mAcceptor.local_endpoint().port();
        accept();
        mThread = std::thread([this] { mContext.run(); });
    }
    Line(const Line &) = delete;
    Line &operator=(const Line &) = delete;
    ~Line() { cut(); }

    // Whatever waits to be carried stays where it is, and so does who wants to connect.
    void cut() {
        const std::lock_guard lock(mMutex);
        if (!mThread.joinable())
            return;
        mContext.stop();
        mThread.join();
    }

    void reset() {
        const std::lock_guard lock(mMutex);
        const auto resetAll = [this] {
            for (const auto &connection : mConnections)
                connection->reset();
        };
        if (!mThread.joinable())
            return resetAll();
        asio::post(mContext, std::packaged_task<void()>(resetAll)).wait();
    }

    unsigned short port() const { return mPort; }
    void retarget(unsigned short target) { mTarget = target; }
    std::uint64_t bytesToServer() const { return mToServer; }
    std::uint64_t bytesToClient() const { return mToClient; }

  private:
    void accept() {
        mAcceptor.async_accept([this](const asio::error_code &error, tcp::socket client) {
            if (error)
                return;
            mConnections.push_back(std::make_unique<Connection>(std::move(client), mTarget.load(),
                                                                mSettings, mToServer, mToClient));
            accept();
        });
    }

    const RelaySettings mSettings;
    std::atomic<unsigned short> mTarget;
    Count mToServer = 0;
    Count mToClient = 0;
    asio::io_context mContext;
    tcp::acceptor mAcceptor;
    unsigned short mPort = 0;
    std::vector<std::unique_ptr<Connection>> mConnections; // those that are over, too
    std::mutex mMutex;                                     // of the thread's life
    std::thread mThread;
};

Relay::Relay(unsigned short target, const RelaySettings &settings)
    : mLine(std::make_unique<Line>(target, settings)) {}

Relay::~Relay() = default;

unsigned short Relay::port() const {
    return mLine->port();
}

void Relay::retarget(unsigned short target) {
    mLine->retarget(target);
}

void Relay::cut() {
    mLine->cut();
}

void Relay::reset() {
    mLine->reset();
}

std::uint64_t Relay::bytesToServer() const {
    return mLine->bytesToServer();
}

std::uint64_t Relay::bytesToClient() const {
    return mLine->bytesToClient();
}
