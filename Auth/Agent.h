// The way to a running SSH agent.
#pragma once

#include <SSHSession/SSHAttempt.h>

#include <libssh2.h>

namespace SSHEngine {

class Connection;

constexpr int noMoreIdentities = 1; // libssh2_agent_get_identity(3)

// As libssh2_agent_connect(3), but waits for no agent that takes nobody in. Session queue only.
int connectToAgent(const Connection &connection, LIBSSH2_AGENT *agent);

// For the facts: an identity, without what came of it; and that the agent could not be asked.
SSHAttempt attemptWith(const libssh2_agent_publickey &identity);
void noteAgentFailure(const Connection &connection, const char *function, int code);

} // namespace SSHEngine
