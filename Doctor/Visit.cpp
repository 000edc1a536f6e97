#include "Doctor/Visit.h"

#include "Platform/Socket.h"
#include "Platform/Text.h"
#include "Session/Causes.h"
#include "Session/ErrorReporting.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

namespace SSHEngine {

using SSHPlatform::WaitFor;

namespace {

// What a session does that never asks is the same with all of these, but for the keepalive, which
// has a step of its own, and for a password that answers a question once at most.
SSHSessionOptions optionsOf(const Patient &patient) {
    SSHSessionOptions options = patient.options;
    options.watchesConnection = true;
    options.asksServersQuestions = true;
    options.asksForPassword = false;
    options.tellsBanners = true;
    options.endsInputOnce = true;
    return options;
}

// Of a visit that has taken too long.
Ending endingOf(SSHSessionStage stage) {
    switch (stage) {
    case SSHSessionStage::Agent:
    case SSHSessionStage::Authenticate:
        return Ending::SlowLogIn;
    case SSHSessionStage::Execute:
        return Ending::SlowCommand;
    default:
        return Ending::SlowHandshake;
    }
}

} // namespace

Inspector::Inspector(const Patient &patient)
    : SSHSession_libssh2(patient.host, patient.port, patient.user, patient.password,
                         patient.keyFilePath, optionsOf(patient)) {
    asksNobody = true;
}

OwnSocket beginToConnect(const Address &address) {
    OwnSocket socket(SSHPlatform::openSocket(address.family()));
    if (socket.get() < 0)
        return socket;
    const int on = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
#ifdef SO_NOSIGPIPE
    ::setsockopt(socket.get(), SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
    ::fcntl(socket.get(), F_SETFL, O_NONBLOCK);
    if (::connect(socket.get(), address.get(), address.size) == 0 || errno == EINPROGRESS ||
        errno == EINTR)
        return socket;
    const int number = errno;
    socket = OwnSocket();
    errno = number;
    return socket;
}

int finishConnecting(const OwnSocket &socket, const TimeBudget &budget,
                     std::chrono::milliseconds most) {
    const int ready = SSHPlatform::waitForSocket(socket.get(), WaitFor::Writing, budget.left(most),
                                                 budget.wakeup());
    if (ready <= 0)
        return ready == 0 ? ETIMEDOUT : errno;
    int number = 0;
    socklen_t size = sizeof number;
    return ::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &number, &size) == 0 ? number : errno;
}

Visit::Visit(const Examination &examination, std::chrono::milliseconds most)
    : engine(std::make_shared<Inspector>(examination.patient)),
      connection(engine->beginConnection()), mExamination(examination) {
    mLimit.emplace(examination.budget, most,
                   [this] { connection->shutDown(endingOf(connection->notes->facts().stage)); });
}

Visit::~Visit() {
    mLimit.reset();
    engine->stop();
}

bool Visit::connect(SSHErrorRef *error) {
    OwnSocket socket = beginToConnect(*mExamination.address);
    const int number =
        socket.get() < 0 ? errno
                         : finishConnecting(socket, mExamination.budget, std::chrono::seconds(30));
    if (number != 0)
        return fail(error, [&] {
            return connectionError(*engine, SSHPlatform::errnoText(number), number,
                                   causeOfConnecting(number));
        });
    ::fcntl(socket.get(), F_SETFL, ::fcntl(socket.get(), F_GETFL) & ~O_NONBLOCK);
    connection->adoptSocket(socket.release());
    return true;
}

bool Visit::shakeHands() {
    SSHErrorRef error;
    if (connect(&error))
        return run(SSHSessionStage::Handshake, &SSHSession_libssh2::_startSession);
    connection->notes->note([&](SSHFacts &facts) {
        facts.stage = SSHSessionStage::Connect;
        facts.error = error;
    });
    return false;
}

bool Visit::run(SSHSessionStage stage,
                bool (SSHSession_libssh2::*operation)(Connection &, SSHErrorRef *)) {
    connection->noteProgress();
    connection->notes->note([&](SSHFacts &facts) { facts.stage = stage; });
    SSHErrorRef error;
    const bool succeeded = ((*engine).*operation)(*connection, &error);
    if (!succeeded && connection->isShutDown()) // whatever the server seems to have done then
        error = ended({}, causeOfEnding(connection->ending()), stage).error;
    connection->notes->note([&](SSHFacts &facts) {
        if (!succeeded && error)
            facts.error = error;
    });
    return succeeded;
}

SSHFacts Visit::facts() const {
    SSHFacts facts = connection->notes->facts();
    facts.addresses = mExamination.facts.addresses;
    facts.local = mExamination.facts.local;
    facts.options = mExamination.facts.options;
    facts.options.logInTimeout = facts.options.commandTimeout = {}; // the visit's own limit holds
    facts.isStageUnderWay = false;
    if (facts.server.version.empty())
        facts.server = mExamination.facts.server;
    return facts;
}

} // namespace SSHEngine
