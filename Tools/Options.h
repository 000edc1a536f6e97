// The command line, understood but not yet acted upon.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

struct Options {
    std::string host;
    std::optional<std::string> user; // none: the current user
    std::uint16_t port = 22;
    std::optional<std::string> keyFile;
    std::vector<std::string> furtherKeyFiles;
    bool isForIPv4 = false; // at most one of these
    bool isForIPv6 = false;
    std::optional<std::string> passwordFrom; // these three: a file's name, "-" or, for a password,
    std::optional<std::string> adminPasswordFrom; // "prompt"
    std::optional<std::string> standardInputFrom;
    std::optional<int> connectTimeout; // in seconds; none: the usual one
    std::optional<int> timeout;        // for the command; none: no limit
    bool hasNoInput = false;           // an empty one, whatever standard input is
    bool isClassic = false;
    bool asJson = false;
    bool isRaw = false;
    bool isVerbose = false;
    bool isDoctor = false; // then the command may be empty, and is not run
    std::string command;
};

// A text to print in place of running a command: the help or the version.
struct Notice {
    std::string text;
};

// `arguments` without the program's name. Throws Failure when they make no sense.
std::variant<Options, Notice> parseOptions(const std::vector<std::string> &arguments);
