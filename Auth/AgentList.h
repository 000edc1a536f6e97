// The identities of a running SSH agent, asked for without the library: draft-miller-ssh-agent.
#pragma once

#include <SSHSession/SSHFacts.h>

#include <optional>
#include <string_view>
#include <vector>

namespace SSHEngine {

// A socket that does not block, connected to the agent at the path; the caller closes it. -1 with
// errno: EAGAIN for an agent that takes nobody in at the moment.
int openAgentSocket(const char *path);

// What the agent that SSH_AUTH_SOCK names holds, or why it could not be asked within two seconds.
// Any thread.
SSHAgentFacts agentFacts();

// From an agent's answer without the length before it; none for any other answer.
std::optional<std::vector<SSHAgentIdentity>> identitiesIn(std::string_view answer);

} // namespace SSHEngine
