#include <SSHSession/SSHError.h>

#include <utility>

const std::string SSHError::libssh2ErrorDomain = "libssh2ErrorDomain";
const std::string SSHError::disconnectDomain = "libssh2";
const std::string SSHError::NSLocalizedDescriptionKey = "NSLocalizedDescription";
const std::string SSHError::NSLocalizedFailureReasonErrorKey = "NSLocalizedFailureReason";
const std::string SSHError::NSLocalizedRecoverySuggestionErrorKey = "NSLocalizedRecoverySuggestion";
const std::string SSHError::languageKey = "language";

SSHError::SSHError(std::string domain, std::int64_t code, UserInfo userInfo,
                   SSHErrorCause cause) noexcept
    : mDomain(std::move(domain)), mCode(code), mUserInfo(std::move(userInfo)), mCause(cause) {}

std::optional<std::string> SSHError::localizedDescription() const noexcept {
    return value(NSLocalizedDescriptionKey);
}

std::optional<std::string> SSHError::localizedFailureReason() const noexcept {
    return value(NSLocalizedFailureReasonErrorKey);
}

std::optional<std::string> SSHError::localizedRecoverySuggestion() const noexcept {
    return value(NSLocalizedRecoverySuggestionErrorKey);
}

std::string SSHError::text() const noexcept {
    std::string text = localizedDescription().value_or("");
    if (const auto reason = localizedFailureReason())
        text += (text.empty() ? "" : " ") + *reason;
    return text;
}

std::optional<std::string> SSHError::value(const std::string &key) const {
    const auto found = mUserInfo.find(key);
    if (found == mUserInfo.end())
        return std::nullopt;
    return found->second;
}
