#include <SSHSession/SSHSessionOptions.h>

SSHSessionOptions SSHSessionOptions::recommended() noexcept {
    using std::chrono::seconds;
    return {
        .triesEveryAddress = true,
        .addressFamily = SSHAddressFamily::Any,
        .watchesConnection = true,
        .knowsEveryHostKeyType = true,
        .triesKeysOfToday = true,
        .furtherKeyFiles = {},
        .maximumAgentKeys = 5,
        .triesFurtherFactors = true,
        .asksServersQuestions = true,
        .asksForPassword = true,
        .tellsBanners = true,
        .endsInputOnce = true,
        .followsSudo = true,
        .connectTimeout = seconds(15),
        .handshakeTimeout = seconds(30),
        .logInTimeout = seconds(60),
        // How long a command may take, and be silent, only the host can know.
        .commandTimeout = seconds(0),
        .silenceTimeout = seconds(0),
    };
}
