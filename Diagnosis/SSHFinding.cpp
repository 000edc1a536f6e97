#include <SSHSession/SSHFinding.h>

#include "Diagnosis/FindingList.h"
#include "Diagnosis/FindingTexts.h"

namespace {

// A key that the user does not accept ends some sessions without an error.
SSHErrorCause causeOf(const SSHFacts &facts) {
    using enum SSHErrorCause;
    if (facts.error)
        return facts.error->cause();
    const SSHHostKeyFacts &key = facts.hostKey;
    if (facts.stage != SSHSessionStage::HostKey || facts.isStageUnderWay || key.isAccepted)
        return Unknown;
    if (key.standing == SSHHostKeyStanding::Changed)
        return key.wasAsked ? HostKeyChangedDeclined : HostKeyChangedUnasked;
    if (key.standing == SSHHostKeyStanding::Unknown)
        return key.wasAsked ? HostKeyUnknownDeclined : HostKeyUnknownUnasked;
    return Unknown;
}

} // namespace

std::vector<SSHFinding> SSHFindings(const SSHFacts &facts) noexcept {
    SSHEngine::FindingList list(facts, causeOf(facts));
    SSHEngine::addConnectFindings(list);
    SSHEngine::addHandshakeFindings(list);
    SSHEngine::addLogInFindings(list);
    SSHEngine::addCommandFindings(list);
    SSHEngine::addHostKeyFindings(list);
    SSHEngine::addGeneralFindings(list);
    SSHEngine::addRecordFindings(list);
    return list.findings();
}

const char *SSHFindingName(SSHFindingID id) noexcept {
    const auto rows = SSHEngine::findingTexts();
    const auto index = static_cast<std::size_t>(id);
    return index < rows.size() ? rows[index].name : "unexplained";
}
