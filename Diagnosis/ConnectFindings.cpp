// From the host's name to a connection.
#include "Diagnosis/FindingList.h"
#include "Diagnosis/FindingWords.h"

#include <fmt/format.h>

#include <netdb.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace SSHEngine {

namespace {

using enum SSHFindingID;

bool isIPv6(const std::string &host) {
    return host.find(':') != host.rfind(':') &&
           host.find_first_not_of("0123456789abcdefABCDEF:.") >=
               std::min(host.find('%'), host.size());
}

// Without "ssh://", "ada@", ":22" and "/path".
std::string hostIn(std::string text) {
    if (const auto scheme = text.find("://"); scheme != std::string::npos)
        text.erase(0, scheme + 3);
    text.erase(0, text.find_first_not_of(" \t\n"));
    text = text.substr(0, text.find_first_of("/ \t\n"));
    text.erase(0, text.find('@') + 1);
    if (text.starts_with('['))
        return text.substr(1, text.find(']') - 1);
    return isIPv6(text) ? text : text.substr(0, text.find(':'));
}

void addFamilyFinding(FindingList &list) {
    const SSHSessionOptions &options = list.facts.options;
    const bool isIPv4 = options.addressFamily == SSHAddressFamily::IPv4;
    if (!options.triesEveryAddress)
        list.add(HostHasNoIPv4);
    else if (options.addressFamily == SSHAddressFamily::Any)
        list.add(HostNameUnknown);
    else
        list.add(HostHasNoSuchAddress,
                 {{"family", isIPv4 ? "IPv4" : "IPv6"}, {"familySwitch", isIPv4 ? "-4" : "-6"}});
}

void addNameFindings(FindingList &list) {
    const std::string &host = list.facts.host;
    const std::string suggestion = hostIn(host);
    if (suggestion != host && !suggestion.empty())
        list.add(HostIsNoName, {{"suggestion", shown(suggestion)}});
    else if (!list.facts.options.triesEveryAddress && isIPv6(host))
        list.add(HostHasNoIPv4);
    else if (list.facts.options.triesEveryAddress &&
             list.facts.options.addressFamily != SSHAddressFamily::Any)
        addFamilyFinding(list); // nobody has asked whether it has others
    else
        list.add(HostNameUnknown);
}

const SSHAddressFacts *failedAddress(const SSHFacts &facts) {
    const auto found = std::find_if(facts.addresses.begin(), facts.addresses.end(),
                                    [](const SSHAddressFacts &each) { return each.error != 0; });
    if (found != facts.addresses.end())
        return &*found;
    return facts.addresses.empty() ? nullptr : &facts.addresses.front();
}

FindingArguments addressArguments(const SSHFacts &facts) {
    const SSHAddressFacts *const one = failedAddress(facts);
    const int number = one && one->error != 0 ? one->error
                       : facts.error          ? static_cast<int>(facts.error->code())
                                              : 0;
    const bool isNamed = one && one->address != facts.host;
    const auto seconds = std::chrono::duration<double>(facts.options.connectTimeout).count();
    std::vector<std::string> addresses;
    for (const SSHAddressFacts &each : facts.addresses)
        addresses.push_back(shown(each.address));
    return {{"address", isNamed ? fmt::format(" ({})", enumeration(addresses, "and")) : ""},
            {"addressWord", shellWord(one ? one->address : facts.host)},
            {"within", seconds > 0 ? fmt::format(" within {} s", seconds) : ""},
            {"error", number > 0 ? std::generic_category().message(number) : "no reason is given"}};
}

// No router makes this computer answer so.
bool isForbidden(const SSHFacts &facts) {
    const SSHAddressFacts *const failed = failedAddress(facts);
    return failed && (failed->error == EACCES || failed->error == EPERM);
}

// By default a refusal shows in the handshake.
SSHErrorCause causeInAddresses(const FindingList &list) {
    const SSHFacts &facts = list.facts;
    const bool isOpen = std::any_of(facts.addresses.begin(), facts.addresses.end(),
                                    [](const SSHAddressFacts &each) { return each.isConnected; });
    if (!facts.error || isOpen || facts.server.hasSpoken ||
        (facts.stage != SSHSessionStage::Connect && facts.stage != SSHSessionStage::Handshake))
        return list.cause;
    const SSHAddressFacts *const failed = failedAddress(facts);
    switch (failed ? failed->error : 0) {
    case ECONNREFUSED:
        return SSHErrorCause::Refused;
    case EHOSTUNREACH:
    case ENETUNREACH:
        return SSHErrorCause::Unreachable;
    default:
        return list.cause;
    }
}

} // namespace

void addConnectFindings(FindingList &list) {
    switch (causeInAddresses(list)) {
        using enum SSHErrorCause;
    case NameNotFound:
        addNameFindings(list);
        break;
    case NameServerFailed:
        list.add(NameServerSilent);
        break;
    case NoUsableAddress:
        addFamilyFinding(list);
        break;
    case Refused:
        list.add(SSHFindingID::ConnectionRefused, addressArguments(list.facts));
        break;
    case Unreachable:
        list.add(isForbidden(list.facts) ? ConnectionForbidden : HostUnreachable,
                 addressArguments(list.facts));
        break;
    case ConnectTimedOut:
        list.add(ConnectionDropped, addressArguments(list.facts));
        break;
    case SSHErrorCause::NoSocket:
        list.add(SSHFindingID::NoSocket, addressArguments(list.facts));
        break;
    default:
        break;
    }
}

} // namespace SSHEngine
