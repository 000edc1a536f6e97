#include "ExitStatus.h"

#include "Output.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <string>

namespace {

constexpr int signalBase = 128;

struct Signal {
    std::string_view name;
    int number;
};

// Those that RFC 4254, section 6.10, names, then the others that every POSIX system has.
constexpr std::array signals = {
    Signal{"ABRT", SIGABRT},     Signal{"ALRM", SIGALRM}, Signal{"FPE", SIGFPE},
    Signal{"HUP", SIGHUP},       Signal{"ILL", SIGILL},   Signal{"INT", SIGINT},
    Signal{"KILL", SIGKILL},     Signal{"PIPE", SIGPIPE}, Signal{"QUIT", SIGQUIT},
    Signal{"SEGV", SIGSEGV},     Signal{"TERM", SIGTERM}, Signal{"USR1", SIGUSR1},
    Signal{"USR2", SIGUSR2},     Signal{"BUS", SIGBUS},   Signal{"CHLD", SIGCHLD},
    Signal{"CONT", SIGCONT},     Signal{"PROF", SIGPROF}, Signal{"STOP", SIGSTOP},
    Signal{"SYS", SIGSYS},       Signal{"TRAP", SIGTRAP}, Signal{"TSTP", SIGTSTP},
    Signal{"TTIN", SIGTTIN},     Signal{"TTOU", SIGTTOU}, Signal{"URG", SIGURG},
    Signal{"VTALRM", SIGVTALRM}, Signal{"XCPU", SIGXCPU}, Signal{"XFSZ", SIGXFSZ},
};

} // namespace

std::optional<std::string> exitSignalOf(const SSHCommand &command) {
    return command.wasEndedBySignal() ? std::optional(*command.exitSignal()) : std::nullopt;
}

std::optional<int> signalNumber(std::string_view name) {
    name = name.substr(0, name.find('@'));
    const auto *const found = std::find_if(
        signals.begin(), signals.end(), [&](const Signal &signal) { return signal.name == name; });
    return found == signals.end() ? std::nullopt : std::optional(found->number);
}

int exitStatusOf(const SSHCommand &command) {
    const auto signal = exitSignalOf(command);
    if (!signal && command.exitStatus() >= 0 && command.exitStatus() <= failedStatus)
        return command.exitStatus();
    if (!signal) {
        tell("The command's exit status is " + std::to_string(command.exitStatus()) +
             ", which is more than can be handed through.");
        return failedStatus;
    }
    if (const auto number = signalNumber(*signal))
        return signalBase + *number;
    tell("The command was ended by the signal \"" + *signal +
         "\", which has no number on this system.");
    return failedStatus;
}
