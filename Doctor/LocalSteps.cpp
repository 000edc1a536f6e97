// What lies on this computer: key files, the agent's keys, and the host keys on record.
#include "Doctor/Steps.h"

#include "Doctor/Visit.h"
#include "Session/LocalFacts.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

namespace SSHEngine {

namespace {

constexpr std::chrono::seconds longestLooking(4);

// An agent that hangs is left behind, with all that would have been told.
const std::optional<SSHLocalFacts> &lookOnce(Examination &examination) {
    const auto seen = std::make_shared<SSHLocalFacts>();
    if (!examination.facts.local && examination.step == std::string("key files")) {
        const Errand errand([seen, session = std::make_shared<Inspector>(examination.patient)] {
            *seen = localFacts(*session);
        });
        if (errand.isDoneWithin(examination.budget, longestLooking))
            examination.facts.local = *seen;
    }
    return examination.facts.local;
}

void tellUnseen(Examination &examination) {
    examination.note("It could not be looked at within " + spelled(longestLooking) +
                     ": a file system or the agent does not answer.");
}

std::string named(const SSHKeyFileFacts &file) {
    return file.type.empty() ? file.path
                             : fmt::format("{} ({} {})", file.path, file.type, file.fingerprint);
}

// What keeps the session from using it; empty where nothing does.
std::string obstacle(const SSHKeyFileFacts &file, bool bearsExposure) {
    switch (file.state) {
    case SSHKeyFileState::Missing:
        return "There is no such file.";
    case SSHKeyFileState::Unreadable:
        return "It cannot be read: " + file.detail;
    case SSHKeyFileState::NoKey:
        return "It holds no private key, or one of a form that is not known.";
    case SSHKeyFileState::PublicKey:
        return "It is a public key; the private one is needed.";
    case SSHKeyFileState::PuTTY:
        return "It is in PuTTY's own format, which cannot be read.";
    case SSHKeyFileState::Exposed:
        return bearsExposure
                   ? ""
                   : fmt::format("Others have rights to it (mode {:04o}), so it is left out.",
                                 file.mode);
    case SSHKeyFileState::OnToken:
        return "A hardware token holds this key, which only an agent can use.";
    case SSHKeyFileState::UnknownCipher:
        return "It is encrypted in a way that cannot be read.";
    case SSHKeyFileState::Encrypted:
    case SSHKeyFileState::Plain:
        return "";
    }
    return "";
}

SSHErrorCause causeOf(const SSHKeyFileFacts &file) {
    return file.state == SSHKeyFileState::Missing ? SSHErrorCause::KeyMissing
                                                  : SSHErrorCause::KeyUnreadable;
}

void failFor(Examination &examination, const SSHKeyFileFacts &file) {
    SSHFacts found = ended(examination.facts, causeOf(file), SSHSessionStage::Authenticate);
    found.local->keyFiles = {file};
    examination.failBy(found);
}

void tell(Examination &examination, const SSHKeyFileFacts &file) {
    const std::string why = obstacle(file, !examination.patient.options.triesKeysOfToday);
    if (!why.empty() && file.isGiven)
        failFor(examination, file);
    else if (!why.empty())
        examination.note(named(file) + ": " + why);
    else if (!file.isTried)
        examination.note(named(file) + ": Usable, and not among those that the session tries.");
    else if (file.state == SSHKeyFileState::Encrypted && !file.isInAgent)
        examination.note(named(file) + ": Encrypted; a normal run asks for its pass phrase.");
    else
        examination.ok(named(file) +
                       (file.isInAgent ? ": Usable, and in the agent as well." : ": Usable."));
    if (file.publicFile == SSHPublicFileState::Foreign)
        examination.note(file.path + ".pub: It is the public part of another key.");
}

constexpr std::ptrdiff_t mostLines = 20; // that are told one by one

std::string numbersOf(const std::vector<std::size_t> &lines) {
    const auto more = static_cast<std::ptrdiff_t>(lines.size()) - mostLines;
    return fmt::format(
        "line{} {}{}", lines.size() == 1 ? "" : "s",
        fmt::join(lines.begin(), more > 0 ? lines.begin() + mostLines : lines.end(), ", "),
        more > 0 ? fmt::format(" and {} more", more) : "");
}

void tell(Examination &examination, const SSHKnownHostsLine &line) {
    const std::string text = fmt::format("{}, line {}: {} {} for {}.", line.file, line.number,
                                         line.keyType, line.fingerprint, line.name);
    if (line.isRevoked)
        examination.note(text + " It is marked as revoked.");
    else if (!line.isForThisPort)
        examination.note(text + (line.name.starts_with('[') ? " That is another port."
                                                            : " That is for every port."));
    else
        examination.ok(text);
}

} // namespace

void examineKeyFiles(Examination &examination) {
    const std::optional<SSHLocalFacts> &local = lookOnce(examination);
    if (!local)
        return tellUnseen(examination);
    bool isNone = true;
    for (const SSHKeyFileFacts &file : local->keyFiles)
        if (file.isGiven || file.state != SSHKeyFileState::Missing) {
            isNone = false;
            tell(examination, file);
        }
    if (isNone)
        examination.note("None was given, and there is none in ~/.ssh that a session would try.");
}

void examineAgent(Examination &examination) {
    const std::optional<SSHLocalFacts> &local = lookOnce(examination);
    if (!local)
        return tellUnseen(examination);
    const SSHAgentFacts &agent = local->agent;
    if (agent.socket.empty())
        return examination.note("None is named (SSH_AUTH_SOCK is not set).");
    if (!agent.problem.empty())
        return examination.note(
            fmt::format("The one at {} could not be asked: {}", agent.socket, agent.problem));
    if (agent.identities.empty())
        return examination.note("It holds no keys. \"ssh-add\" gives it some.");
    for (const SSHAgentIdentity &each : agent.identities)
        examination.ok(fmt::format("{} {} ({})", each.type, each.fingerprint, each.comment));
    const std::size_t most = examination.patient.options.maximumAgentKeys;
    if (most != 0 && agent.identities.size() > most)
        examination.note(
            fmt::format("The session tries {} of these {} keys.", most, agent.identities.size()));
}

void examineKnownHosts(Examination &examination) {
    const std::optional<SSHLocalFacts> &local = lookOnce(examination);
    if (!local)
        return tellUnseen(examination);
    const SSHKnownHostsFacts &known = local->knownHosts;
    if (!known.problem.empty())
        examination.note(fmt::format("{} cannot be read: {}", known.path, known.problem));
    else if (!known.exists)
        examination.note(fmt::format("There is no {}.", known.path));
    else if (!known.isWritable)
        examination.note(known.path + " cannot be written: no key can be added to it.");
    if (!known.badLines.empty())
        examination.note(
            fmt::format("{}: {} cannot be understood.", known.path, numbersOf(known.badLines)));
    const auto all = static_cast<std::ptrdiff_t>(known.lines.size());
    std::for_each_n(known.lines.begin(), std::min(all, mostLines),
                    [&](const SSHKnownHostsLine &line) { tell(examination, line); });
    if (all > mostLines)
        examination.note(fmt::format("{} more lines name the host.", all - mostLines));
    if (known.lines.empty())
        examination.note("No line names the host.");
}

} // namespace SSHEngine
