#include <SSHSession/SSHCommand.h>

#include <SSHSession/Secret.h>

#include "Platform/Text.h"

SSHCommand::SSHCommand() noexcept = default;

// In the order of the properties.
SSHCommand::~SSHCommand() {
    mCommand.set(nullptr);
    mAdminPassword.set(nullptr);
    mStdinData.set(nullptr);
    mStdinSource.set(nullptr);
    mOutputSink.set(nullptr);
    mStdoutData.set(nullptr);
    mStderrData.set(nullptr);
    mExitSignal.set(nullptr);
}

void SSHCommand::setCommand(std::string_view value) noexcept {
    setCommand(std::make_shared<const std::string>(value));
}

void SSHCommand::setAdminPassword(std::string_view value) noexcept {
    setAdminPassword(SSHPlatform::Secret::of(value).shared());
}

void SSHCommand::setStdinData(std::string_view value) noexcept {
    using SSHPlatform::ByteBuffer;
    setStdinData(std::make_shared<const ByteBuffer>(value, ByteBuffer::Contents::Secret));
}

bool SSHCommand::wasEndedBySignal() const noexcept {
    const SSHStringRef name = exitSignal();
    return name && *name != SSHPlatform::nullText;
}
