#include "Doctor.h"

#include "Output.h"

#include <SSHSession/SSHDoctor.h>

#include <nlohmann/json.hpp>

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace {

using Json = nlohmann::ordered_json;
using Verdict = SSHDoctorLine::Verdict;

constexpr std::size_t verdictWidth = 6;
constexpr std::size_t stepWidth = 13;
constexpr std::size_t indent = verdictWidth + stepWidth;

struct Look {
    const char *word;
    const char *colour;
};

Look lookOf(Verdict verdict) {
    switch (verdict) {
    case Verdict::Ok:
        return {"ok", "\x1b[32m"};
    case Verdict::Note:
        return {"note", "\x1b[33m"};
    case Verdict::Fail:
        break;
    }
    return {"FAIL", "\x1b[31m"};
}

bool isSet(const char *name) {
    const char *const value = std::getenv(name);
    return value && *value;
}

bool wantsColour() {
    const char *const terminal = std::getenv("TERM");
    return ::isatty(STDOUT_FILENO) != 0 && !isSet("NO_COLOR") && terminal &&
           std::string_view(terminal) != "dumb";
}

std::size_t lengthOf(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; // begins a character
    }));
}

// Between words, behind an indent; a word that is too long stands as it is.
std::string wrapped(std::string_view text, std::size_t width) {
    constexpr std::size_t narrowest = 20;
    const std::size_t most = std::max(width, indent + narrowest) - indent;
    std::string lines;
    std::size_t used = 0;
    while (!text.empty()) {
        const std::string_view word = text.substr(0, text.find(' '));
        text.remove_prefix(std::min(word.size() + 1, text.size()));
        const std::size_t size = lengthOf(word);
        if (used > 0 && width > 0 && used + 1 + size > most) {
            lines.append("\n").append(indent, ' ');
            used = 0;
        } else if (used > 0) {
            lines += ' ';
            ++used;
        }
        lines += word;
        used += size;
    }
    return lines;
}

std::string padded(std::string_view word, std::size_t width) {
    return std::string(word).append(width - std::min(width, word.size()), ' ');
}

void print(const SSHDoctorLine &line) {
    const Look look = lookOf(line.verdict);
    std::string verdict = padded(look.word, verdictWidth);
    if (wantsColour())
        verdict = look.colour + verdict + "\x1b[0m";
    // Without a terminal lines are as long as they are.
    const std::size_t width = ::isatty(STDOUT_FILENO) != 0 ? columns(STDOUT_FILENO) : 0;
    std::string text = verdict + padded(line.step, stepWidth) + wrapped(line.text, width) + "\n";
    if (!line.advice.empty())
        text += padded("try", indent) + wrapped(line.advice, width) + "\n";
    writeOutput(text);
}

Json asJson(const SSHDoctorLine &line) {
    return {{"step", line.step},
            {"verdict", lookOf(line.verdict).word},
            {"text", line.text},
            {"try", line.advice.empty() ? Json(nullptr) : Json(line.advice)}};
}

} // namespace

int runDoctor(const Options &options, const std::string &user, const Inputs &inputs,
              const SSHSessionOptions &sessionOptions) {
    SSHDoctor doctor(options.host, options.port, user, inputs.password, options.keyFile,
                     sessionOptions, inputs.adminPassword);
    Json lines = Json::array();
    int status = 0;
    std::exception_ptr failure; // which does not pass through the library
    doctor.examine([&](const SSHDoctorLine &line) {
        status |= line.verdict == Verdict::Fail ? 1 : 0;
        try {
            options.asJson ? lines.push_back(asJson(line)) : print(line);
        } catch (...) {
            failure = std::current_exception();
            doctor.cancel();
        }
    });
    if (failure)
        std::rethrow_exception(failure);
    if (options.asJson)
        writeOutput(Json{{"doctor", lines}}.dump(-1, ' ', true, Json::error_handler_t::replace) +
                    "\n");
    return status;
}
