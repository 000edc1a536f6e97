// SPDX-License-Identifier: BSD-3-Clause

// Why an operation failed, in words for the user and numbers for the program.
//
// Errors are immutable and shared; any thread may read one. An operation that can fail takes an
// `SSHErrorRef *`, which may be null, and stores an error there when it fails. The answer says
// whether it did, not the error: a successful `start` may leave the account of a first attempt that
// failed, such as the agent's.
#pragma once

#include <SSHSession/SSHErrorCause.h>
#include <SSHSession/SSHSessionExport.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

class SSHSESSION_EXPORT SSHError {
  public:
    // The domain of every error that an out-parameter receives. Its codes are libssh2's negative
    // error numbers (LIBSSH2_ERROR_*), errno values for name look-up and sockets, and 0 for
    // failures that have no number.
    static const std::string libssh2ErrorDomain;

    // The domain of the error that a delegate receives when the server disconnects. Its codes are
    // the disconnect reasons of RFC 4253, section 11.1.
    static const std::string disconnectDomain;

    // Keys of the user information.
    static const std::string NSLocalizedDescriptionKey;
    static const std::string NSLocalizedFailureReasonErrorKey;
    static const std::string NSLocalizedRecoverySuggestionErrorKey;
    static const std::string languageKey; // an RFC 3066 language tag; disconnect domain only

    using UserInfo = std::map<std::string, std::string>;

    SSHError(std::string domain, std::int64_t code, UserInfo userInfo,
             SSHErrorCause cause = SSHErrorCause::Unknown) noexcept;

    const std::string &domain() const noexcept { return mDomain; }
    std::int64_t code() const noexcept { return mCode; }
    const UserInfo &userInfo() const noexcept { return mUserInfo; }

    // What failed, for programs: no part of the user information nor of any text.
    SSHErrorCause cause() const noexcept { return mCause; }

    // What failed, in a sentence.
    std::optional<std::string> localizedDescription() const noexcept;

    // Why it failed. For a failed authentication this is the account of all that was tried, many
    // lines long.
    std::optional<std::string> localizedFailureReason() const noexcept;

    std::optional<std::string> localizedRecoverySuggestion() const noexcept;

    // Description and reason in one text, for a log or an alert.
    std::string text() const noexcept;

  private:
    std::optional<std::string> value(const std::string &key) const;

    std::string mDomain;
    std::int64_t mCode;
    UserInfo mUserInfo;
    SSHErrorCause mCause;
};

using SSHErrorRef = std::shared_ptr<const SSHError>;
