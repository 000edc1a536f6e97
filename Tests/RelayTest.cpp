// That what tests of bad links stand on is one.
#include "Tests/Support/Relay.h"
#include "Tests/Support/Process.h"

#include <asio/ip/tcp.hpp>
#include <asio/read.hpp>
#include <asio/write.hpp>

#include <netinet/tcp.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>

using asio::ip::tcp;

namespace {

const asio::socket_base::receive_buffer_size small(8192);

struct Server {
    Server() { acceptor.set_option(small); }
    asio::io_context context;
    tcp::acceptor acceptor{context, {asio::ip::address_v4::loopback(), 0}};
    unsigned short port() const { return acceptor.local_endpoint().port(); }
};

std::string received(tcp::socket &socket, std::size_t size) {
    std::string text(size, '\0');
    asio::read(socket, asio::buffer(text));
    return text;
}

asio::error_code endOf(tcp::socket &socket) {
    std::string text;
    asio::error_code error;
    asio::read(socket, asio::dynamic_buffer(text), error);
    return error;
}

} // namespace

TEST(RelayTest, CarriesInSegmentsAndHoldsLittle) {
    Server server;
    const Relay relay(server.port(),
                      {.bytesPerSecond = 1 << 22, .delay = std::chrono::milliseconds(5)});
    tcp::socket client(server.context);
    client.connect({asio::ip::address_v4::loopback(), relay.port()});
    tcp::socket peer = server.acceptor.accept();

    const std::string question(100'000, 'q');
    std::thread asking([&] { asio::write(client, asio::buffer(question)); });
    EXPECT_EQ(received(peer, question.size()), question);
    asking.join();
    asio::write(peer, asio::buffer("answer", 6));
    EXPECT_EQ(received(client, 6), "answer");
    EXPECT_TRUE(eventually(
        [&] { return relay.bytesToServer() == question.size() && relay.bytesToClient() == 6; }));
    for (tcp::socket *const end : {&client, &peer}) {
        int segment = 0;
        socklen_t size = sizeof segment;
        ::getsockopt(end->native_handle(), IPPROTO_TCP, TCP_MAXSEG, &segment, &size);
        EXPECT_EQ(segment, 1448);
    }

    // While nobody reads, the buffers of both ends and no more than some of the relay's fill up.
    client.set_option(asio::socket_base::send_buffer_size(8192));
    const std::string flood(1 << 20, 'x');
    std::size_t sent = 0;
    client.non_blocking(true);
    EXPECT_FALSE(eventually(
        [&] {
            asio::error_code full;
            sent += client.write_some(asio::buffer(flood), full);
            return sent > 125'000;
        },
        std::chrono::milliseconds(100)))
        << sent;
    peer.shutdown(tcp::socket::shutdown_send);
    client.non_blocking(false);
    EXPECT_EQ(endOf(client), asio::error::eof);
}

TEST(RelayTest, FailsInTheWaysOfALink) {
    Server server;
    Server other;
    Relay relay(server.port());
    tcp::socket client(server.context);
    client.connect({asio::ip::address_v4::loopback(), relay.port()});
    tcp::socket peer = server.acceptor.accept();

    relay.retarget(other.port());
    tcp::socket later(server.context);
    later.connect({asio::ip::address_v4::loopback(), relay.port()});
    tcp::socket otherPeer = other.acceptor.accept();
    relay.reset();
    for (tcp::socket *const end : {&client, &peer, &later, &otherPeer})
        EXPECT_EQ(endOf(*end), asio::error::connection_reset);

    tcp::socket last(server.context);
    last.connect({asio::ip::address_v4::loopback(), relay.port()});
    tcp::socket lastPeer = other.acceptor.accept();
    relay.cut();
    asio::write(last, asio::buffer("lost", 4));
    lastPeer.close();
    last.non_blocking(true);
    EXPECT_FALSE(eventually(
        [&] { return relay.bytesToServer() > 0 || endOf(last) != asio::error::would_block; },
        std::chrono::milliseconds(100)));
}
