#include "Diagnosis/FindingList.h"

#include "Diagnosis/FindingTexts.h"
#include "Diagnosis/FindingWords.h"

#include <SSHSession/PrintableText.h>

#include <fmt/args.h>
#include <fmt/format.h>

#include <algorithm>
#include <exception>

namespace SSHEngine {

namespace {

constexpr std::size_t mostFindings = 5;
constexpr std::uint16_t usualPort = 22;

// A text whose arguments are not all there is shown as it stands, rather than not at all.
std::string filled(const char *text, const FindingArguments &arguments) {
    fmt::dynamic_format_arg_store<fmt::format_context> store;
    for (const auto &[name, value] : arguments)
        store.push_back(fmt::arg(name.c_str(), value));
    try {
        return SSHPlatform::printableText(fmt::vformat(text, store), "");
    } catch (const std::exception &) {
        return text;
    }
}

const char *duringStage(SSHSessionStage stage) {
    switch (stage) {
        using enum SSHSessionStage;
    case Connect:
        return " while it was made";
    case Handshake:
        return " during the handshake";
    case HostKey:
        return " while the server's key was checked";
    case Agent:
    case Authenticate:
        return " during the log-in";
    case Execute:
        break;
    }
    return " while a command was to run";
}

std::string saidAtTheEnd(const SSHFacts &facts) {
    return facts.disconnect ? quotedAs("The server said", facts.disconnect->message) : "";
}

std::string detailOf(const SSHErrorRef &error) {
    if (!error)
        return "";
    const std::optional<std::string> reason = error->localizedFailureReason();
    return quotedAs("The error says",
                    reason ? *reason : error->localizedDescription().value_or(""));
}

} // namespace

FindingArguments commonArguments(const SSHFacts &facts) {
    const std::string user = facts.user.empty() ? "the user" : shown(facts.user);
    const std::string entry =
        facts.port == usualPort ? facts.host : fmt::format("[{}]:{}", facts.host, facts.port);
    std::vector<std::string> methods;
    for (const std::string &method : facts.methods)
        methods.push_back(shown(method));
    return {{"host", facts.host.empty() ? "the host" : shown(facts.host)},
            {"port", std::to_string(facts.port)},
            {"user", user},
            {"hostWord", shellWord(facts.host)},
            {"userWord", shellWord(facts.user)},
            {"remoteUserWord", shellWord(shellWord(facts.user))}, // behind ssh, for two shells
            {"entryWord", shellWord(entry)},
            {"login", shellWord(facts.user.empty() ? facts.host : facts.user + "@" + facts.host)},
            {"version",
             facts.server.version.empty() ? "" : fmt::format(" ({})", shown(facts.server.version))},
            {"methods",
             methods.empty() ? "methods that it does not name" : enumeration(methods, "and")},
            {"said", saidAtTheEnd(facts)},
            {"detail", detailOf(facts.error)},
            {"during", duringStage(facts.stage)},
            {"within", ""}};
}

void FindingList::add(SSHFindingID id, const FindingArguments &arguments) {
    if (contains(id) || mFindings.size() >= mostFindings)
        return;
    FindingArguments all = arguments;
    all.insert(mCommon.begin(), mCommon.end());
    const FindingText &row = findingTexts()[static_cast<std::size_t>(id)];
    mFindings.push_back({.id = id, .text = filled(row.text, all), .step = filled(row.step, all)});
}

bool FindingList::contains(SSHFindingID id) const {
    return std::any_of(mFindings.begin(), mFindings.end(),
                       [&](const SSHFinding &each) { return each.id == id; });
}

} // namespace SSHEngine
