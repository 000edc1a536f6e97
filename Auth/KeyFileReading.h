// The content of key files, whatever lies at their path.
#pragma once

#include <SSHSession/Secret.h>

#include <string>

namespace SSHEngine {

struct KeyFileContent {
    SSHPlatform::Secret bytes = SSHPlatform::Secret::none(); // none: why not
    std::string reason;
    // Why ssh(1) would not take it for a private key: it is the user's own, and others have rights
    // to it. Empty where nothing is wrong.
    std::string exposure;
    unsigned mode = 0; // permission bits
};

// Never blocks. What is looked at is what is read, whatever happens to the path meanwhile.
KeyFileContent readKeyFile(const std::string &path);

} // namespace SSHEngine
