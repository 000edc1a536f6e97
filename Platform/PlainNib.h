// The library's user interface files without a look, for toolkits that have none of their own.
#pragma once

#include <SSHSession/Alert.h>

#include <memory>
#include <string_view>

namespace SSHPlatform {

// Null for a name that is not known.
std::unique_ptr<Nib> loadPlainNib(std::string_view name);

} // namespace SSHPlatform
