#include <SSHSession/SSHFinding.h>

#include "Diagnosis/FindingList.h"
#include "Diagnosis/FindingTexts.h"

std::vector<SSHFinding> SSHFindings(const SSHFacts &facts) noexcept {
    SSHEngine::FindingList list(facts, facts.error ? facts.error->cause() : SSHErrorCause::Unknown);
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
