#include "Report.h"

#include "ExitStatus.h"
#include "Output.h"

#include <SSHSession/Base64.h>

#include <nlohmann/json.hpp>
#include <utf8.h>

#include <cmath>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Json = nlohmann::ordered_json;

// Bytes that are no text lose something in the text; the whole of them then stands beside it.
void addStream(Json &object, const std::string &name, std::string_view bytes) {
    object[name] = std::string(bytes);
    if (!utf8::is_valid(bytes.begin(), bytes.end()))
        object[name + "Base64"] = SSHPlatform::base64(bytes);
}

void addOutputs(Json &object, const SSHCommand &command) {
    addStream(object, "stdout", command.stdoutData()->view());
    addStream(object, "stderr", command.stderrData()->view());
}

void addEnd(Json &object, const SSHCommand &command) {
    object["exitStatus"] = command.exitStatus();
    const auto signal = exitSignalOf(command);
    object["exitSignal"] = signal ? Json(*signal) : Json(nullptr);
}

Json asJson(const SSHError &error) {
    Json object = {{"domain", error.domain()}, {"code", error.code()}};
    const auto add = [&](const char *name, const std::optional<std::string> &text) {
        if (text)
            object[name] = *text;
    };
    add("description", error.localizedDescription());
    add("reason", error.localizedFailureReason());
    add("recoverySuggestion", error.localizedRecoverySuggestion());
    return object;
}

Json asJson(const SSHAttempt &attempt) {
    Json object = {{"method", attempt.method}};
    for (const auto &[name, value] : {std::pair("key", attempt.key),
                                      {"keyType", attempt.keyType},
                                      {"keyFingerprint", attempt.keyFingerprint}})
        if (!value.empty())
            object[name] = value;
    object["isFromAgent"] = attempt.isFromAgent;
    object["result"] = SSHAttemptResultName(attempt.result);
    if (!attempt.remark.empty())
        object["remark"] = attempt.remark;
    if (!attempt.questions.empty())
        object["questions"] = attempt.questions;
    object["wanted"] = attempt.wanted;
    return object;
}

Json asJson(const SSHFinding &finding) {
    return {{"id", SSHFindingName(finding.id)}, {"text", finding.text}, {"try", finding.step}};
}

template <typename Value>
Json listOf(const std::vector<Value> &values) {
    Json list = Json::array();
    for (const Value &value : values)
        list.push_back(asJson(value));
    return list;
}

void addFacts(Json &object, const SSHFacts &facts) {
    object["stage"] = SSHSessionStageName(facts.stage);
    object["cause"] = facts.error ? Json(SSHErrorCauseName(facts.error->cause())) : Json(nullptr);
    object["attempts"] = listOf(facts.attempts);
    object["disconnect"] = facts.disconnect ? Json{{"code", facts.disconnect->code},
                                                   {"message", facts.disconnect->message}}
                                            : Json(nullptr);
    object["banner"] = facts.banner;
}

Json asJson(const StageClock::Timings &timings) {
    constexpr double thousand = 1000;
    Json object = Json::object();
    for (const auto &[stage, time] : timings)
        object[stage] = std::round(time.count() * thousand) / thousand;
    return object;
}

} // namespace

int reportAsJson(const Outcome &outcome, const StageClock::Timings &timings) {
    Json object = Json::object();
    if (outcome.command.stdoutData())
        addOutputs(object, outcome.command);
    const SSHErrorRef &error = outcome.facts.error;
    if (error)
        object["error"] = asJson(*error);
    else
        addEnd(object, outcome.command);
    addFacts(object, outcome.facts);
    object["findings"] = listOf(outcome.findings);
    object["timings"] = asJson(timings);
    // In ASCII: a terminal obeys control characters beyond it, and others turn its lines about.
    writeOutput(object.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n");
    return error ? failedStatus : exitStatusOf(outcome.command);
}
