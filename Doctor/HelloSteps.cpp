// What the server says in the clear: that it speaks SSH, and with which algorithms.
#include "Doctor/Steps.h"

#include "Doctor/Examination.h"
#include "Platform/Socket.h"
#include "Session/LibraryAlgorithms.h"
#include "Session/Negotiation.h"
#include "Session/ServerHello.h"

#include <libssh2.h>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>

namespace SSHEngine {

using SSHPlatform::WaitFor;
using std::chrono::milliseconds;

namespace {

#ifndef MSG_NOSIGNAL
#define MSG_NOSIGNAL 0 // SO_NOSIGPIPE serves instead
#endif

// Servers of other kinds say nothing before they are spoken to.
void greet(int socket) {
    constexpr std::string_view version = LIBSSH2_SSH_BANNER "\r\n";
    [[maybe_unused]] const ssize_t sent =
        ::send(socket, version.data(), version.size(), MSG_NOSIGNAL);
}

// Answers whether the server has hung up.
bool listen(const Examination &examination, ServerHello &hello) {
    const int socket = examination.socket.get();
    const auto begin = TimeBudget::Clock::now();
    std::array<char, 4096> bytes{};
    while (!hello.isOver()) {
        const auto spent =
            std::chrono::duration_cast<milliseconds>(TimeBudget::Clock::now() - begin);
        const auto time =
            std::max(examination.facts.options.handshakeTimeout - spent, milliseconds(0));
        if (SSHPlatform::waitForSocket(socket, WaitFor::Reading, examination.budget.left(time),
                                       examination.budget.wakeup()) <= 0)
            return false;
        const ssize_t count = ::recv(socket, bytes.data(), bytes.size(), 0);
        if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR))
            return true;
        if (count > 0)
            hello.take({bytes.data(), static_cast<std::size_t>(count)});
    }
    return false;
}

SSHErrorCause causeOf(const SSHServerFacts &server) {
    constexpr std::string_view begin = "SSH-";
    const std::string_view lines = server.linesBefore;
    if (!lines.empty() && !lines.starts_with(begin) && !begin.starts_with(lines))
        return SSHErrorCause::NotSSH;
    return server.hasHungUp ? SSHErrorCause::ClosedEarly : SSHErrorCause::HandshakeTimedOut;
}

struct SessionEnd {
    void operator()(LIBSSH2_SESSION *session) const { libssh2_session_free(session); }
};

SSHAlgorithms knownAlgorithms() {
    const std::unique_ptr<LIBSSH2_SESSION, SessionEnd> session(libssh2_session_init());
    return session ? allLibraryAlgorithms(session.get()) : SSHAlgorithms();
}

using Names = std::vector<std::string>;

struct Kind {
    const char *name;
    Names SSHAlgorithms::*names;
};

// What is the same in both directions with every server of today is told once.
constexpr std::array kinds = {
    Kind{"key exchange", &SSHAlgorithms::keyExchange},
    Kind{"host key", &SSHAlgorithms::hostKey},
    Kind{"cipher", &SSHAlgorithms::cipherToServer},
    Kind{"MAC", &SSHAlgorithms::macToServer},
    Kind{"compression", &SSHAlgorithms::compressionToServer},
};

Names inCommon(const Names &known, const Names &offered) {
    Names common;
    std::copy_if(known.begin(), known.end(), std::back_inserter(common), [&](const auto &name) {
        return std::find(offered.begin(), offered.end(), name) != offered.end();
    });
    return common;
}

std::string commonText(const SSHAlgorithms &known, const SSHAlgorithms &offer) {
    std::vector<std::string> texts;
    for (const Kind &kind : kinds) {
        const Names common = inCommon(known.*kind.names, offer.*kind.names);
        if (!common.empty())
            texts.push_back(fmt::format("{} {}", kind.name, common.front()));
    }
    return fmt::format("Something of each kind in common, first of all {}.",
                       fmt::join(texts, ", "));
}

} // namespace

void examineFirstWords(Examination &examination) {
    ServerHello hello;
    greet(examination.socket.get());
    const bool hasHungUp = listen(examination, hello);
    examination.socket = OwnSocket();
    SSHServerFacts &server = examination.facts.server = hello.facts();
    server.hasHungUp = hasHungUp;
    examination.isHelloOver = hello.isOver();
    if (server.version.empty())
        return examination.failBy(causeOf(server), SSHSessionStage::Handshake);
    if (!server.version.starts_with("SSH-2.") && !server.version.starts_with("SSH-1.99"))
        return examination.failBy(SSHErrorCause::NotSSH, SSHSessionStage::Handshake);
    if (!server.linesBefore.empty())
        examination.note("Before its version the server says " + inQuotes(server.linesBefore) +
                         ".");
    examination.ok("The server says " + inQuotes(server.version) + ".");
    examination.reached |= Examination::SpeaksSSH;
}

void examineAlgorithms(Examination &examination) {
    examination.facts.known = knownAlgorithms();
    const std::optional<SSHAlgorithms> &offer = examination.facts.server.offer;
    if (!offer && examination.isHelloOver) { // what was said instead, a handshake tells
        examination.reached |= Examination::HasAlgorithms;
        return examination.note("The server has not told its algorithms.");
    }
    if (!offer)
        return examination.failBy(examination.facts.server.hasHungUp
                                      ? SSHErrorCause::ConnectionLost
                                      : SSHErrorCause::HandshakeTimedOut,
                                  SSHSessionStage::Handshake);
    if (const auto cause = nothingInCommon(examination.facts.known, *offer))
        return examination.failBy(*cause, SSHSessionStage::Handshake);
    examination.ok(commonText(examination.facts.known, *offer));
    examination.reached |= Examination::HasAlgorithms;
}

} // namespace SSHEngine
