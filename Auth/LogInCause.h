// What made a log-in fail, from all that was tried. Pure.
#pragma once

#include <SSHSession/SSHAttempt.h>
#include <SSHSession/SSHErrorCause.h>

#include <string>
#include <vector>

namespace SSHEngine {

struct LogInSituation {
    std::vector<std::string> methods; // that the server offered
    bool hasPassword = false;         // given, or typed by the user
    bool hasAnswers = false;          // of the user's, to the server's questions
    // What became of the connection; Unknown while it lives.
    SSHErrorCause loss = SSHErrorCause::Unknown;
};

// The most telling of the attempts' causes. Where a method that had nothing to offer stands beside
// one that had, the latter counts.
SSHErrorCause logInCause(const std::vector<SSHAttempt> &attempts, const LogInSituation &situation);

// Of one alone; Unknown where it has not failed.
SSHErrorCause causeOfAttempt(const SSHAttempt &attempt, const LogInSituation &situation);

} // namespace SSHEngine
