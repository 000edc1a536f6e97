#include <SSHSession/SSHSessionStage.h>

const char *SSHSessionStageName(SSHSessionStage stage) noexcept {
    switch (stage) {
    case SSHSessionStage::Connect:
        return "connect";
    case SSHSessionStage::Handshake:
        return "handshake";
    case SSHSessionStage::HostKey:
        return "hostKey";
    case SSHSessionStage::Agent:
        return "agent";
    case SSHSessionStage::Authenticate:
        return "authenticate";
    case SSHSessionStage::Execute:
        return "execute";
    }
    return "unknown";
}
