#include "Session/SSHSession_libssh2.h"

#include "Platform/Assertion.h"
#include "Platform/Path.h"

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <utility>

namespace {

constexpr std::chrono::seconds keepAliveInterval(30);
const std::string isConnectedKey = "isConnected";

std::optional<std::string> expanded(std::optional<std::string> path) {
    if (path)
        path = SSHPlatform::expandingTilde(*path);
    return path;
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

} // namespace

std::shared_ptr<SSHSession>
SSHSession::sessionWithHost(std::optional<std::string> host, std::uint16_t port,
                            std::optional<std::string> user, std::optional<std::string> password,
                            std::optional<std::string> keyFilePath) noexcept {
    return std::make_shared<SSHSession_libssh2>(std::move(host), port, std::move(user),
                                                std::move(password), std::move(keyFilePath));
}

SSHSession_libssh2::SSHSession_libssh2(std::optional<std::string> host, std::uint16_t port,
                                       std::optional<std::string> user,
                                       std::optional<std::string> password,
                                       std::optional<std::string> keyFilePath) noexcept
    : SSHSession(std::move(host), port, std::move(user), std::move(password),
                 expanded(std::move(keyFilePath))),
      mSessionQueue("com.dravella.SSHSession") {
    setUpLibraryOnce();
}

SSHSession_libssh2::~SSHSession_libssh2() {
    mSessionQueue.sync([] {});
}

bool SSHSession_libssh2::start(SSHErrorRef *error) noexcept {
    const auto self = shared_from_this();
    {
        const std::lock_guard lock(mHandlesMutex);
        mStopped = false;
    }
    if (_connect(error) && _becomeConnected())
        return true;
    // Whatever the stage that `stop` fell into made of it.
    if (error && _wasStopped())
        *error = _stoppedError();
    mSessionQueue.sync([this] { _cleanup(); });
    return false;
}

bool SSHSession_libssh2::_connect(SSHErrorRef *error) {
    using Engine = SSHSession_libssh2;
    using enum SSHSessionStage;
    return _stage(Connect, &Engine::_createSocket, error) &&
           _stage(Handshake, &Engine::_startSession, error) &&
           _stage(HostKey, &Engine::_validatedHostFingerprint, error) &&
           (_stage(Agent, &Engine::_authenticateWithAgent, error) ||
            _stage(Authenticate, &Engine::_authenticateManually, error));
}

bool SSHSession_libssh2::_stage(SSHSessionStage stage,
                                bool (SSHSession_libssh2::*operation)(SSHErrorRef *),
                                SSHErrorRef *error) {
    willBeginStage(stage);
    const bool succeeded = (this->*operation)(error);
    didEndStage(stage, succeeded);
    return succeeded;
}

// A `stop` on another thread may come at any moment, so each step looks whether it already has.
bool SSHSession_libssh2::_becomeConnected() {
    willChangeValueForKey(isConnectedKey);
    {
        const std::lock_guard lock(mHandlesMutex);
        mIsConnected = !mStopped;
    }
    didChangeValueForKey(isConnectedKey);

    {
        const std::lock_guard lock(mHandlesMutex);
        if (mKeepAliveTimer)
            SSHPlatform::assertionFailed("!mKeepAliveTimer", "-[SSHSession_libssh2 start:]",
                                         engineSourceName, 122);
    }
    const auto self = std::static_pointer_cast<SSHSession_libssh2>(shared_from_this());
    // The loop is the host's own: no lock is held while it is asked.
    auto timer = SSHPlatform::mainLoop()->scheduleRepeating(keepAliveInterval,
                                                            [self] { self->keepAlive(); });
    {
        const std::lock_guard lock(mHandlesMutex);
        if (!mStopped) {
            mKeepAliveTimer = std::move(timer);
            return true;
        }
    }
    timer->invalidate();
    return false;
}

void SSHSession_libssh2::stop() noexcept {
    const auto self = shared_from_this();
    mSessionQueue.sync([this] {
        {
            const std::lock_guard lock(mHandlesMutex);
            mStopped = true;
        }
        _cleanup();
    });
}

bool SSHSession_libssh2::execute(const std::shared_ptr<SSHCommand> &command,
                                 SSHErrorRef *error) noexcept {
    const auto self = shared_from_this();
    SSHErrorRef failure;
    bool succeeded = false;
    willBeginStage(SSHSessionStage::Execute);
    mSessionQueue.sync([&] {
        succeeded = _execute(command, &failure);
        if (!succeeded)
            _cleanup();
    });
    didEndStage(SSHSessionStage::Execute, succeeded);
    if (!succeeded && error)
        *error = failure;
    return succeeded;
}

void SSHSession_libssh2::keepAlive() {
    const auto self = std::static_pointer_cast<SSHSession_libssh2>(shared_from_this());
    mSessionQueue.async([self] {
        if (const SessionHandle session = self->_session())
            libssh2_keepalive_send(session.get(), nullptr);
    });
}

void SSHSession_libssh2::_cleanup() {
    std::shared_ptr<SSHPlatform::RepeatingTimer> timer;
    SessionHandle session;
    {
        const std::lock_guard lock(mHandlesMutex);
        timer.swap(mKeepAliveTimer);
        session.swap(mSession);
    }
    if (timer)
        timer->invalidate();
    _freeAgent();
    _closeSocketAfter(std::move(session));
    willChangeValueForKey(isConnectedKey);
    mIsConnected = false;
    didChangeValueForKey(isConnectedKey);
}

// With a channel still open, freeing the session would wait for the server to close it. On a socket
// that is shut down there is nothing to wait for. A stage that waits for the user may hold the
// session for longer; the library still knows the descriptor then, so that is closed only with the
// session.
void SSHSession_libssh2::_closeSocketAfter(SessionHandle session) {
    const std::lock_guard lock(mSocketMutex);
    if (mSocket > 0)
        ::shutdown(mSocket, SHUT_RDWR);
    if (mSocket != 0 && mSocket != mSessionSocket)
        ::close(mSocket);
    session.reset();
    mSocket = mSessionSocket = 0;
}

void SSHSession_libssh2::_freeAgent() {
    if (!mAgent)
        return;
    libssh2_agent_disconnect(mAgent);
    libssh2_agent_free(mAgent);
    mAgent = nullptr;
}

bool SSHSession_libssh2::_onSessionQueue(SSHErrorRef *error,
                                         const std::function<bool(LIBSSH2_SESSION *)> &work) {
    bool succeeded = false;
    mSessionQueue.sync([&] {
        if (const SessionHandle session = _session())
            succeeded = work(session.get());
        else if (error)
            *error = _stoppedError();
    });
    return succeeded;
}

SSHSession_libssh2::SessionHandle SSHSession_libssh2::_session() const {
    const std::lock_guard lock(mHandlesMutex);
    return mSession;
}

void SSHSession_libssh2::_adoptSession(LIBSSH2_SESSION *session) {
    const std::lock_guard lock(mHandlesMutex);
    mSessionSocket = mSocket;
    mSession.reset(session, [socket = mSocket](LIBSSH2_SESSION *handle) {
        libssh2_session_free(handle);
        if (socket != 0)
            ::close(socket);
    });
}

bool SSHSession_libssh2::_wasStopped() const {
    const std::lock_guard lock(mHandlesMutex);
    return mStopped;
}

SSHErrorRef SSHSession_libssh2::_stoppedError() const {
    return _connectionError("The session was stopped while it was connecting.", 0);
}

const char *SSHSession_libssh2::_requiredUser(const char *function) const {
    if (!user())
        SSHPlatform::assertionFailed("self.user", function, engineSourceName, __LINE__);
    return user()->c_str();
}
