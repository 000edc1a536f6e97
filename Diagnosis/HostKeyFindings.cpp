// Is this the server that is known under this name?
#include "Diagnosis/FindingList.h"
#include "Diagnosis/FindingWords.h"
#include "Session/KeyType.h"

#include <fmt/format.h>

#include <algorithm>

namespace SSHEngine {

namespace {

using enum SSHFindingID;

constexpr const char *usualPath = "~/.ssh/known_hosts";

// Where OpenSSH's sshd keeps its key of this type.
std::string serverKeyFile(const std::string &type) {
    std::string name = keyTypeForPeople(type);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char letter) { return static_cast<char>(std::tolower(letter)); });
    return shellWord(fmt::format("/etc/ssh/ssh_host_{}_key.pub", name));
}

std::string parentOf(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, std::max<std::size_t>(slash, 1));
}

// " (line 3 of ~/.ssh/known_hosts: ED25519 SHA256:...)"
std::string entryText(const SSHKnownHostsLine *line) {
    if (!line)
        return "";
    return fmt::format(" (line {} of {}: {} {})", line->number, shown(line->file),
                       shown(keyTypeForPeople(line->keyType)), shown(line->fingerprint));
}

FindingArguments argumentsOf(const SSHFacts &facts, const SSHKnownHostsLine *line) {
    const std::string path = line ? line->file
                             : facts.local && !facts.local->knownHosts.path.empty()
                                 ? facts.local->knownHosts.path
                                 : usualPath;
    return {{"type", shown(keyTypeForPeople(facts.hostKey.type))},
            {"fingerprint", shown(facts.hostKey.fingerprint)},
            {"serverKeyFile", serverKeyFile(facts.hostKey.type)},
            {"file", shown(path)},
            {"fileWord", shellWord(path)},
            {"directory", shown(parentOf(path))},
            {"directoryWord", shellWord(parentOf(path))},
            {"line", line ? std::to_string(line->number) : ""},
            {"name", line ? shown(line->name) : ""},
            {"classic", facts.options.knowsEveryHostKeyType ? "" : "--classic "},
            {"entry", entryText(line)}};
}

template <typename Condition>
const SSHKnownHostsLine *lineThat(const SSHFacts &facts, Condition condition) {
    if (!facts.local)
        return nullptr;
    const auto &lines = facts.local->knownHosts.lines;
    const auto found = std::find_if(lines.begin(), lines.end(), condition);
    return found == lines.end() ? nullptr : &*found;
}

void addFileTrouble(FindingList &list) {
    if (!list.facts.local)
        return;
    const SSHKnownHostsFacts &file = list.facts.local->knownHosts;
    FindingArguments arguments = argumentsOf(list.facts, nullptr);
    if (file.exists && !file.problem.empty()) {
        arguments["problem"] = shown(file.problem);
        const char *const advice = holds(file.problem, "denied")
                                       ? "Look with `ls -l {0}` whose it is; `chmod 600 {0}` mends "
                                         "the mode of a file that is yours."
                                       : "Look with `ls -ld {0}` what it is, move what is no "
                                         "ordinary file out of the way, and connect again.";
        arguments["readStep"] = fmt::format(fmt::runtime(advice), arguments["fileWord"]);
        list.add(KnownHostsUnreadable, arguments);
    }
    // Only a session by default stops at such a line.
    if (file.badLines.empty() || list.facts.options.knowsEveryHostKeyType)
        return;
    const std::size_t others = file.badLines.size() - 1;
    arguments["line"] = std::to_string(file.badLines.front());
    arguments["damage"] = fmt::format(
        "is no entry of a known host{}. What stands in it does not count, and a session with "
        "--classic reads nothing of what follows it.",
        others == 0 ? "" : fmt::format(", nor are {} others", others));
    arguments["lineStep"] = fmt::format(
        "Look at it with `sed -n {0}p {1}`, and remove it with `sed -i.bak {0}d {1}` unless you "
        "can mend it.",
        arguments["line"], arguments["fileWord"]);
    list.add(KnownHostsBadLine, arguments);
}

void addUnknown(FindingList &list, SSHFindingID id) {
    addFileTrouble(list);
    const SSHFacts &facts = list.facts;
    if (list.contains(KnownHostsUnreadable)) // what stands in it is not known
        return;
    if (list.contains(KnownHostsBadLine) && lineThat(facts, [&](const SSHKnownHostsLine &each) {
            return !each.isRevoked && each.fingerprint == facts.hostKey.fingerprint;
        })) // behind the bad one
        return;
    if (const auto *line = lineThat(facts, [&](const SSHKnownHostsLine &each) {
            const bool isForEveryPort = // under the plain name, by default
                !facts.options.knowsEveryHostKeyType && !each.name.starts_with('[');
            return !each.isForThisPort && !isForEveryPort && !each.isRevoked &&
                   each.fingerprint == facts.hostKey.fingerprint;
        }))
        list.add(HostKeyOtherPort, argumentsOf(facts, line));
    list.add(id, argumentsOf(facts, nullptr));
}

// What ssh-keygen(1) removes the line by.
std::string entryWord(const SSHFacts &facts, const SSHKnownHostsLine &line) {
    if (line.name.find_first_of("|*?") == std::string::npos)
        return shellWord(line.name);
    return line.isForThisPort ? commonArguments(facts).at("entryWord") : shellWord(facts.host);
}

// Only a session by default takes a line end of Windows for a part of the key.
bool addSameKey(FindingList &list) {
    const SSHFacts &facts = list.facts;
    const auto *line = lineThat(facts, [&](const SSHKnownHostsLine &each) {
        return !each.isRevoked && each.fingerprint == facts.hostKey.fingerprint &&
               (each.isForThisPort || !each.name.starts_with('['));
    });
    if (!line || facts.options.knowsEveryHostKeyType)
        return false;
    FindingArguments arguments = argumentsOf(facts, line);
    arguments["damage"] = "holds the very key that the server showed, and a session with --classic "
                          "cannot read it, as where lines end as on Windows (CR LF).";
    arguments["lineStep"] =
        fmt::format("Mend the line ends with `sed -i.bak 's/\\r$//' {}`, or leave out --classic.",
                    arguments["fileWord"]);
    list.add(KnownHostsBadLine, arguments);
    return true;
}

void addChanged(FindingList &list) {
    if (addSameKey(list))
        return;
    const SSHFacts &facts = list.facts;
    const auto isRecord = [&](const SSHKnownHostsLine &each) {
        return each.isForThisPort && !each.isRevoked;
    };
    const auto *sameType = lineThat(facts, [&](const SSHKnownHostsLine &each) {
        return isRecord(each) && each.keyType == facts.hostKey.type;
    });
    // Under the plain name a key counts for every port, by default.
    const auto *line = sameType ? sameType : lineThat(facts, isRecord);
    const auto *any =
        line ? line : lineThat(facts, [](const auto &each) { return !each.isRevoked; });
    const bool isOtherType = line && !sameType;
    FindingArguments arguments = argumentsOf(facts, any);
    if (any)
        arguments["entryWord"] = entryWord(facts, *any);
    list.add(isOtherType ? HostKeyOtherType : HostKeyChanged, arguments);
}

} // namespace

void addHostKeyFindings(FindingList &list) {
    switch (list.cause) {
        using enum SSHErrorCause;
    case HostKeyUnknownDeclined:
        addUnknown(list, HostKeyUnknown);
        break;
    case HostKeyUnknownUnasked:
        addUnknown(list, HostKeyUnasked);
        break;
    case HostKeyChangedDeclined:
    case HostKeyChangedUnasked:
        addChanged(list);
        break;
    case SSHErrorCause::HostKeyRevoked:
        list.add(SSHFindingID::HostKeyRevoked,
                 argumentsOf(list.facts, lineThat(list.facts, [](const auto &each) {
                                 return each.isRevoked;
                             })));
        break;
    case HostKeyCheckFailed:
        addFileTrouble(list);
        break;
    default:
        break;
    }
}

// An accepted key that was not recorded is no failure, and comes back at the next connection.
void addRecordFindings(FindingList &list) {
    const SSHFacts &facts = list.facts;
    if (facts.hostKey.recordFailure == 0)
        return;
    FindingArguments arguments = argumentsOf(facts, nullptr);
    const SSHKnownHostsFacts file = facts.local ? facts.local->knownHosts : SSHKnownHostsFacts();
    if (facts.local && !file.hasDirectory) {
        list.add(SSHDirectoryMissing, arguments);
        return;
    }
    const bool isUnknownType = !facts.options.knowsEveryHostKeyType && file.isWritable;
    const std::string &word = arguments["fileWord"];
    const std::string &directory = arguments["directoryWord"];
    arguments["why"] = file.isWritable ? ", though that may be written to"
                                       : ", which this program may not write to";
    arguments["writeStep"] =
        isUnknownType ? std::string("Leave out --classic, or set knowsEveryHostKeyType as "
                                    "SSHSessionOptions::recommended() does: then keys of today's "
                                    "types are recorded too.")
        : file.isWritable
            ? fmt::format("Look with `df -h {0}` whether the disk is full.", directory)
            : fmt::format("Look with `ls -ld {0} {1}` whose they are; `chmod u+rwX {0}` mends the "
                          "mode of a directory that is yours.",
                          directory, word);
    list.add(KnownHostsUnwritten, arguments);
}

} // namespace SSHEngine
