// After the handshake: who the server is, and whether it bears a keepalive before the log-in.
#include "Doctor/Steps.h"

#include "Auth/MethodList.h"
#include "Doctor/Visit.h"

#include <fmt/format.h>

#include <utility>

namespace SSHEngine {

namespace {

constexpr std::chrono::seconds longestVisit(8);

// The line on record with this very key.
std::string recordOf(const SSHHostKeyFacts &key, const SSHFacts &facts) {
    if (facts.local)
        for (const SSHKnownHostsLine &line : facts.local->knownHosts.lines)
            if (line.fingerprint == key.fingerprint && !line.isRevoked)
                return fmt::format("as on line {} of {}", line.number, line.file);
    return "as on record";
}

void tellStanding(Examination &examination, const Visit &visit) {
    const SSHFacts facts = visit.facts();
    const SSHHostKeyFacts &key = facts.hostKey;
    const std::string text = fmt::format("{} {}", key.type, key.fingerprint);
    switch (key.standing) {
    case SSHHostKeyStanding::Match:
        examination.reached |= Examination::IsTrusted;
        return examination.ok(fmt::format("{}, {}.", text, recordOf(key, facts)));
    case SSHHostKeyStanding::Unknown:
        return examination.note(
            fmt::format("{} is on no record. A normal run would show it and ask whether to trust "
                        "it; compare it with what the server's administrator says.",
                        text));
    case SSHHostKeyStanding::Changed:
        return examination.failBy(facts, text + " is not the key that is on record for this host.",
                                  "Ask the server's administrator whether the key was changed.");
    case SSHHostKeyStanding::Revoked:
        return examination.failBy(facts, text + " is marked as revoked.",
                                  "Ask the server's administrator for the new key.");
    default:
        return examination.failBy(facts, text + " could not be compared with those on record.",
                                  "Look whether ~/.ssh/known_hosts can be read.");
    }
}

} // namespace

void examineHostKey(Examination &examination) {
    examination.visit = std::make_shared<Visit>(examination, longestVisit);
    Visit &visit = *examination.visit;
    if (!visit.shakeHands())
        return examination.failBy(visit.facts(), "The handshake failed.",
                                  "Look into the server's log.");
    examination.reached |= Examination::ShakesHands;
    visit.run(SSHSessionStage::HostKey, &SSHSession_libssh2::_validatedHostFingerprint);
    tellStanding(examination, visit);
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
                                spelled(longestVisit) + ".");
    const std::string text = "The server ends the connection at a keepalive before the log-in";
    if (examination.patient.options.watchesConnection)
        return examination.note(text + ". This session sends none.");
    examination.failBy(visit->facts(), text + ", which this session sends.",
                       "Make the session with the option watchesConnection (without --classic).");
}

} // namespace SSHEngine
