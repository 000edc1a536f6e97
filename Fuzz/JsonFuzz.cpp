// Whatever a command puts out and an error says, the report is one line of JSON in valid UTF-8
// without control characters, and the outputs can be had back from it byte for byte.
#include "Fuzz/Support/Property.h"

#include "Tools/Output.h"
#include "Tools/Report.h"

#include <SSHSession/Base64.h>

#include <nlohmann/json.hpp>
#include <utf8.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

std::string output;

// The fields are separated by zero bytes; what is missing is empty.
std::vector<std::string> fieldsOf(std::string_view input, std::size_t count) {
    std::vector<std::string> fields(count);
    for (std::string &field : fields) {
        const std::size_t end =
            &field == &fields.back() ? input.size() : std::min(input.find('\0'), input.size());
        field = input.substr(0, end);
        input.remove_prefix(std::min(end + 1, input.size()));
    }
    return fields;
}

void expectStream(const nlohmann::json &report, const std::string &name, const std::string &bytes) {
    if (utf8::is_valid(bytes.begin(), bytes.end()))
        hold(report.at(name) == bytes && !report.contains(name + "Base64"), "text is as it was");
    else
        hold(report.at(name + "Base64") == SSHPlatform::base64(bytes), "bytes are as they were");
}

} // namespace

void writeOutput(std::string_view bytes) {
    output += bytes;
}
void tell(std::string_view /*line*/) noexcept {}

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string_view input = textOf(data, size);
    const unsigned flags = takeByte(input);
    const auto status = static_cast<std::int32_t>(flags << 4U) - 8;
    const auto field = fieldsOf(input, 5);
    SSHCommand command;
    command.setStdoutData(std::make_shared<SSHPlatform::ByteBuffer>(field[4]));
    command.setStderrData(std::make_shared<SSHPlatform::ByteBuffer>(field[0]));
    command.setExitStatus(status);
    command.setExitSignal(
        std::make_shared<const std::string>((flags & 1U) != 0 ? "(null)" : field[1]));
    const auto error = std::make_shared<SSHError>(
        field[1], status,
        SSHError::UserInfo{{SSHError::NSLocalizedDescriptionKey, field[2]},
                           {SSHError::NSLocalizedFailureReasonErrorKey, field[3]}});
    const StageClock::Timings timings = {{"connect", StageClock::Milliseconds(flags)}};

    SSHFacts facts;
    facts.error = (flags & 2U) != 0 ? error : nullptr;
    facts.banner = field[0];
    facts.attempts = {{.method = field[1], .key = field[2], .remark = field[3], .wanted = field}};
    facts.disconnect = {.code = status, .message = field[4]};

    output.clear();
    const int exitStatus =
        reportAsJson({command, facts, {{.id = {}, .text = field[2], .step = field[3]}}}, timings);
    hold(exitStatus >= 0 && exitStatus <= 255, "the status can be handed through");
    hold(utf8::is_valid(output.begin(), output.end()), "the report is UTF-8");
    hold(std::count_if(output.begin(), output.end(),
                       [](char byte) { return static_cast<unsigned char>(byte) < 0x20; }) == 1 &&
             output.ends_with('\n'),
         "the report is one line");
    const auto report = nlohmann::json::parse(output, nullptr, false);
    hold(report.is_object() && report.contains("timings"), "the report is JSON");
    hold(report.contains("error") == ((flags & 2U) != 0), "an error is reported");
    expectStream(report, "stdout", field[4]);
    expectStream(report, "stderr", field[0]);
    return 0;
}
