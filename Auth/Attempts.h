// What a log-in tries, as it is noted for the observers and the session's facts.
#pragma once

#include "Auth/LogInCause.h"
#include "Session/Connection.h"

#include <libssh2.h>

#include <string>
#include <string_view>

namespace SSHEngine {

// With a key, whose public part is `blob` where that is known; what came of it is for the caller to
// add.
SSHAttempt attemptWithKey(std::string key, std::string_view blob);

// The attempt is over. Any thread.
void noteAttempt(const Connection &connection, SSHAttempt attempt);

// The server has named the methods that can go on. The first list is what it offers; another one
// later says that it has taken something meanwhile, as one factor of several.
void noteMethods(Connection &connection, const std::string &names);

// What a call of the library's that authenticates has answered; `remark` is set where that is
// nothing that can be told from a code. Session queue, right after the call.
void setResult(SSHAttempt &attempt, LIBSSH2_SESSION *session, int code);

LogInSituation situationOf(const Connection &connection);

// Of the whole log-in, with what was noted of it.
SSHErrorCause logInCause(const Connection &connection);

} // namespace SSHEngine
