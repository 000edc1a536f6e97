#include <SSHSession/SSHSession.h>

#include "Platform/Assertion.h"

#include <algorithm>
#include <utility>

namespace {

constexpr const char *sourceName = "SSHSession";

bool isSame(const std::weak_ptr<SSHSessionObserver> &a,
            const std::weak_ptr<SSHSessionObserver> &b) {
    return !a.owner_before(b) && !b.owner_before(a);
}

} // namespace

SSHSessionDelegate::~SSHSessionDelegate() = default;

SSHSessionObserver::~SSHSessionObserver() = default;
void SSHSessionObserver::willChangeValueForKey(SSHSession & /*session*/,
                                               const std::string & /*key*/) noexcept {}
void SSHSessionObserver::didChangeValueForKey(SSHSession & /*session*/,
                                              const std::string & /*key*/) noexcept {}
void SSHSessionObserver::willBeginStage(SSHSession & /*session*/,
                                        SSHSessionStage /*stage*/) noexcept {}
void SSHSessionObserver::didEndStage(SSHSession & /*session*/, SSHSessionStage /*stage*/,
                                     bool /*succeeded*/) noexcept {}
void SSHSessionObserver::didReceiveBanner(SSHSession & /*session*/,
                                          const std::string & /*banner*/) noexcept {}

void SSHSessionObserver::didTryMethod(SSHSession & /*session*/,
                                      const SSHAttempt & /*attempt*/) noexcept {}

SSHSession::SSHSession(std::optional<std::string> host, std::uint16_t port,
                       std::optional<std::string> user, SSHPlatform::Secret password,
                       std::optional<std::string> keyFilePath,
                       const SSHSessionOptions &options) noexcept
    : mHost(std::move(host)), mUser(std::move(user)), mPassword(std::move(password)),
      mKeyFilePath(std::move(keyFilePath)), mPort(port), mOptions(options) {}

SSHSession::SSHSession(std::optional<std::string> host, std::uint16_t port,
                       std::optional<std::string> user, std::optional<std::string> password,
                       std::optional<std::string> keyFilePath) noexcept
    : SSHSession(std::move(host), port, std::move(user), SSHPlatform::Secret::takenFrom(password),
                 std::move(keyFilePath)) {}

SSHSession::~SSHSession() = default;

bool SSHSession::start(SSHErrorRef * /*error*/) noexcept {
    SSHPlatform::assertionFailed("false", "-[SSHSession start:]", sourceName, 88);
}

void SSHSession::stop() noexcept {
    SSHPlatform::assertionFailed("false", "-[SSHSession stop]", sourceName, 95);
}

// Nothing is under way.
void SSHSession::cancel() noexcept {}

bool SSHSession::execute(const std::shared_ptr<SSHCommand> & /*command*/,
                         SSHErrorRef * /*error*/) noexcept {
    SSHPlatform::assertionFailed("false", "-[SSHSession execute:error:]", sourceName, 101);
}

bool SSHSession::isConnected() const noexcept {
    return false;
}

SSHErrorRef SSHSession::lastError() const noexcept {
    return nullptr;
}

SSHFacts SSHSession::facts() const noexcept {
    SSHFacts facts;
    facts.host = host().value_or("");
    facts.user = user().value_or("");
    facts.port = port();
    facts.hasPassword = password().has_value();
    facts.isPasswordEmpty = facts.hasPassword && password()->empty();
    facts.keyFilePath = keyFilePath().value_or("");
    facts.options = options();
    return facts;
}

SSHFacts SSHSession::examinedFacts() const noexcept {
    return facts();
}

SSHSessionDelegate *SSHSession::delegate() const noexcept {
    const std::lock_guard lock(mDelegateMutex);
    return mDelegate;
}

void SSHSession::setDelegate(SSHSessionDelegate *delegate) noexcept {
    const std::lock_guard lock(mDelegateMutex);
    mDelegate = delegate;
}

void SSHSession::didDisconnect(const SSHErrorRef &error) noexcept {
    const std::lock_guard lock(mDelegateMutex);
    if (mDelegate)
        mDelegate->sshSessionDisconnected(*this, error);
}

void SSHSession::addObserver(const std::weak_ptr<SSHSessionObserver> &observer) noexcept {
    const SSHPlatform::MutexLock lock(mObserversMutex);
    std::erase_if(mObservers, [](const auto &known) { return known.expired(); });
    mObservers.push_back(observer);
}

void SSHSession::removeObserver(const std::weak_ptr<SSHSessionObserver> &observer) noexcept {
    const SSHPlatform::MutexLock lock(mObserversMutex);
    std::erase_if(mObservers, [&](const auto &known) { return isSame(known, observer); });
}

std::vector<std::shared_ptr<SSHSessionObserver>> SSHSession::observers() const {
    const SSHPlatform::MutexLock lock(mObserversMutex);
    std::vector<std::shared_ptr<SSHSessionObserver>> living;
    for (const auto &observer : mObservers)
        if (auto strong = observer.lock())
            living.push_back(std::move(strong));
    return living;
}

void SSHSession::willChangeValueForKey(const std::string &key) noexcept {
    for (const auto &observer : observers())
        observer->willChangeValueForKey(*this, key);
}

void SSHSession::didChangeValueForKey(const std::string &key) noexcept {
    for (const auto &observer : observers())
        observer->didChangeValueForKey(*this, key);
}

void SSHSession::willBeginStage(SSHSessionStage stage) noexcept {
    for (const auto &observer : observers())
        observer->willBeginStage(*this, stage);
}

void SSHSession::didEndStage(SSHSessionStage stage, bool succeeded) noexcept {
    for (const auto &observer : observers())
        observer->didEndStage(*this, stage, succeeded);
}

void SSHSession::didReceiveBanner(const std::string &banner) noexcept {
    for (const auto &observer : observers())
        observer->didReceiveBanner(*this, banner);
}

void SSHSession::didTryMethod(const SSHAttempt &attempt) noexcept {
    for (const auto &observer : observers())
        observer->didTryMethod(*this, attempt);
}
