#include "Session/DisconnectError.h"

#include "Platform/Text.h"

#include <utility>

SSHErrorRef disconnectError(int reason, std::string_view message, std::string_view language) {
    constexpr int byApplication = 11;
    if (reason == byApplication)
        return nullptr;
    SSHError::UserInfo userInfo;
    if (!message.empty())
        userInfo[SSHError::NSLocalizedDescriptionKey] = SSHPlatform::decodedUTF8(message);
    if (!language.empty())
        userInfo[SSHError::languageKey] = SSHPlatform::decodedUTF8(language);
    return std::make_shared<SSHError>(SSHError::disconnectDomain, reason, std::move(userInfo));
}
