// What can happen at any time, and what nobody has explained.
#include "Diagnosis/FindingList.h"
#include "Diagnosis/FindingWords.h"

#include <cerrno>

namespace SSHEngine {

namespace {

using enum SSHFindingID;

void addLoss(FindingList &list) {
    list.add(list.facts.server.failure == ECONNRESET ? ConnectionReset
                                                     : SSHFindingID::ConnectionLost);
}

} // namespace

void addGeneralFindings(FindingList &list) {
    const SSHFacts &facts = list.facts;
    if (!facts.error || !list.isEmpty())
        return;
    if (facts.disconnect)
        list.add(ServerDisconnected, {{"code", std::to_string(facts.disconnect->code)}});
    switch (list.cause) {
        using enum SSHErrorCause;
    case ConnectionLost:
    case DisconnectedByServer:
        if (!facts.disconnect)
            addLoss(list);
        break;
    case SSHErrorCause::ServerUnresponsive:
        list.add(SSHFindingID::ServerUnresponsive);
        break;
    case SSHErrorCause::ServerMisbehaved:
        list.add(SSHFindingID::ServerMisbehaved);
        break;
    case SSHErrorCause::NotConnected:
        list.add(SSHFindingID::NotConnected);
        break;
    case SSHErrorCause::AlreadyStarting:
        list.add(SSHFindingID::AlreadyStarting);
        break;
    case SSHErrorCause::Cancelled:
        list.add(SSHFindingID::Cancelled);
        break;
    case SSHErrorCause::Stopped:
        list.add(SSHFindingID::Stopped);
        break;
    default:
        break;
    }
    if (list.isEmpty())
        list.add(Unexplained);
}

} // namespace SSHEngine
