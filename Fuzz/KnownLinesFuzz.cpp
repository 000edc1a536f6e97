// Whatever a file of known hosts holds: once a key is recorded in it the host is known by that key,
// nothing more needs to be recorded, and no line is lost but those of the host's other keys.
#include "Fuzz/Support/Property.h"

#include "Identity/KnownHostsLines.h"

#include <algorithm>
#include <string>

using namespace SSHEngine;

namespace {

const KnownHostKey key = {
    "ssh-ed25519", "AAAAC3NzaC1lZDI1NTE5AAAAIOZk67FH5aQ21Mz9ok16N8gMEkfFXnX89QckBi4NHxr0", ""};

// Without the lines that can name a host and its key.
std::string restOf(std::string_view content) {
    std::string rest;
    while (!content.empty()) {
        const std::size_t end = std::min(content.find('\n'), content.size());
        const std::string_view line = content.substr(0, end);
        if (line.find("AAAA") == std::string_view::npos && !line.empty())
            rest.append(line) += '\n';
        content.remove_prefix(std::min(end + 1, content.size()));
    }
    return rest;
}

void check(const NamedHost &host, const std::string &content) {
    hold(host.canRecord(key), "a host can be recorded");
    const KeyStanding before = host.standing(content, key);
    const std::size_t types = host.keyTypes(content).size();
    hold((before == KeyStanding::Changed) <= (types > 0), "a changed host has keys");
    const std::optional<std::string> after = host.withKey(content, key);
    hold(after.has_value() == (before < KeyStanding::Match), "what is missing is recorded");
    if (!after)
        return;
    hold(host.standing(*after, key) == KeyStanding::Match, "a recorded host is known");
    hold(host.keyTypes(*after).contains(key.type), "the type is on record");
    hold(!host.withKey(*after, key), "nothing is recorded twice");
    hold(restOf(*after) == restOf(content), "no other line changes");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string content(textOf(data, size));
    const auto isHash = [](const std::string &hashed, const std::string & /*name*/) {
        return hashed.ends_with("A=");
    };
    check(NamedHost("Server", 22, isHash), content);
    check(NamedHost("server", 2222, isHash), content);
    const NamedHost odd(content, 22, isHash);
    hold(!odd.canRecord(key) || odd.standing(*odd.withKey("", key), key) == KeyStanding::Match,
         "a name that can be recorded is found");
    return 0;
}
