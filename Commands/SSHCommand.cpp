#include <SSHSession/SSHCommand.h>

#include <SSHSession/Secret.h>

#include "Platform/Text.h"

using SSHPlatform::MutexLock;

// In the setters, what a property held before is released by the parameter, after the lock.

SSHCommand::SSHCommand() noexcept = default;

SSHCommand::~SSHCommand() {
    mCommand.reset();
    mAdminPassword.reset();
    mStdinData.reset();
    mStdinSource = nullptr;
    mOutputSink = nullptr;
    mStdoutData.reset();
    mStderrData.reset();
    mExitSignal.reset();
}

SSHStringRef SSHCommand::command() const noexcept {
    const MutexLock lock(mMutex);
    return mCommand;
}

void SSHCommand::setCommand(SSHStringRef value) noexcept {
    const MutexLock lock(mMutex);
    mCommand.swap(value);
}

void SSHCommand::setCommand(std::string_view value) noexcept {
    setCommand(std::make_shared<const std::string>(value));
}

SSHStringRef SSHCommand::adminPassword() const noexcept {
    const MutexLock lock(mMutex);
    return mAdminPassword;
}

void SSHCommand::setAdminPassword(SSHStringRef value) noexcept {
    const MutexLock lock(mMutex);
    mAdminPassword.swap(value);
}

void SSHCommand::setAdminPassword(std::string_view value) noexcept {
    setAdminPassword(SSHPlatform::Secret::of(value).shared());
}

SSHDataRef SSHCommand::stdinData() const noexcept {
    const MutexLock lock(mMutex);
    return mStdinData;
}

void SSHCommand::setStdinData(SSHDataRef value) noexcept {
    const MutexLock lock(mMutex);
    mStdinData.swap(value);
}

void SSHCommand::setStdinData(std::string_view value) noexcept {
    using SSHPlatform::ByteBuffer;
    setStdinData(std::make_shared<const ByteBuffer>(value, ByteBuffer::Contents::Secret));
}

int SSHCommand::stdinDescriptor() const noexcept {
    const MutexLock lock(mMutex);
    return mStdinDescriptor;
}

void SSHCommand::setStdinDescriptor(int value) noexcept {
    const MutexLock lock(mMutex);
    mStdinDescriptor = value;
}

SSHInputSource SSHCommand::stdinSource() const noexcept {
    const MutexLock lock(mMutex);
    return mStdinSource;
}

void SSHCommand::setStdinSource(SSHInputSource value) noexcept {
    const MutexLock lock(mMutex);
    mStdinSource.swap(value);
}

SSHOutputSink SSHCommand::outputSink() const noexcept {
    const MutexLock lock(mMutex);
    return mOutputSink;
}

void SSHCommand::setOutputSink(SSHOutputSink value) noexcept {
    const MutexLock lock(mMutex);
    mOutputSink.swap(value);
}

SSHDataRef SSHCommand::stdoutData() const noexcept {
    const MutexLock lock(mMutex);
    return mStdoutData;
}

void SSHCommand::setStdoutData(SSHDataRef value) noexcept {
    const MutexLock lock(mMutex);
    mStdoutData.swap(value);
}

SSHDataRef SSHCommand::stderrData() const noexcept {
    const MutexLock lock(mMutex);
    return mStderrData;
}

void SSHCommand::setStderrData(SSHDataRef value) noexcept {
    const MutexLock lock(mMutex);
    mStderrData.swap(value);
}

SSHStringRef SSHCommand::exitSignal() const noexcept {
    const MutexLock lock(mMutex);
    return mExitSignal;
}

void SSHCommand::setExitSignal(SSHStringRef value) noexcept {
    const MutexLock lock(mMutex);
    mExitSignal.swap(value);
}

bool SSHCommand::wasEndedBySignal() const noexcept {
    const SSHStringRef name = exitSignal();
    return name && *name != SSHPlatform::nullText;
}

std::int32_t SSHCommand::exitStatus() const noexcept {
    const MutexLock lock(mMutex);
    return mExitStatus;
}

void SSHCommand::setExitStatus(std::int32_t value) noexcept {
    const MutexLock lock(mMutex);
    mExitStatus = value;
}

bool SSHCommand::isClosedInOrder() const noexcept {
    const MutexLock lock(mMutex);
    return mIsClosedInOrder;
}

void SSHCommand::setClosedInOrder(bool value) noexcept {
    const MutexLock lock(mMutex);
    mIsClosedInOrder = value;
}
