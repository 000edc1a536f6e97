#include "Session/NameList.h"

#include <algorithm>

namespace SSHEngine {

std::vector<std::string> namesIn(std::string_view list) {
    std::vector<std::string> names;
    while (!list.empty()) {
        const std::size_t end = std::min(list.find(','), list.size());
        if (end > 0)
            names.emplace_back(list.substr(0, end));
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return names;
}

} // namespace SSHEngine
