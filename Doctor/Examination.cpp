#include "Doctor/Examination.h"

#include "Session/TimeLimit.h"

#include <SSHSession/PrintableText.h>
#include <SSHSession/SSHFinding.h>

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace SSHEngine {

using Verdict = SSHDoctorLine::Verdict;

OwnSocket::~OwnSocket() {
    if (mDescriptor >= 0)
        ::close(mDescriptor);
}

OwnSocket &OwnSocket::operator=(OwnSocket &&other) noexcept {
    const OwnSocket old(std::exchange(mDescriptor, other.release()));
    return *this;
}

int OwnSocket::release() {
    return std::exchange(mDescriptor, -1);
}

Examination::Examination(const Patient &examined, const TimeBudget &time, const Tell &tell)
    : patient(examined), budget(time), mTell(tell) {
    facts.host = patient.host.value_or("");
    facts.user = patient.user;
    facts.port = patient.port;
    facts.hasPassword = static_cast<bool>(patient.password);
    facts.isPasswordEmpty = patient.password && patient.password.view().empty();
    facts.keyFilePath = patient.keyFilePath.value_or("");
    facts.options = patient.options;
    for (auto *limit : {&facts.options.connectTimeout, &facts.options.handshakeTimeout})
        *limit = std::min<std::chrono::milliseconds>(timeLimit(*limit), longestWait);
}

void Examination::line(Verdict verdict, const std::string &text, const std::string &advice) {
    // What comes of a step then is nobody's fault.
    if (budget.isCancelled() && step != std::string_view("rest")) {
        isCutShort = true;
        return;
    }
    mTell({.verdict = verdict,
           .step = step,
           .text = SSHPlatform::printableText(text, ""),
           .advice = SSHPlatform::printableText(advice, "")});
}

void Examination::ok(const std::string &text) {
    line(Verdict::Ok, text, "");
}

void Examination::note(const std::string &text) {
    line(Verdict::Note, text, "");
}

// What two steps meet is explained once.
void Examination::fail(const std::string &text, const std::string &advice) {
    const auto [told, isNew] = mReasons.emplace(text, step);
    if (isNew)
        line(Verdict::Fail, text, advice);
    else
        line(Verdict::Fail, fmt::format("For the reason told at \"{}\".", told->second),
             fmt::format("Mend what \"{}\" has found.", told->second));
}

void Examination::failBy(const SSHFacts &found) {
    const std::vector<SSHFinding> findings = SSHFindings(found);
    if (findings.empty())
        fail("It has failed, and nothing tells why.", "Have the server's log read at this time.");
    else
        fail(findings.front().text, findings.front().step);
}

void Examination::noteUnasked(const SSHFacts &found) {
    const std::vector<SSHFinding> findings = SSHFindings(found);
    note((findings.empty() ? "With what was given nobody gets in." : findings.front().text) +
         " An examination asks nobody; a normal run would, where there is a terminal.");
}

void Examination::failBy(SSHErrorCause cause, SSHSessionStage stage) {
    failBy(ended(facts, cause, stage));
}

SSHFacts ended(SSHFacts facts, SSHErrorCause cause, SSHSessionStage stage) {
    facts.stage = stage;
    facts.error =
        std::make_shared<SSHError>(SSHError::libssh2ErrorDomain, 0, SSHError::UserInfo(), cause);
    return facts;
}

std::string inQuotes(std::string_view text) {
    constexpr std::size_t longest = 200;
    std::string lines(text); // of which carriage returns are a part as well
    lines.erase(std::remove(lines.begin(), lines.end(), '\r'), lines.end());
    std::string words = SSHPlatform::printableText(lines);
    std::replace(words.begin(), words.end(), '\n', ' ');
    words.erase(words.find_last_not_of(' ') + 1);
    std::size_t end = std::min(words.size(), longest);
    while (end < words.size() && (static_cast<unsigned char>(words[end]) & 0xC0U) == 0x80U)
        --end; // within a character
    return fmt::format("\"{}\"{}", words.substr(0, end), end < words.size() ? " ..." : "");
}

std::string spelled(std::chrono::milliseconds time) {
    using std::chrono::seconds;
    return time < seconds(1) ? fmt::format("{} ms", time.count())
                             : fmt::format("{:.3g} s", std::chrono::duration<double>(time).count());
}

} // namespace SSHEngine
