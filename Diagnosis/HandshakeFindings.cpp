// From a connection to an encrypted one.
#include "Diagnosis/FindingList.h"
#include "Diagnosis/FindingWords.h"
#include "Diagnosis/KnownWords.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace SSHEngine {

namespace {

using enum SSHFindingID;
using Names = std::vector<std::string>;

// --- What is no SSH server

// What its greeting looks like, where that is known.
std::string kindOf(const std::string &greeting) {
    if (greeting.starts_with("220"))
        return ": it greets as a mail or FTP server does";
    if (greeting.starts_with("* OK") || greeting.starts_with("+OK"))
        return ": it greets as a server for fetching mail does";
    if (greeting.starts_with("RFB "))
        return ": it greets as a VNC server does";
    if (greeting.starts_with("-ERR"))
        return ": it answers as a Redis server does";
    constexpr std::size_t versionByte = 4;
    const bool isMySQL = greeting.size() > versionByte && greeting[versionByte - 1] == 0 &&
                         (greeting[versionByte] == 10 || greeting[versionByte] == '\xFF');
    return isMySQL ? ": it greets as a MySQL or MariaDB server does" : "";
}

// Without the bytes that are no text, such as those before a database's greeting.
std::string readable(const std::string &greeting) {
    std::string text;
    for (const char byte : greeting)
        text += static_cast<unsigned char>(byte) < ' ' ? ' ' : byte;
    return shown(text);
}

void addOtherProtocol(FindingList &list) {
    const SSHServerFacts &server = list.facts.server;
    const std::string &lines = server.linesBefore;
    if (server.version.starts_with(Words::ssh1) && !server.version.starts_with(Words::ssh1And2)) {
        list.add(SpeaksSSH1, {{"words", shown(server.version)}});
        return;
    }
    const bool beginsVersion =
        lines.starts_with("SSH-") || std::string_view("SSH-").starts_with(lines);
    if (!server.version.empty() || lines.empty() || beginsVersion)
        return;
    const FindingArguments words = {{"words", readable(lines)}, {"kind", kindOf(lines)}};
    if (holds(lines, Words::tooBusy))
        list.add(ServerTooBusy, words);
    else if (holds(lines, Words::penalty))
        list.add(ServerPenalty, words);
    else if (lines.starts_with(Words::http))
        list.add(SpeaksHTTP, {{"words", lineWith(lines, Words::http)}});
    else if (lines.starts_with(Words::tlsAlert))
        list.add(SpeaksTLS);
    else
        list.add(SpeaksOtherProtocol, words);
}

// --- Nothing in common

struct Kind {
    SSHFindingID id;
    SSHErrorCause cause;
    std::vector<Names SSHAlgorithms::*> lists; // for both directions
};

const std::vector<Kind> &kinds() {
    static const std::vector<Kind> all = {
        {NoCommonKeyExchange, SSHErrorCause::NoCommonKeyExchange, {&SSHAlgorithms::keyExchange}},
        {NoCommonHostKey, SSHErrorCause::NoCommonHostKey, {&SSHAlgorithms::hostKey}},
        {NoCommonCipher,
         SSHErrorCause::NoCommonCipher,
         {&SSHAlgorithms::cipherToServer, &SSHAlgorithms::cipherToClient}},
        {NoCommonMAC,
         SSHErrorCause::NoCommonMAC,
         {&SSHAlgorithms::macToServer, &SSHAlgorithms::macToClient}}};
    return all;
}

bool hasCommon(const Names &ours, const Names &theirs) {
    return std::find_first_of(ours.begin(), ours.end(), theirs.begin(), theirs.end()) != ours.end();
}

// Of several directions the one that has nothing.
Names SSHAlgorithms::*lackingList(const Kind &kind, const SSHFacts &facts) {
    for (const auto list : kind.lists)
        if (facts.server.offer && !hasCommon(facts.known.*list, *facts.server.offer.*list))
            return list;
    return nullptr;
}

// Not the names that stand for extensions of the protocol.
Names algorithmsIn(const Names &names) {
    Names result;
    std::copy_if(names.begin(), names.end(), std::back_inserter(result), [](const auto &name) {
        return !name.starts_with("ext-info-") && !name.starts_with("kex-strict-");
    });
    return result;
}

std::string listed(const Names &names) {
    return names.empty() ? "none" : shown(fmt::format("{}", fmt::join(names, ", ")));
}

void addNothingInCommon(FindingList &list, const Kind &kind) {
    auto which = lackingList(kind, list.facts);
    if (!which)
        which = kind.lists.front();
    const Names ours = algorithmsIn(list.facts.known.*which);
    const Names theirs =
        list.facts.server.offer ? algorithmsIn(*list.facts.server.offer.*which) : Names();
    list.add(kind.id, {{"ours", listed(ours)},
                       {"theirs", listed(theirs)},
                       {"choice", ours.empty() ? "NAME" : shown(ours.front())}});
}

// --- The rest

std::string timeLimit(const SSHFacts &facts) {
    const auto seconds = std::chrono::duration<double>(facts.options.handshakeTimeout).count();
    return seconds > 0 ? fmt::format(" within {} s", seconds) : "";
}

// Whose port this is as a rule, where that is another's: these do not speak first, or hang up.
std::string usualOwner(const SSHFacts &facts) {
    struct Owner {
        std::uint16_t port;
        const char *name;
    };
    constexpr std::array owners = {
        Owner{80, "a web server's"}, Owner{443, "a web server's (HTTPS)"},
        Owner{1433, "SQL Server's"}, Owner{1521, "an Oracle database's"},
        Owner{3306, "MySQL's"},      Owner{3389, "Remote Desktop's"},
        Owner{5432, "PostgreSQL's"}, Owner{6379, "Redis's"},
        Owner{27017, "MongoDB's"},
    };
    const auto *const found = std::find_if(
        owners.begin(), owners.end(), [&](const Owner &each) { return each.port == facts.port; });
    return found == owners.end() ? ""
                                 : fmt::format(" Port {} is {} as a rule, and 22 that of SSH.",
                                               found->port, found->name);
}

void addEnding(FindingList &list) {
    const SSHServerFacts &server = list.facts.server;
    if (!server.version.empty())
        list.add(HandshakeCutOff);
    else if (!list.facts.disconnect)
        list.add(ServerHungUpAtOnce, {{"usual", usualOwner(list.facts)}});
}

void addFailure(FindingList &list) {
    const SSHServerFacts &server = list.facts.server;
    for (const Kind &kind : kinds())
        if (list.facts.server.offer && !list.facts.known.keyExchange.empty() &&
            lackingList(kind, list.facts) && kind.id != NoCommonMAC)
            return addNothingInCommon(list, kind);
    if (server.hasHungUp)
        addEnding(list);
    else
        list.add(SSHFindingID::HandshakeFailed,
                 list.cause == SSHErrorCause::NoCommonCompression
                     ? FindingArguments{{"detail", " They have no kind of compression in common."}}
                     : FindingArguments());
}

} // namespace

void addHandshakeFindings(FindingList &list) {
    const SSHFacts &facts = list.facts;
    const bool isEarly = list.cause == SSHErrorCause::ClosedEarly; // maybe as it connected
    if ((facts.stage != SSHSessionStage::Handshake && !isEarly) || !facts.error || !list.isEmpty())
        return;
    addOtherProtocol(list);
    if (!list.isEmpty())
        return;
    for (const Kind &kind : kinds())
        if (kind.cause == list.cause)
            return addNothingInCommon(list, kind);
    switch (list.cause) {
        using enum SSHErrorCause;
    case ClosedEarly:
    case NotSSH:
    case ConnectionLost:
        addEnding(list);
        break;
    case HandshakeTimedOut:
    case ServerUnresponsive:
        list.add(facts.server.version.empty() && facts.server.linesBefore.empty() ? ServerSilent
                                                                                  : HandshakeSlow,
                 {{"within", timeLimit(facts)}, {"usual", usualOwner(facts)}});
        break;
    case SSHErrorCause::HandshakeFailed:
    case NoCommonCompression:
        addFailure(list);
        break;
    default:
        break;
    }
}

} // namespace SSHEngine
