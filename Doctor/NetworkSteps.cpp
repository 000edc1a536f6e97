// The way to the server: its name, and each of its addresses.
#include "Doctor/Steps.h"

#include "Doctor/Visit.h"
#include "Platform/Text.h"
#include "Session/LookUp.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace SSHEngine {

using std::chrono::milliseconds;

namespace {

constexpr std::size_t mostAddresses = 8;

struct Family {
    int number;
    const char *name;
    bool isUsed; // by the session
    // Shared with who looks it up.
    std::shared_ptr<Found> answer = std::make_shared<Found>();
    bool hasAnswered = false;

    bool isFound() const { return hasAnswered && !answer->addresses.empty(); }
};

std::string inNumbers(const std::vector<Address> &addresses) {
    std::vector<std::string> texts;
    texts.reserve(addresses.size());
    for (const Address &address : addresses)
        texts.push_back(address.text());
    return fmt::format("{}", fmt::join(texts, ", "));
}

Found ask(const std::string &host, std::uint16_t port, int family, int flags) {
    Found found = SSHEngine::lookUp(host.c_str(), port, family, flags);
    found.addresses = inTurn(found.addresses); // each once
    return found;
}

// At the same time. Nothing ends a look-up that a name server leaves waiting.
void lookUp(const Examination &examination, std::vector<Family> &families) {
    std::vector<Errand> errands;
    errands.reserve(families.size());
    for (const Family &family : families)
        errands.emplace_back([answer = family.answer, host = *examination.patient.host,
                              port = examination.patient.port,
                              number = family.number] { *answer = ask(host, port, number, 0); });
    const auto begin = TimeBudget::Clock::now();
    for (std::size_t i = 0; i < errands.size(); ++i)
        families[i].hasAnswered = errands[i].isDoneWithin(
            examination.budget,
            std::chrono::ceil<milliseconds>(longestWait - (TimeBudget::Clock::now() - begin)));
}

void tell(Examination &examination, const Family &family) {
    if (!family.hasAnswered)
        examination.note(fmt::format("{}: no name server has answered within {}.", family.name,
                                     spelled(longestWait)));
    else if (family.isFound())
        examination.ok(fmt::format("{}: {}", family.name, inNumbers(family.answer->addresses)));
    else
        examination.note(
            fmt::format("{}: none. {}.", family.name, ::gai_strerror(family.answer->code)));
}

void fail(Examination &examination, const std::vector<Family> &families) {
    const Family &used = families[0].isUsed ? families[0] : families[1];
    const Family &other = families[0].isUsed ? families[1] : families[0];
    SSHErrorCause cause = SSHErrorCause::NameNotFound;
    if (!other.isUsed && other.isFound())
        cause = SSHErrorCause::NoUsableAddress;
    else if (!used.hasAnswered || used.answer->code == EAI_AGAIN)
        cause = SSHErrorCause::NameServerFailed;
    examination.facts.lookUpCode = used.hasAnswered ? used.answer->code : EAI_AGAIN;
    examination.failBy(cause, SSHSessionStage::Connect);
}

// Of one address.
struct Attempt {
    Address address;
    OwnSocket socket;
    int error = 0;
    milliseconds time{0};
};

std::vector<Attempt> connectToAll(const Examination &examination) {
    std::vector<Attempt> attempts;
    const auto begin = TimeBudget::Clock::now();
    const auto spent = [&] {
        return std::chrono::duration_cast<milliseconds>(TimeBudget::Clock::now() - begin);
    };
    for (const Address &address : examination.addresses) {
        attempts.push_back({.address = address, .socket = beginToConnect(address)});
        if (attempts.back().socket.get() < 0)
            attempts.back().error = errno;
    }
    for (Attempt &attempt : attempts)
        if (attempt.error == 0) {
            attempt.error = finishConnecting(
                attempt.socket, examination.budget,
                std::max(examination.facts.options.connectTimeout - spent(), milliseconds(0)));
            attempt.time = spent();
        }
    return attempts;
}

void keep(Examination &examination, std::vector<Attempt> &attempts) {
    for (Attempt &attempt : attempts) {
        const bool isConnected = attempt.error == 0;
        examination.facts.addresses.push_back({.address = attempt.address.text(),
                                               .error = attempt.error,
                                               .isConnected = isConnected});
        if (!isConnected || examination.address)
            continue;
        examination.address = attempt.address;
        examination.socket = std::move(attempt.socket);
        examination.reached |= Examination::HasAnswer;
    }
}

SSHErrorCause causeOf(const Examination &examination) {
    int number = 0;
    for (const SSHAddressFacts &each : examination.facts.addresses)
        number = moreTelling(number, each.error);
    switch (number) {
    case ECONNREFUSED:
        return SSHErrorCause::Refused;
    case ETIMEDOUT:
        return SSHErrorCause::ConnectTimedOut;
    default:
        return SSHErrorCause::Unreachable;
    }
}

} // namespace

void examineLookUp(Examination &examination) {
    const std::string &host = examination.facts.host;
    const SSHSessionOptions &options = examination.patient.options;
    const bool isForOne = !options.triesEveryAddress;
    const SSHAddressFamily wanted = isForOne ? SSHAddressFamily::IPv4 : options.addressFamily;
    std::vector<Family> families = {
        Family{AF_INET, "IPv4 (A)", wanted != SSHAddressFamily::IPv6},
        Family{AF_INET6, "IPv6 (AAAA)", wanted != SSHAddressFamily::IPv4}};
    const auto isUsed = [&](const Address &address) {
        return families[address.family() == AF_INET ? 0 : 1].isUsed;
    };
    Found literal = ask(host, examination.patient.port, AF_UNSPEC, AI_NUMERICHOST);
    if (!host.empty() && literal.code == 0 && isUsed(literal.addresses.front())) {
        examination.addresses = std::move(literal.addresses);
        examination.ok(inNumbers(examination.addresses) + " is an address; no name is looked up.");
    } else if (host.empty()) {
        examination.facts.lookUpCode = EAI_NONAME;
        examination.failBy(SSHErrorCause::NameNotFound, SSHSessionStage::Connect);
    } else {
        lookUp(examination, families);
        for (const Family &family : families)
            tell(examination, family);
        std::vector<Address> &addresses = examination.addresses;
        for (const Family &family : families) // the last one, IPv6, comes first
            if (family.isUsed && family.isFound())
                addresses.insert(addresses.begin(), family.answer->addresses.begin(),
                                 family.answer->addresses.end());
        if (isForOne)
            addresses.erase(addresses.begin() + (addresses.empty() ? 0 : 1), addresses.end());
        addresses = inTurn(addresses);
        if (addresses.empty())
            fail(examination, families);
    }
    if (!examination.addresses.empty())
        examination.reached |= Examination::HasAddress;
}

void examineConnect(Examination &examination) {
    std::vector<Address> &addresses = examination.addresses;
    const std::size_t all = addresses.size();
    addresses.erase(addresses.begin() + static_cast<std::ptrdiff_t>(std::min(all, mostAddresses)),
                    addresses.end());
    std::vector<Attempt> attempts = connectToAll(examination);
    keep(examination, attempts);
    for (std::size_t i = 0; i < attempts.size(); ++i) {
        const SSHAddressFacts &found = examination.facts.addresses[i];
        const std::string where =
            fmt::format("{}, port {}: ", found.address, examination.patient.port);
        if (found.isConnected)
            examination.ok(where + "connected after " + spelled(attempts[i].time) + ".");
        else if (found.error == ETIMEDOUT)
            examination.note(where + "no answer within " +
                             spelled(examination.facts.options.connectTimeout) + ".");
        else
            examination.note(where + SSHPlatform::errnoText(found.error) + ".");
    }
    if (all > mostAddresses)
        examination.note(fmt::format("{} more addresses were not tried.", all - mostAddresses));
    if (!examination.address)
        examination.failBy(causeOf(examination), SSHSessionStage::Connect);
}

} // namespace SSHEngine
