#include "Session/LocalFacts.h"

#include "Auth/AgentList.h"
#include "Auth/KeyFacts.h"
#include "Identity/HashedNames.h"
#include "Identity/KnownHostsFacts.h"

#include <SSHSession/SSHSession.h>

#include <libssh2.h>

#include <algorithm>
#include <memory>

namespace SSHEngine {

namespace {

void lookInAgent(SSHLocalFacts &facts) {
    const auto &held = facts.agent.identities;
    for (SSHKeyFileFacts &file : facts.keyFiles)
        file.isInAgent = !file.fingerprint.empty() &&
                         std::any_of(held.begin(), held.end(), [&](const auto &each) {
                             return each.fingerprint == file.fingerprint;
                         });
}

} // namespace

SSHLocalFacts localFacts(const SSHSession &session) {
    // The session's own is busy, or gone. This one never connects.
    const std::unique_ptr<LIBSSH2_SESSION, decltype(&libssh2_session_free)> library(
        libssh2_session_init(), libssh2_session_free);
    if (!library)
        return {};
    const NamedHost host(session.host().value_or(""), session.port(), hashesBy(library.get()));
    SSHLocalFacts facts;
    facts.keyFiles = keyFileFacts(givenKeyFiles(session.keyFilePath(), session.options()),
                                  session.options(), library.get());
    facts.agent = agentFacts();
    facts.knownHosts = knownHostsFacts(host, session.options());
    lookInAgent(facts);
    return facts;
}

} // namespace SSHEngine
