// From a command to its end.
#include "Diagnosis/FindingList.h"
#include "Diagnosis/FindingWords.h"
#include "Diagnosis/KnownWords.h"
#include "Platform/Text.h"

#include <fmt/format.h>

namespace SSHEngine {

namespace {

using enum SSHFindingID;

constexpr int notFoundStatus = 127; // these two by POSIX, Shell Command Language, 2.8.2
constexpr int notExecutableStatus = 126;

std::string reasonOf(const SSHFacts &facts) {
    return facts.error ? facts.error->localizedFailureReason().value_or("") : "";
}

FindingArguments quoting(std::string_view who, const std::string &text, std::string_view words) {
    return {{"said", quotedAs(who, lineWith(text, words))}};
}

// --- sudo

std::string terminalStep(const SSHFacts &facts) {
    if (facts.command.hasAdminPassword)
        return fmt::format("Have `Defaults:{} !requiretty` added on the server with `sudo visudo`.",
                           shown(facts.user));
    return "Leave sudo out of the command and give its password apart (--admin-password-from, "
           "SSHCommand::adminPassword): then the command runs through sudo without a terminal.";
}

bool addBySudosWords(FindingList &list, const std::string &text, std::string_view who = "It said") {
    struct Rule {
        SSHFindingID id;
        Words::List words;
    };
    for (const Rule &rule :
         {Rule{SudoMissing, Words::sudoMissing}, Rule{SudoNotAllowed, Words::notSudoer},
          Rule{SudoNeedsTerminal, Words::wantsTerminal},
          Rule{SudoPasswordWrong, Words::wrongPassword}}) {
        const std::string_view words = wordsIn(text, rule.words);
        if (words.empty())
            continue;
        FindingArguments arguments = quoting(who, text, words);
        arguments["terminalStep"] = terminalStep(list.facts);
        arguments["where"] = list.facts.command.hasAdminPassword ? " at /usr/bin/sudo" : "";
        list.add(rule.id, arguments);
        return true;
    }
    return false;
}

void addSudoSilence(FindingList &list) {
    const SSHFacts &facts = list.facts;
    if (addBySudosWords(list, facts.command.errorEnd))
        return;
    const std::string &output = facts.command.outputBegin;
    if (!facts.options.followsSudo && !output.empty())
        list.add(SudoHiddenByShell,
                 {{"words", shown(output.substr(0, output.find("#SSHSession")))}});
    else
        list.add(SSHFindingID::SudoSilent, quoting("It said", facts.command.errorEnd, ""));
}

// --- Time limits

constexpr std::size_t mostOfOutput = 1024; // is known from its beginning

void addSlowness(FindingList &list, SSHFindingID id, std::chrono::milliseconds limit) {
    const SSHCommandFacts &command = list.facts.command;
    const auto seconds = std::chrono::duration<double>(limit).count();
    const std::string last = command.errorEnd.empty() && command.outputBytes < mostOfOutput
                                 ? lineWith(command.outputBegin, "")
                                 : lineWith(command.errorEnd, "");
    if (command.waitsForSudo)
        addSudoSilence(list);
    list.add(id, {{"within", seconds > 0 ? fmt::format(" within {} s", seconds) : ""},
                  {"output", command.outputBytes == 0 ? " It had written nothing."
                                                      : quotedAs("It had last written", last)}});
    if (!command.hasInput && !command.waitsForSudo)
        list.add(CommandMayWaitForInput);
}

// --- Commands that have ended

void addSignal(FindingList &list) {
    const std::string signal = shown(list.facts.command.exitSignal);
    const bool isKill = signal == "KILL";
    const bool isEnding = signal == "TERM" || signal == "HUP" || signal == "INT";
    list.add(
        CommandKilled,
        {{"signal", signal},
         {"meaning", isKill     ? ": an administrator, a limit or a system that runs out of memory "
                                  "does that, which look alike from here"
                     : isEnding ? ": a person (kill), timeout(1), a service manager and a system "
                                  "that shuts down do that, which look alike from here"
                                : ""},
         {"killedStep",
          isKill     ? "Have `journalctl -k` (or `dmesg`) read on the server at this "
                       "time: it names what a shortage of memory has ended."
          : isEnding ? "Ask whoever runs the server, and look whether it was restarted "
                       "(`last -x -n 5`); then run the command again."
                     : "Run the command in a terminal on the server, where it may say more."}});
}

void addEnd(FindingList &list) {
    const SSHCommandFacts &command = list.facts.command;
    const std::string all = command.outputBegin + "\n" + command.errorEnd;
    if (!command.exitSignal.empty()) {
        addSignal(list);
        return;
    }
    if (command.exitStatus == 0)
        return;
    if (const auto words = wordsIn(all, Words::notAvailable); !words.empty())
        list.add(ShellNotAvailable, quoting("It said", all, words));
    else if (const auto refusal = wordsIn(all, Words::filesOnly); !refusal.empty())
        list.add(SSHFindingID::CommandRefused, quoting("It said", all, refusal));
    else if (holds(command.errorEnd, Words::expired))
        list.add(PasswordExpired);
    else if (command.exitStatus == 1 && command.outputBytes == command.errorEnd.size() &&
             holds(command.errorEnd, Words::tooLong))
        list.add(SSHFindingID::CommandTooLong, // for the shell, in sshd's words
                 {{"longerThan", "the server's shell can be started with"}});
    else if (!command.hasAdminPassword && holds(command.errorEnd, "sudo:") &&
             addBySudosWords(list, command.errorEnd))
        return; // sudo in the command itself
    else if (command.exitStatus == notFoundStatus)
        list.add(
            CommandNotFound,
            {{"status", " (exit status 127)"},
             {"said", quotedAs("It said", lineWith(command.errorEnd,
                                                   wordsIn(command.errorEnd, Words::notFound)))}});
    else if (command.exitStatus == notExecutableStatus)
        list.add(CommandNotExecutable,
                 quoting("It said", command.errorEnd, wordsIn(command.errorEnd, Words::cannotRun)));
}

} // namespace

void addCommandFindings(FindingList &list) {
    const SSHFacts &facts = list.facts;
    if (!facts.error && facts.command.hasEnded)
        addEnd(list);
    switch (list.cause) {
        using enum SSHErrorCause;
    case SSHErrorCause::SessionRefused:
        list.add(SSHFindingID::SessionRefused);
        break;
    case SSHErrorCause::CommandRefused:
        list.add(SSHFindingID::CommandRefused);
        break;
    case SSHErrorCause::CommandTooLong:
        list.add(SSHFindingID::CommandTooLong,
                 {{"longerThan", "can be sent, which is about 35 KB"}});
        break;
    case SSHErrorCause::InputUnreadable:
        list.add(SSHFindingID::InputUnreadable,
                 {{"why", SSHPlatform::errnoText(static_cast<int>(facts.error->code()))}});
        break;
    case CommandTimedOut:
        addSlowness(list, CommandSlow, facts.options.commandTimeout);
        break;
    case SSHErrorCause::CommandSilent:
        addSlowness(list, SSHFindingID::CommandSilent, facts.options.silenceTimeout);
        break;
    case SSHErrorCause::SudoRefused:
        if (!addBySudosWords(list, facts.command.errorEnd) &&
            !addBySudosWords(list, reasonOf(facts), "The error says"))
            list.add(SSHFindingID::SudoRefused, quoting("The error says", reasonOf(facts), ""));
        break;
    case SSHErrorCause::SudoSilent:
        addSudoSilence(list);
        break;
    default:
        break;
    }
}

} // namespace SSHEngine
