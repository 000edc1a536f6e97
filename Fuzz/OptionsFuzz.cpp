// Any command line is understood, answered with a notice, or refused with a Failure that has a
// text; one that is understood has a host, a port, a command, and standard input in one place at
// most.
#include "Fuzz/Support/Property.h"

#include "Tools/Failure.h"
#include "Tools/Options.h"

#include <algorithm>
#include <array>

// Arguments end at zero bytes, as they do for every program.
int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::vector<std::string> arguments;
    for (std::string_view rest = textOf(data, size); !rest.empty();) {
        const std::size_t end = std::min(rest.find('\0'), rest.size());
        arguments.emplace_back(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    try {
        const auto parsed = parseOptions(arguments);
        if (const auto *const notice = std::get_if<Notice>(&parsed)) {
            hold(notice->text.ends_with('\n'), "a notice is whole lines");
            return 0;
        }
        const Options &options = std::get<Options>(parsed);
        const std::array sources = {options.passwordFrom, options.adminPasswordFrom,
                                    options.standardInputFrom};
        hold(!options.host.empty() && options.port != 0, "there is a host and a port");
        hold(!options.user || !options.user->empty(), "a user has a name");
        hold(std::count(sources.begin(), sources.end(), "-") <= 1, "one reads standard input");
        hold(std::any_of(arguments.begin(), arguments.end(),
                         [&](const std::string &argument) {
                             return argument.find(options.host) != std::string::npos;
                         }),
             "the host was named");
    } catch (const Failure &failure) {
        hold(*failure.what() != '\0', "a refusal says why");
    }
    return 0;
}
