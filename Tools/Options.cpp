#include "Options.h"

#include "Failure.h"

#include <SSHSession/SSHSessionVersion.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

namespace {

constexpr const char *description =
    "Runs a command on another computer over SSH and hands through its output and exit status.\n";

constexpr const char *footer =
    R"(FILE is a file's name, "-" for standard input (in one option at most) or, for a password, "prompt"
to be asked on the terminal. Passwords are never taken from the command line. One line end at the
end of a password file does not count.

Exit status: the command's; 128 + the signal's number when a signal ended the command; 255 when the
session failed or the command line made no sense. With --doctor: 0, or 1 when something failed.

Examples:
  sshsession db.example.com uptime
  sshsession -p 2222 --password-from prompt ada@db.example.com 'ls /var/log'
  sshsession 'ada@[2001:db8::7]:2222' uptime
  gzip -dc dump.sql.gz | sshsession ada@db.example.com psql shop
  sshsession --admin-password-from prompt ada@db.example.com systemctl restart postgresql
  sshsession --doctor ada@db.example.com)";

constexpr int longestTimeout = 1'000'000; // seconds

class HelpFormatter final : public CLI::Formatter {
  public:
    HelpFormatter() {
        column_width(32);
        label("TEXT", "FILE");
    }

    // The host and the command are no options, so the library does not know of them.
    std::string make_usage(const CLI::App * /*app*/, std::string name) const override {
        return "Usage: " + name + " [OPTION]... [USER@]HOST COMMAND...\n\n";
    }

    // Without the line that the library leaves empty in front of each group, besides the one
    // behind.
    std::string make_group(std::string group, bool isPositional,
                           std::vector<const CLI::Option *> options) const override {
        return Formatter::make_group(std::move(group), isPositional, std::move(options)).substr(1);
    }
};

void declareOptions(CLI::App &app, Options &options) {
    app.add_option("-p", options.port, "The server's port, 22 by default")
        ->check(CLI::Range(1, 65535).description(""))
        ->type_name("PORT")
        ->group("Connection");
    app.add_option("-l", options.user, "The user's name, in place of USER@")
        ->type_name("USER")
        ->group("Connection");
    app.add_option_function<std::vector<std::string>>(
           "-i",
           [&](const std::vector<std::string> &paths) {
               options.keyFile = paths.front();
               options.furtherKeyFiles.assign(paths.begin() + 1, paths.end());
           },
           "A private key, tried before those in ~/.ssh; may be given\n"
           "several times")
        ->type_name("KEYFILE")
        ->allow_extra_args(false)
        ->group("Connection");
    app.add_flag("-4", options.isForIPv4, "Use IPv4 addresses only")->group("Connection");
    app.add_flag("-6", options.isForIPv6, "Use IPv6 addresses only")->group("Connection");
    app.add_option("--password-from", options.passwordFrom, "Where the user's password comes from")
        ->group("Connection");
    const auto declareTimeout = [&](const char *name, std::optional<int> &value, const char *text,
                                    const char *group) {
        app.add_option(name, value, text)
            ->check(CLI::Range(1, longestTimeout).description(""))
            ->type_name("SECONDS")
            ->group(group);
    };
    declareTimeout("--connect-timeout", options.connectTimeout,
                   "How long to try to connect, 15 s by default", "Connection");
    app.add_flag("--classic", options.isClassic,
                 "Do what sessions without options do: IPv4 only, RSA and\n"
                 "DSA keys, one factor, a keepalive before the log-in")
        ->group("Connection");
    app.add_option("--admin-password-from", options.adminPasswordFrom,
                   "Run the command as root through sudo, with this password")
        ->group("Command");
    declareTimeout("--timeout", options.timeout,
                   "How long the command may run; without this option, for ever", "Command");
    app.add_option("--stdin", options.standardInputFrom,
                   "What the command reads on its standard input; without this\n"
                   "option standard input, unless that is a terminal")
        ->group("Command");
    app.add_flag("-n", options.hasNoInput, "Give the command an empty standard input")
        ->group("Command");
    app.add_flag("--json", options.asJson,
                 "Print one JSON object with output, status or error, and timings")
        ->group("Report");
    app.add_flag("--raw", options.isRaw,
                 "Let control characters of the command's output through to a terminal")
        ->group("Report");
    app.add_flag("--doctor", options.isDoctor,
                 "Run nothing; examine step by step what keeps a session with these\n"
                 "options from working. Asks nothing and changes nothing")
        ->group("Report");
    app.add_flag("-v", options.isVerbose, "Tell each stage on standard error as it happens")
        ->group("Report");
    app.set_help_flag("-h,--help", "Print this help")->group("Report");
    app.set_version_flag("--version", "sshsession " SSHSESSION_VERSION, "Print the version")
        ->group("Report");
}

[[noreturn]] void refuse(const std::string &text) {
    throw Failure(text + " See \"sshsession --help\".");
}

void requireAtMostOneDash(const Options &options) {
    const std::array sources = {options.passwordFrom, options.adminPasswordFrom,
                                options.standardInputFrom};
    if (std::count(sources.begin(), sources.end(), "-") > 1)
        refuse("Only one option can read standard input (\"-\").");
}

void requireOneInput(const Options &options) {
    if (options.hasNoInput && options.standardInputFrom)
        refuse("-n and --stdin exclude each other.");
}

void requireNoPrompt(const Options &options) {
    for (const auto &source : {options.passwordFrom, options.adminPasswordFrom})
        if (options.isDoctor && source == "prompt")
            refuse("With --doctor nobody is asked: take the password from a file or \"-\".");
}

void requireOneFamily(const Options &options) {
    if (options.isForIPv4 && options.isForIPv6)
        refuse("-4 and -6 exclude each other.");
}

void requireWhatClassicCan(const Options &options) {
    if (options.isClassic && (!options.furtherKeyFiles.empty() || options.isForIPv6))
        refuse("--classic takes one key file, and IPv4 addresses alone.");
}

// Answers whether `text` is a colon and a port.
bool setPort(std::string_view text, Options &options) {
    const char *const end = text.data() + text.size();
    const auto [next, failure] = std::from_chars(text.data() + 1, end, options.port);
    return text.starts_with(':') && failure == std::errc() && next == end && options.port != 0;
}

// "[HOST]" and "[HOST]:PORT", as addresses with colons are written where a port can follow (RFC
// 3986, section 3.2.2). Anything else is a host as it stands. Answers whether it makes sense.
bool setHost(const std::string &text, Options &options) {
    options.host = text;
    if (!text.starts_with('['))
        return !text.empty();
    const std::size_t end = text.find(']');
    if (end == std::string::npos)
        return false;
    options.host = text.substr(1, end - 1);
    const std::string_view rest = std::string_view(text).substr(end + 1);
    return !options.host.empty() && (rest.empty() || setPort(rest, options));
}

// No name and no address has a single colon: behind it stands a port, or a path as scp(1) has it.
void refusePortOf(const std::string &destination, const std::string &user,
                  const std::string &host) {
    const std::size_t colon = host.find(':');
    if (host.starts_with('[') || colon == std::string::npos || colon != host.rfind(':'))
        return;
    const std::string name = host.substr(0, colon);
    Options scratch;
    if (!name.empty() && setPort(std::string_view(host).substr(colon), scratch))
        refuse("\"" + destination + "\" is written \"-p " + host.substr(colon + 1) + " " + user +
               name + "\", or \"" + user + "[" + name + "]" + host.substr(colon) + "\".");
}

void setUser(const std::string &user, Options &options) {
    if (options.user && !user.empty() && *options.user != user)
        refuse("Both -l and the destination name a user: " + *options.user + " and " + user + ".");
    options.user = user;
}

// As ssh(1) does, the last "@" is the one that counts: a user's name may hold others.
void setDestination(const std::string &destination, Options &options) {
    const std::size_t at = destination.rfind('@');
    const std::size_t host = at == std::string::npos ? 0 : at + 1;
    refusePortOf(destination, destination.substr(0, host), destination.substr(host));
    if (at != std::string::npos)
        setUser(destination.substr(0, at), options);
    if (!setHost(destination.substr(host), options) || (options.user && options.user->empty()))
        refuse("\"" + destination + "\" is not of the form [USER@]HOST or [USER@][HOST]:PORT.");
}

std::string joined(std::vector<std::string>::const_iterator begin,
                   std::vector<std::string>::const_iterator end) {
    std::string text = *begin;
    while (++begin != end)
        text += ' ' + *begin;
    return text;
}

// `words` is all that is left after the options: the destination, then the command.
void setPositionals(const std::vector<std::string> &words, Options &options) {
    auto word = words.begin();
    const auto skipMark = [&] {
        if (word != words.end() && *word == "--")
            ++word;
    };
    skipMark();
    if (word == words.end())
        refuse("There is no host to connect to.");
    if (word->starts_with('-'))
        refuse("There is no option \"" + *word + "\".");
    setDestination(*word, options);
    ++word;
    skipMark();
    if (word == words.end() && options.isDoctor)
        return;
    if (word == words.end())
        refuse("There is no command to run on " + options.host + ".");
    options.command = joined(word, words.end());
}

} // namespace

std::variant<Options, Notice> parseOptions(const std::vector<std::string> &arguments) {
    Options options;
    CLI::App app(description, "sshsession");
    app.formatter(std::make_shared<HelpFormatter>());
    app.footer(footer);
    app.prefix_command(); // what follows the host belongs to the command
    declareOptions(app, options);
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        setPositionals(app.remaining(), options);
        requireAtMostOneDash(options);
        requireOneInput(options);
        requireOneFamily(options);
        requireWhatClassicCan(options);
        requireNoPrompt(options);
    } catch (const CLI::CallForHelp &) {
        return Notice{app.help()};
    } catch (const CLI::CallForVersion &version) {
        return Notice{std::string(version.what()) + "\n"};
    } catch (const CLI::ParseError &error) {
        refuse(std::string(error.what()) + ".");
    }
    return options;
}
