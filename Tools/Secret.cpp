#include "Secret.h"

#include <SSHSession/Secret.h>

Secret makeSecret(std::string &text) {
    const auto forget = [](std::string *secret) {
        SSHPlatform::wipe(*secret);
        delete secret;
    };
    Secret secret(new std::string(text), forget);
    SSHPlatform::wipe(text);
    return secret;
}
