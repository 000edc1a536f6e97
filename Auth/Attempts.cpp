#include "Auth/Attempts.h"

#include "Session/Causes.h"
#include "Session/ErrorReporting.h"
#include "Session/KeyEncoding.h"
#include "Session/KeyType.h"
#include "Session/NameList.h"
#include "Session/SSHSession_libssh2.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace SSHEngine {

namespace {

using Result = SSHAttemptResult;

// The library does not tell a factor that was taken from a refusal, but a signature that was not
// enough is most often one.
void markFactor(std::vector<SSHAttempt> &attempts, std::size_t first,
                const std::vector<std::string> &wanted) {
    const auto begin = attempts.begin() + static_cast<std::ptrdiff_t>(first);
    auto factor = std::find_if(begin, attempts.end(), [](const SSHAttempt &attempt) {
        return attempt.result == Result::SignatureRefused;
    });
    if (factor == attempts.end() && begin != attempts.end() &&
        attempts.back().result == Result::Refused)
        factor = attempts.end() - 1;
    if (factor == attempts.end())
        return;
    factor->result = Result::AcceptedInPart;
    factor->wanted = wanted;
}

} // namespace

SSHAttempt attemptWithKey(std::string key, std::string_view blob) {
    SSHAttempt attempt;
    attempt.method = "publickey";
    attempt.key = std::move(key);
    attempt.keyType = keyTypeIn(blob);
    if (!attempt.keyType.empty())
        attempt.keyFingerprint = keyFingerprint(blob);
    return attempt;
}

void noteAttempt(const Connection &connection, SSHAttempt attempt) {
    connection.notes->note([&](SSHFacts &facts) {
        // What comes after the end of the connection was not tried any more.
        if (!facts.attempts.empty() && facts.attempts.back().result == Result::Ended)
            return;
        facts.attempts.push_back(std::move(attempt));
    });
}

void noteMethods(Connection &connection, const std::string &names) {
    std::string &before = connection.logIn.namedMethods;
    const std::vector<std::string> list = namesIn(names);
    connection.notes->note([&](SSHFacts &facts) {
        if (facts.methods.empty())
            facts.methods = list;
        else if (names != before)
            markFactor(facts.attempts, connection.logIn.attemptsBefore, list);
        connection.logIn.attemptsBefore = facts.attempts.size();
    });
    before = names;
}

// The library has one code for much that goes wrong; only its message, in 1.10 as in 1.11, tells
// more.
void setResult(SSHAttempt &attempt, LIBSSH2_SESSION *session, int code) {
    char *text = nullptr;
    libssh2_session_last_error(session, &text, nullptr, 0);
    const std::string_view message = text ? text : "";
    if (code == 0)
        attempt.result = Result::Accepted;
    else if (isLoss(code) || message.starts_with("Waiting for"))
        attempt.result = Result::Ended;
    else if (code == LIBSSH2_ERROR_AUTHENTICATION_FAILED)
        attempt.result = Result::Refused;
    else if (code == LIBSSH2_ERROR_PASSWORD_EXPIRED)
        attempt.result = Result::Expired;
    else if (code == LIBSSH2_ERROR_PUBLICKEY_UNVERIFIED)
        attempt.result =
            message == "Callback returned error" ? Result::NotSigned : Result::SignatureRefused;
    else {
        attempt.result = Result::Unusable;
        attempt.remark =
            fmt::format("{} ({})", SSHSession_libssh2::_stringForErrorCode(code), code);
    }
}

LogInSituation situationOf(const Connection &connection) {
    const LogIn &logIn = connection.logIn;
    const bool hasEnded =
        connection.isDisconnected || connection.hasHungUp() || connection.failure() != 0;
    return {.methods = connection.notes->facts().methods,
            .hasPassword = connection.engine.password() || logIn.password,
            .hasAnswers = logIn.hasAnswers,
            .loss = hasEnded ? causeOfLoss(connection) : SSHErrorCause::Unknown};
}

SSHErrorCause logInCause(const Connection &connection) {
    return logInCause(connection.notes->facts().attempts, situationOf(connection));
}

} // namespace SSHEngine
