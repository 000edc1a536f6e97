#include "Tests/Support/Relay.h"

#include <fcntl.h>
#include <netinet/tcp.h>
#include <poll.h>

#include <algorithm>
#include <random>
#include <vector>

using asio::ip::tcp;
using Seconds = std::chrono::duration<double>;

namespace {

// What both ends agree on while they connect has to be set before. Programs that tests start
// inherit nothing: a descriptor of theirs would keep a connection open.
template <typename Socket>
void prepare(Socket &socket, std::size_t bufferSize) {
    socket.set_option(asio::socket_base::receive_buffer_size(static_cast<int>(bufferSize)));
    socket.set_option(asio::socket_base::send_buffer_size(static_cast<int>(bufferSize)));
    socket.non_blocking(true);
    const int segment = 1448 + 12; // of data, and the timestamp in each
    ::setsockopt(socket.native_handle(), IPPROTO_TCP, TCP_MAXSEG, &segment, sizeof segment);
    const linger none = {1, 0}; // to be closed is to be reset
    ::setsockopt(socket.native_handle(), SOL_SOCKET, SO_LINGER, &none, sizeof none);
    ::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
}

} // namespace

Relay::Relay(unsigned short target, const RelaySettings &settings)
    : mSettings(settings), mTarget(target), mListener(mContext, tcp::v4()) {
    prepare(mListener, mSettings.bufferSize);
    mListener.bind({asio::ip::address_v4::loopback(), 0});
    mListener.listen();
    mThread = std::jthread([this](const std::stop_token &stop) { accept(stop); });
}

void Relay::accept(const std::stop_token &stop) {
    while (!stop.stop_requested()) {
        if (mIsResetDue.exchange(false))
            reset();
        pollfd entry = {mListener.native_handle(), POLLIN, 0};
        if (mIsCut || ::poll(&entry, 1, 5) <= 0)
            continue;
        tcp::socket client = mListener.accept();
        tcp::socket server(mContext, tcp::v4());
        prepare(client, mSettings.bufferSize);
        prepare(server, mSettings.bufferSize);
        asio::error_code refused;
        if (server.connect({asio::ip::address_v4::loopback(), mTarget}, refused))
            continue;
        const std::lock_guard lock(mMutex);
        mLines.push_back({std::move(client), std::move(server), {}, {}});
        Line &line = mLines.back();
        line.toServer =
            std::jthread([&, this](auto end) { carry(end, line.client, line.server, true); });
        line.toClient =
            std::jthread([&, this](auto end) { carry(end, line.server, line.client, false); });
    }
}

void Relay::carry(const std::stop_token &stop, tcp::socket &from, tcp::socket &to, bool toServer) {
    using End = RelaySettings::End;
    std::minstd_rand random(mSettings.seed.value_or(0) + (toServer ? 1 : 0));
    std::atomic<std::size_t> &carried = mCarried[toServer ? 1 : 0];
    const bool hasEnd = mSettings.end != End::Never && mSettings.isEndToServer == toServer;
    std::vector<char> piece(mSettings.bufferSize);
    asio::error_code over;
    while (!over) {
        if (hasEnd && carried >= mSettings.bytesBeforeEnd && !mHasEnded.exchange(true)) {
            mIsCut = mSettings.end == End::Cut;
            mIsResetDue = mSettings.end == End::Reset;
            if (mSettings.end != End::Close)
                return;
            break;
        }
        Seconds pause = from.available(over) > 0 ? Seconds(0) : mSettings.delay;
        if (!waitFor(stop, from.native_handle(), POLLIN))
            return;
        std::size_t most = piece.size();
        if (mSettings.seed)
            most = random() % 3 == 0 ? random() % most + 1 : random() % 20 + 1;
        if (hasEnd && !mHasEnded)
            most = std::min(most, mSettings.bytesBeforeEnd - carried);
        const std::size_t size = from.read_some(asio::buffer(piece.data(), most), over);
        pause += Seconds(static_cast<double>(size) / mSettings.bytesPerSecond);
        std::this_thread::sleep_for(pause);
        for (std::size_t sent = 0;
             sent < size && !over && waitFor(stop, to.native_handle(), POLLOUT);)
            sent += to.write_some(asio::buffer(piece.data() + sent, size - sent), over);
        carried += size;
    }
    to.shutdown(tcp::socket::shutdown_send, over);
}

// Until the event, or the end of the connection.
bool Relay::waitFor(const std::stop_token &stop, int descriptor, short event) const {
    pollfd entry = {descriptor, event, 0};
    while (!stop.stop_requested() && !mIsCut)
        if (::poll(&entry, 1, 5) > 0)
            return true;
    return false;
}

void Relay::reset() {
    const std::lock_guard lock(mMutex);
    mLines.clear();
}
