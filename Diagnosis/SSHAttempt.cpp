#include <SSHSession/SSHAttempt.h>

const char *SSHAttemptResultName(SSHAttemptResult result) noexcept {
    switch (result) {
        using enum SSHAttemptResult;
    case Accepted:
        return "accepted";
    case AcceptedInPart:
        return "acceptedInPart";
    case Refused:
        return "refused";
    case Expired:
        return "expired";
    case SignatureRefused:
        return "signatureRefused";
    case NotSigned:
        return "notSigned";
    case NotGiven:
        return "notGiven";
    case WrongPassphrase:
        return "wrongPassphrase";
    case Missing:
        return "missing";
    case Unusable:
        return "unusable";
    case Ended:
        return "ended";
    }
    return "unknown";
}
