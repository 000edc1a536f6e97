// The fifth stage of `start`: the methods that the server offers, in this library's own order.
#include "Session/SSHSession_libssh2.h"

#include "Auth/Attempts.h"
#include "Auth/Identities.h"
#include "Auth/MethodList.h"
#include "Auth/MethodTranscript.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/LibraryAlgorithms.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

using SSHEngine::connectionError;
using SSHEngine::MethodAttempt;

namespace {

using Engine = SSHSession_libssh2;

struct Method {
    const char *name; // RFC 4252 and RFC 4256
    const char *displayName;
    bool (Engine::*operation)(SSHEngine::Connection &, SSHErrorRef *);
    bool usesKeys;
};

constexpr std::array<Method, 3> methodsInOrder = {{
    {"publickey", "public key exchange", &Engine::_authenticateWithPublicKey, true},
    {"password", "password", &Engine::_authenticateWithPassword, false},
    {"keyboard-interactive", "keyboard-interactive", &Engine::_authenticateWithKeyboard, false},
}};

// A server that names ever new methods is not followed for ever.
constexpr int mostFactors = 5;

// The turns of the methods, until one lets the user in.
class Methods {
  public:
    Methods(Engine &engine, SSHEngine::Connection &connection, std::string offered)
        : mEngine(engine), mConnection(connection), mOffered(std::move(offered)) {}

    // Tells the account of what failed only when it is wanted.
    bool tryAll(bool withAccount);
    const std::vector<MethodAttempt> &attempts() const { return mAttempts; }

  private:
    const Method *next() const;
    bool attempt(const Method &method, bool withAccount);
    bool goOnAfterFactor(const Method &method);

    Engine &mEngine;
    SSHEngine::Connection &mConnection;
    std::string mOffered; // by the server
    std::set<const Method *> mTried;
    std::vector<MethodAttempt> mAttempts;
    int mFactors = 0;
};

bool Methods::tryAll(bool withAccount) {
    while (const Method *method = next())
        if (attempt(*method, withAccount) || goOnAfterFactor(*method))
            return true;
    return false;
}

const Method *Methods::next() const {
    const auto *const found =
        std::find_if(methodsInOrder.begin(), methodsInOrder.end(), [&](const Method &method) {
            return mOffered.find(method.name) != std::string::npos && !mTried.contains(&method);
        });
    return found == methodsInOrder.end() ? nullptr : found;
}

bool Methods::attempt(const Method &method, bool withAccount) {
    mTried.insert(&method);
    mConnection.logIn.mayHaveFactor = false;
    mConnection.logIn.renewedMethods.reset();
    mEngine._tellNews(mConnection); // before the user is asked anything
    MethodAttempt attempt = {.displayName = method.displayName, .error = nullptr};
    if ((mEngine.*method.operation)(mConnection, &attempt.error))
        return true;
    if (method.usesKeys && withAccount)
        attempt.algorithms =
            SSHEngine::libraryAlgorithms(mConnection.session(), LIBSSH2_METHOD_HOSTKEY);
    mAttempts.push_back(std::move(attempt));
    return false;
}

// The library hides that the server has taken a factor and wants more (RFC 4252, section 5.1), but
// the methods that can go on are other ones then. Answers true only when the user is in.
bool Methods::goOnAfterFactor(const Method &method) {
    std::optional<std::string> &renewed = mConnection.logIn.renewedMethods;
    if (!mEngine.options().triesFurtherFactors)
        return false;
    bool isIn = false;
    if (!renewed && mConnection.logIn.mayHaveFactor)
        mEngine.onSessionQueue(mConnection, nullptr, [&](LIBSSH2_SESSION *session) {
            renewed =
                SSHEngine::fetchMethodList(session, mEngine.user().value_or("").c_str()).names;
            if (renewed)
                SSHEngine::noteMethods(mConnection, *renewed);
            isIn = libssh2_userauth_authenticated(session) != 0;
            return true;
        });
    if (isIn || !renewed || *renewed == mOffered)
        return isIn;
    mAttempts.back().furtherMethods = *renewed;
    mOffered = ++mFactors < mostFactors ? *renewed : "";
    mTried.erase(&method); // for a server that names it as a further factor
    return false;
}

SSHErrorCause causeOfLogIn(const SSHEngine::Connection &connection,
                           const SSHEngine::MethodList &offered) {
    if (offered.names)
        return SSHEngine::logInCause(connection);
    const SSHErrorCause loss = SSHEngine::situationOf(connection).loss;
    return loss == SSHErrorCause::Unknown ? SSHErrorCause::MethodsUntold : loss;
}

} // namespace

bool SSHSession_libssh2::_authenticateManually(Connection &connection, SSHErrorRef *error) {
    if (SSHEngine::isLetInByGivenKey(connection))
        return true;
    SSHEngine::MethodList offered;
    const bool asked = onSessionQueue(connection, error, [&](LIBSSH2_SESSION *session) {
        offered = SSHEngine::fetchMethodList(
            session,
            SSHEngine::requiredUser(*this, "-[SSHSession_libssh2 _authenticateManually:]"));
        const bool isListed = offered.names.has_value();
        if (SSHEngine::hasOfferedKeys(connection, offered))
            offered.names = "publickey";
        if (isListed)
            SSHEngine::noteMethods(connection, *offered.names);
        return true;
    });
    if (!asked)
        return false;

    Methods methods(*this, connection, offered.names.value_or(""));
    const bool isIn = methods.tryAll(error != nullptr);
    const SSHErrorCause cause = isIn ? SSHErrorCause::Unknown : causeOfLogIn(connection, offered);
    connection.logIn = {};
    if (isIn)
        return true;
    return SSHEngine::fail(error, [&] {
        return offered.names
                   ? connectionError(*this, SSHEngine::methodTranscript(methods.attempts()), 0,
                                     cause)
                   : connectionError(*this,
                                     "SSH could not authenticate because it could not get a list "
                                     "of the available authentication methods. " +
                                         _stringForErrorCode(offered.error),
                                     offered.error, cause);
    });
}
