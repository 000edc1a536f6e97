#include "Auth/LogInCause.h"

#include <algorithm>
#include <initializer_list>

namespace SSHEngine {

using enum SSHErrorCause;

namespace {

using Result = SSHAttemptResult;

SSHErrorCause causeOfKey(const SSHAttempt &attempt) {
    switch (attempt.result) {
    case Result::SignatureRefused:
        return SignatureRefused;
    case Result::NotSigned:
        return AgentFailed;
    case Result::NotGiven:
    case Result::WrongPassphrase:
        return KeyEncrypted;
    case Result::Missing:
        return KeyMissing;
    case Result::Unusable:
        return attempt.isFromAgent ? AgentFailed : KeyUnreadable;
    default:
        return KeyRefused;
    }
}

// In the languages that borrow the word.
bool isForPassword(const std::vector<std::string> &questions) {
    return questions.size() == 1 && questions.front().find("asswor") != std::string::npos;
}

// Where there is no password, questions may have been answered with nothing.
SSHErrorCause causeOfSecret(const SSHAttempt &attempt, const LogInSituation &situation) {
    if (attempt.result == Result::Expired)
        return PasswordExpired;
    if (attempt.method == "keyboard-interactive") {
        if (attempt.result == Result::NotGiven && !isForPassword(attempt.questions))
            return AnswersMissing;
        if (situation.hasAnswers)
            return AnswersRefused;
        if (attempt.questions.empty()) // refused without having asked for anything
            return NoWayIn;
    }
    if (attempt.result == Result::NotGiven || !situation.hasPassword)
        return PasswordMissing;
    return attempt.result == Result::Refused ? PasswordRefused : LogInRefused;
}

// The first of `causes` that is among those found; Unknown where none is.
SSHErrorCause firstFound(const std::vector<SSHErrorCause> &found,
                         std::initializer_list<SSHErrorCause> causes) {
    const auto *const first = std::find_if(causes.begin(), causes.end(), [&](SSHErrorCause cause) {
        return std::find(found.begin(), found.end(), cause) != found.end();
    });
    return first == causes.end() ? Unknown : *first;
}

bool takesPassword(const std::vector<std::string> &methods) {
    return std::any_of(methods.begin(), methods.end(), [](const std::string &method) {
        return method == "password" || method == "keyboard-interactive";
    });
}

} // namespace

SSHErrorCause causeOfAttempt(const SSHAttempt &attempt, const LogInSituation &situation) {
    switch (attempt.result) {
    case Result::Accepted:
        return Unknown;
    case Result::AcceptedInPart:
        return MoreWanted;
    case Result::Ended:
        return situation.loss == Unknown ? ConnectionLost : situation.loss;
    default:
        return attempt.method == "publickey" ? causeOfKey(attempt)
                                             : causeOfSecret(attempt, situation);
    }
}

SSHErrorCause logInCause(const std::vector<SSHAttempt> &attempts, const LogInSituation &situation) {
    if (situation.loss != Unknown)
        return situation.loss;
    std::vector<SSHErrorCause> causes;
    causes.reserve(attempts.size());
    for (const SSHAttempt &attempt : attempts)
        causes.push_back(causeOfAttempt(attempt, situation));
    const auto partial = std::find(causes.rbegin(), causes.rend(), MoreWanted).base();
    const SSHErrorCause next =
        firstFound({partial, causes.end()}, {PasswordExpired, AnswersRefused, PasswordRefused});
    if (partial != causes.begin() && next != Unknown)
        return next; // the other factor was there, and was refused
    const SSHErrorCause alone =
        firstFound(causes, {ConnectionLost, MoreWanted, PasswordExpired, LogInRefused});
    const SSHErrorCause key = firstFound(causes, {SignatureRefused, KeyEncrypted, KeyUnreadable,
                                                  KeyMissing, KeyRefused, AgentFailed});
    const SSHErrorCause secret = firstFound(causes, {AnswersRefused, PasswordRefused});
    const SSHErrorCause refusedKey = firstFound(causes, {SignatureRefused, KeyRefused});
    if (alone != Unknown)
        return alone;
    if (secret != Unknown)
        return refusedKey == Unknown ? secret : LogInRefused;
    if (key != Unknown)
        return key;
    if (firstFound(causes, {PasswordMissing, AnswersMissing}) == AnswersMissing)
        return AnswersMissing;
    return !situation.hasPassword && takesPassword(situation.methods) ? PasswordMissing : NoWayIn;
}

} // namespace SSHEngine
