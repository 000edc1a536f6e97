#include "Session/SSHSession_libssh2.h"

#include "Platform/Assertion.h"
#include "Platform/Path.h"
#include "Platform/Text.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/LocalFacts.h"
#include "Session/TimeLimit.h"

#include <chrono>
#include <cstdio>
#include <utility>

using SSHEngine::Ending;
using SSHEngine::TimeLimit;
using SSHPlatform::MutexLock;

namespace {

const std::string isConnectedKey = "isConnected";

std::optional<std::string> expanded(std::optional<std::string> path) {
    if (path)
        path = SSHPlatform::expandingTilde(*path);
    return path;
}

SSHSessionOptions expanded(SSHSessionOptions options) {
    for (std::string &path : options.furtherKeyFiles)
        path = SSHPlatform::expandingTilde(path);
    return options;
}

void setUpLibraryOnce() {
    static const int result = [] {
        const int code = libssh2_init(0);
        if (code != 0)
            std::fprintf(stderr, "libssh2_init failed with %d", code);
        return code;
    }();
    static_cast<void>(result);
}

// That there are none is no failure: the library's last one stays what it was.
std::string bannersOf(LIBSSH2_SESSION *session) {
    char *text = nullptr;
    const int code = libssh2_session_last_error(session, &text, nullptr, 0);
    const std::string message = text ? text : "";
    text = nullptr;
#if LIBSSH2_VERSION_NUM >= 0x010b00
    libssh2_userauth_banner(session, &text);
#endif
    if (!text)
        libssh2_session_set_last_error(session, code, message.c_str());
    return text ? text : std::string();
}

void noteBegin(SSHEngine::Notes &notes, SSHSessionStage stage) {
    notes.note([stage](SSHFacts &facts) {
        facts.stage = stage;
        facts.isStageUnderWay = true;
        facts.stageBegin = std::chrono::steady_clock::now();
        if (stage != SSHSessionStage::Execute)
            return;
        facts.command = SSHCommandFacts();
        facts.error = nullptr;
    });
}

void noteEnd(SSHEngine::Notes &notes, const SSHErrorRef &error) {
    notes.note([&](SSHFacts &facts) {
        facts.isStageUnderWay = false;
        facts.error = error;
    });
}

} // namespace

std::shared_ptr<SSHSession>
SSHSession::sessionWithHost(std::optional<std::string> host, std::uint16_t port,
                            std::optional<std::string> user, std::optional<std::string> password,
                            std::optional<std::string> keyFilePath) noexcept {
    return sessionWithHost(std::move(host), port, std::move(user), std::move(password),
                           std::move(keyFilePath), SSHSessionOptions());
}

std::shared_ptr<SSHSession> SSHSession::sessionWithHost(std::optional<std::string> host,
                                                        std::uint16_t port,
                                                        std::optional<std::string> user,
                                                        std::optional<std::string> password,
                                                        std::optional<std::string> keyFilePath,
                                                        const SSHSessionOptions &options) noexcept {
    return sessionWithHost(std::move(host), port, std::move(user),
                           SSHPlatform::Secret::takenFrom(password), std::move(keyFilePath),
                           options);
}

std::shared_ptr<SSHSession> SSHSession::sessionWithHost(std::optional<std::string> host,
                                                        std::uint16_t port,
                                                        std::optional<std::string> user,
                                                        SSHPlatform::Secret password,
                                                        std::optional<std::string> keyFilePath,
                                                        const SSHSessionOptions &options) noexcept {
    return std::make_shared<SSHSession_libssh2>(std::move(host), port, std::move(user),
                                                std::move(password), std::move(keyFilePath),
                                                options);
}

SSHSession_libssh2::SSHSession_libssh2(std::optional<std::string> host, std::uint16_t port,
                                       std::optional<std::string> user,
                                       SSHPlatform::Secret password,
                                       std::optional<std::string> keyFilePath,
                                       const SSHSessionOptions &options) noexcept
    : SSHSession(std::move(host), port, std::move(user), std::move(password),
                 expanded(std::move(keyFilePath)), expanded(options)),
      mSessionQueue("com.dravella.SSHSession") {
    setUpLibraryOnce();
}

SSHSession_libssh2::~SSHSession_libssh2() {
    mSessionQueue.sync([] {});
}

bool SSHSession_libssh2::start(SSHErrorRef *error) noexcept {
    const auto self = shared_from_this();
    // The delegate may have been told of an end that is still being torn down.
    if (options().watchesConnection && mIsConnected)
        mSessionQueue.sync([] {});
    ConnectionRef connection = beginConnection();
    if (!connection)
        return SSHEngine::fail(error, [this] {
            return SSHEngine::connectionError(*this, "The session is being started already.", 0,
                                              SSHErrorCause::AlreadyStarting);
        });
    SSHErrorRef unwanted; // by the caller, and kept for `lastError` even so
    SSHErrorRef *const failure = error ? error : &unwanted;
    const bool isConnected = makeConnected(connection, failure);
    connection->notes->note([&](SSHFacts &facts) {
        facts.isStageUnderWay = false;
        // A host key that nobody accepted has an error of its own, unless more has happened.
        if (!isConnected && (!facts.error || connection->isShutDown()))
            facts.error = *failure ? *failure
                                   : SSHEngine::connectionError(*this, std::nullopt, 0,
                                                                SSHErrorCause::Unknown);
    });
    if (!isConnected)
        mSessionQueue.sync([&] { _cleanup(std::move(connection)); });
    return isConnected;
}

bool SSHSession_libssh2::makeConnected(const ConnectionRef &connection, SSHErrorRef *error) {
    if (runStages(*connection, error) && becomeConnected(connection))
        return true;
    // Whatever the stage that the end fell into made of it.
    if (!holds(*connection))
        SSHEngine::fail(error, [&] { return SSHEngine::endedStartError(*connection); });
    return false;
}

bool SSHSession_libssh2::runStages(Connection &connection, SSHErrorRef *error) {
    using Engine = SSHSession_libssh2;
    using enum SSHSessionStage;
    const auto run = [&](SSHSessionStage stage,
                         bool (Engine::*operation)(Connection &, SSHErrorRef *)) {
        connection.noteProgress();
        noteBegin(*connection.notes, stage);
        willBeginStage(stage);
        const bool succeeded = (this->*operation)(connection, error);
        if (stage == Agent || stage == Authenticate)
            _tellNews(connection);
        didEndStage(stage, succeeded);
        return succeeded;
    };
    const auto handshakes = [&] {
        const TimeLimit limit(connection, Ending::SlowHandshake);
        return run(Handshake, &Engine::_startSession);
    };
    const auto logsIn = [&] {
        const TimeLimit limit(connection, Ending::SlowLogIn);
        // Where keys have an order of their own, the agent has its place in it.
        return (!options().triesKeysOfToday && run(Agent, &Engine::_authenticateWithAgent)) ||
               run(Authenticate, &Engine::_authenticateManually);
    };
    return run(Connect, &Engine::_createSocket) && handshakes() &&
           run(HostKey, &Engine::_validatedHostFingerprint) && logsIn();
}

void SSHSession_libssh2::tellAttempts(Connection &connection) {
    std::vector<SSHAttempt> untold;
    connection.notes->note([&](const SSHFacts &facts) {
        untold.assign(facts.attempts.begin() + connection.toldAttempts, facts.attempts.end());
    });
    connection.toldAttempts += static_cast<std::ptrdiff_t>(untold.size());
    for (const SSHAttempt &attempt : untold)
        didTryMethod(attempt);
}

// Whether the log-in has succeeded, or was torn down, does not matter: a text may say why. This
// project's own build of the library adds a text to those before, others put it in their place.
void SSHSession_libssh2::_tellNews(Connection &connection) {
    tellAttempts(connection);
    std::string all;
    mSessionQueue.sync([&] { all = bannersOf(connection.session()); });
    connection.notes->note([&](SSHFacts &facts) { facts.banner = SSHPlatform::decodedUTF8(all); });
    if (!options().tellsBanners)
        return;
    const std::string told = std::exchange(connection.toldBanners, all);
    if (all != told)
        didReceiveBanner(
            SSHPlatform::decodedUTF8(all.substr(all.starts_with(told) ? told.size() : 0)));
}

// Observers may do anything in their notices, and other threads at any moment, so each step looks
// whether the connection is still there.
bool SSHSession_libssh2::becomeConnected(const ConnectionRef &connection) {
    willChangeValueForKey(isConnectedKey);
    {
        const MutexLock lock(mMutex);
        if (mConnection == connection && !connection->isShutDown()) {
            connection->becomeEstablished();
            mIsConnected = true;
        }
    }
    didChangeValueForKey(isConnectedKey);

    {
        const MutexLock lock(mMutex);
        if (mConnection != connection || !connection->isEstablished() || connection->isShutDown())
            return false;
        if (mKeepAliveTimer)
            SSHPlatform::assertionFailed("!mKeepAliveTimer", "-[SSHSession_libssh2 start:]",
                                         engineSourceName, 122);
    }
    const auto self = std::static_pointer_cast<SSHSession_libssh2>(shared_from_this());
    // The loop is the host's own: no lock is held while it is asked.
    const bool watches = options().watchesConnection;
    auto timer = SSHPlatform::mainLoop()->scheduleRepeating(
        watches ? attendInterval : keepAliveInterval,
        [self, watches] { watches ? self->attend() : self->keepAlive(); });
    {
        const MutexLock lock(mMutex);
        if (mConnection == connection && !connection->isShutDown()) {
            mKeepAliveTimer = std::move(timer);
            connection->isStarting = false; // in this very moment, so that no `cancel` is lost
            return true;
        }
    }
    timer->invalidate();
    return false;
}

// A connection that is still being made is not waited for, nor what a watched one is just sent.
void SSHSession_libssh2::stop() noexcept {
    const auto self = shared_from_this();
    ConnectionRef connection = shutDownUnlessUsed();
    mSessionQueue.sync([&] { _cleanup(std::move(connection)); });
}

SSHSession_libssh2::ConnectionRef SSHSession_libssh2::shutDownUnlessUsed() {
    const MutexLock lock(mMutex);
    if (mConnection && (!mConnection->isEstablished() ||
                        (options().watchesConnection && mConnection->commandsUnderWay == 0)))
        mConnection->shutDown(Ending::Stopped);
    return mConnection;
}

// Whoever uses the connection tears it down.
void SSHSession_libssh2::cancel() noexcept {
    const MutexLock lock(mMutex);
    if (mConnection && (mConnection->isStarting || mConnection->commandsUnderWay > 0))
        mConnection->shutDown(Ending::Cancelled);
}

// The references are this call's own: the host may let go of its session and its command meanwhile.
bool SSHSession_libssh2::execute(const std::shared_ptr<SSHCommand> &command,
                                 SSHErrorRef *error) noexcept {
    const auto self = shared_from_this();
    const std::shared_ptr<SSHCommand> held = command;
    SSHErrorRef failure;
    bool succeeded = false;
    ConnectionRef used = countCommand(nullptr);
    willBeginStage(SSHSessionStage::Execute);
    used = countCommand(used); // an observer may have put another one in its place
    if (used && !used->isEstablished()) {
        // A `start` is under way, which is left alone.
        endCommand(used);
        failure = SSHEngine::notConnectedError();
    } else {
        mSessionQueue.sync([&] {
            const std::shared_ptr<SSHEngine::Notes> notes = notesOf(used);
            noteBegin(*notes, SSHSessionStage::Execute);
            const bool hasBegun = used && holds(*used);
            succeeded = hasBegun && _execute(*used, held, &failure);
            endCommand(used);
            const bool isShutDown = used && used->isShutDown();
            // A time limit was that of another command, where this one has not begun.
            if (!succeeded && isShutDown && (hasBegun || !SSHEngine::isTimeLimit(used->ending())))
                failure = SSHEngine::endedCommandError(*used);
            if (!succeeded && !failure)
                failure = SSHEngine::notConnectedError();
            noteEnd(*notes, succeeded ? nullptr : failure);
            if (!succeeded || isShutDown) // at once after the command had ended, perhaps
                _cleanup(std::move(used));
            used.reset(); // what a `stop` ends from here on is closed by then
        });
    }
    didEndStage(SSHSessionStage::Execute, succeeded);
    if (!succeeded && error)
        *error = failure;
    return succeeded;
}

SSHSession_libssh2::ConnectionRef SSHSession_libssh2::countCommand(const ConnectionRef &before) {
    const MutexLock lock(mMutex);
    if (before)
        --before->commandsUnderWay;
    if (mConnection)
        ++mConnection->commandsUnderWay;
    return mConnection;
}

void SSHSession_libssh2::endCommand(const ConnectionRef &used) {
    const MutexLock lock(mMutex);
    if (used)
        --used->commandsUnderWay;
}

void SSHSession_libssh2::keepAlive() {
    const auto self = std::static_pointer_cast<SSHSession_libssh2>(shared_from_this());
    mSessionQueue.async([self] {
        const ConnectionRef connection = self->connection();
        if (!connection || !connection->isEstablished())
            return;
        // Never waits for a server that takes nothing: `stop` would wait for the keepalive.
        libssh2_session_set_blocking(connection->session(), 0);
        libssh2_keepalive_send(connection->session(), nullptr);
    });
}

// Only where there is something to do: the session queue would start a thread. A command listens
// for itself.
void SSHSession_libssh2::attend() {
    const auto self = std::static_pointer_cast<SSHSession_libssh2>(shared_from_this());
    {
        const MutexLock lock(mMutex);
        if (!mConnection || !mConnection->isEstablished() || mConnection->commandsUnderWay > 0 ||
            !mConnection->watch.wantsListening())
            return;
    }
    mSessionQueue.async([self] { self->listen(); });
}

void SSHSession_libssh2::listen() {
    ConnectionRef connection = this->connection();
    SSHErrorRef error;
    if (!connection || !connection->isEstablished() || connection->watch.listen(&error))
        return;
    // What the host has ended is for its own call to tear down.
    if (connection->ending() == Ending::Stopped || connection->ending() == Ending::Cancelled)
        return;
    if (!connection->isEndTold)
        didDisconnect(error);
    _cleanup(std::move(connection));
}

void SSHSession_libssh2::_cleanup(ConnectionRef ended) {
    std::shared_ptr<SSHPlatform::RepeatingTimer> timer;
    {
        const MutexLock lock(mMutex);
        if (mConnection && mConnection != ended)
            return;
        mConnection.reset(); // never the last reference, which `ended` is
        timer.swap(mKeepAliveTimer);
    }
    if (timer)
        timer->invalidate();
    if (ended)
        ended->shutDown(Ending::Stopped);
    // Closes agent, session and socket here, unless a stage that waits for the user still holds
    // them.
    ended.reset();
    willChangeValueForKey(isConnectedKey);
    mIsConnected = false;
    didChangeValueForKey(isConnectedKey);
}

bool SSHSession_libssh2::onSessionQueue(const Connection &connection, SSHErrorRef *error,
                                        const std::function<bool(LIBSSH2_SESSION *)> &work) {
    bool succeeded = false;
    mSessionQueue.sync([&] {
        succeeded = holds(connection) ? work(connection.session()) : SSHEngine::fail(error, [&] {
            return SSHEngine::endedStartError(connection);
        });
    });
    return succeeded;
}

bool SSHSession_libssh2::holds(const Connection &connection) const noexcept {
    const MutexLock lock(mMutex);
    return mConnection.get() == &connection && !connection.isShutDown();
}

std::shared_ptr<SSHEngine::Notes> SSHSession_libssh2::notesOf(const ConnectionRef &connection) {
    if (connection)
        return connection->notes;
    const MutexLock lock(mMutex);
    if (mConnection && mConnection->isStarting) // a start since, whose notes are its own
        return std::make_shared<SSHEngine::Notes>(SSHSession::facts());
    if (!mNotes)
        mNotes = std::make_shared<SSHEngine::Notes>(SSHSession::facts());
    return mNotes;
}

SSHFacts SSHSession_libssh2::facts() const noexcept {
    std::shared_ptr<SSHEngine::Notes> notes;
    {
        const MutexLock lock(mMutex);
        notes = mNotes;
    }
    return notes ? notes->facts() : SSHSession::facts();
}

SSHFacts SSHSession_libssh2::examinedFacts() const noexcept {
    SSHFacts facts = this->facts();
    facts.local = SSHEngine::localFacts(*this);
    return facts;
}

SSHSession_libssh2::ConnectionRef SSHSession_libssh2::connection() const noexcept {
    const MutexLock lock(mMutex);
    return mConnection;
}

SSHSession_libssh2::ConnectionRef SSHSession_libssh2::beginConnection() {
    // The last to let go may do so on any thread.
    const auto closeOnQueue = [this](Connection *closed) {
        if (mSessionQueue.isCurrent())
            delete closed;
        else
            mSessionQueue.sync([closed] { delete closed; });
    };
    ConnectionRef replaced; // of a connected session; released after the lock
    const MutexLock lock(mMutex);
    if (mConnection && !mConnection->isEstablished() && !mConnection->isShutDown())
        return nullptr;
    replaced.swap(mConnection);
    mConnection = ConnectionRef(new Connection(*this), closeOnQueue);
    mNotes = mConnection->notes;
    return mConnection;
}
