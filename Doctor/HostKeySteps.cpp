// After the handshake: who the server is, and whether it bears a keepalive before the log-in.
#include "Doctor/Steps.h"

#include "Auth/MethodList.h"
#include "Doctor/Visit.h"

#include <SSHSession/SSHFinding.h>

#include <fmt/format.h>

#include <utility>

namespace SSHEngine {

namespace {

// The line on record with this very key.
std::string recordOf(const SSHHostKeyFacts &key, const SSHFacts &facts) {
    if (facts.local)
        for (const SSHKnownHostsLine &line : facts.local->knownHosts.lines)
            if (line.fingerprint == key.fingerprint && !line.isRevoked)
                return fmt::format("as on line {} of {}", line.number, line.file);
    return "as on record";
}

void tellUnknown(Examination &examination, const SSHFacts &facts, const std::string &key) {
    examination.note(key + " is on no record. A normal run would show it and ask whether to trust "
                           "it: compare it with the one that the server's administrator tells.");
    for (const SSHFinding &finding :
         SSHFindings(ended(facts, SSHErrorCause::HostKeyUnknownDeclined, SSHSessionStage::HostKey)))
        if (finding.id != SSHFindingID::HostKeyUnknown)
            examination.note(finding.text);
}

void tellStanding(Examination &examination, const SSHFacts &facts) {
    const SSHHostKeyFacts &key = facts.hostKey;
    const std::string text = fmt::format("{} {}", key.type, key.fingerprint);
    const auto failBy = [&](SSHErrorCause cause) {
        examination.failBy(ended(facts, cause, SSHSessionStage::HostKey));
    };
    switch (key.standing) {
    case SSHHostKeyStanding::Match:
        examination.reached |= Examination::IsTrusted;
        return examination.ok(fmt::format("{}, {}.", text, recordOf(key, facts)));
    case SSHHostKeyStanding::Unknown:
        return tellUnknown(examination, facts, text);
    case SSHHostKeyStanding::Changed:
        return failBy(SSHErrorCause::HostKeyChangedDeclined);
    case SSHHostKeyStanding::Revoked:
        return failBy(SSHErrorCause::HostKeyRevoked);
    default:
        return failBy(SSHErrorCause::HostKeyCheckFailed);
    }
}

} // namespace

void examineHostKey(Examination &examination) {
    examination.visit = std::make_shared<Visit>(examination, usualVisit);
    Visit &visit = *examination.visit;
    if (!visit.shakeHands())
        return examination.failBy(visit.facts());
    examination.reached |= Examination::ShakesHands;
    visit.run(SSHSessionStage::HostKey, &SSHSession_libssh2::_validatedHostFingerprint);
    tellStanding(examination, visit.facts());
}

// What the server makes of it shows in whether it answers what comes next.
void examineKeepAlive(Examination &examination) {
    const std::shared_ptr<Visit> visit = std::exchange(examination.visit, nullptr);
    bool isBorne = false;
    visit->call([&](LIBSSH2_SESSION *session) {
        libssh2_keepalive_config(session, 0, 1);
        libssh2_keepalive_send(session, nullptr);
        isBorne = fetchMethodList(session, examination.patient.user.c_str()).names.has_value() ||
                  libssh2_userauth_authenticated(session) != 0;
        return true;
    });
    if (isBorne)
        return examination.ok("The server bears one before the log-in.");
    if (visit->isTooLate())
        return examination.note("After one before the log-in the server has not answered within " +
                                spelled(usualVisit) + ".");
    if (examination.patient.options.watchesConnection)
        return examination.note("The server hangs up at one before the log-in. This session sends "
                                "none then.");
    SSHFacts found =
        ended(visit->facts(), SSHErrorCause::MethodsUntold, SSHSessionStage::Authenticate);
    found.server.hasHungUp = true;
    examination.failBy(found);
}

} // namespace SSHEngine
