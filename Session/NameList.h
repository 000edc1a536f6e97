// Lists of names as SSH writes them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace SSHEngine {

// Of a name-list (RFC 4251, section 5), whose names are never empty.
std::vector<std::string> namesIn(std::string_view list);

} // namespace SSHEngine
