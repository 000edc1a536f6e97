#include <SSHSession/SSHCommand.h>

#include <utility>

namespace {

template <typename Value>
Value read(std::mutex &mutex, const Value &property) {
    const std::lock_guard lock(mutex);
    return property;
}

// What the property held before is released by the caller's parameter, after the lock.
template <typename Value>
void write(std::mutex &mutex, Value &property, Value &value) {
    const std::lock_guard lock(mutex);
    std::swap(property, value);
}

} // namespace

SSHCommand::SSHCommand() noexcept = default;

SSHCommand::~SSHCommand() {
    mCommand.reset();
    mAdminPassword.reset();
    mStdinData.reset();
    mStdoutData.reset();
    mStderrData.reset();
    mExitSignal.reset();
}

SSHStringRef SSHCommand::command() const noexcept {
    return read(mMutex, mCommand);
}

void SSHCommand::setCommand(SSHStringRef value) noexcept {
    write(mMutex, mCommand, value);
}

void SSHCommand::setCommand(std::string_view value) noexcept {
    setCommand(std::make_shared<const std::string>(value));
}

SSHStringRef SSHCommand::adminPassword() const noexcept {
    return read(mMutex, mAdminPassword);
}

void SSHCommand::setAdminPassword(SSHStringRef value) noexcept {
    write(mMutex, mAdminPassword, value);
}

void SSHCommand::setAdminPassword(std::string_view value) noexcept {
    setAdminPassword(std::make_shared<const std::string>(value));
}

SSHDataRef SSHCommand::stdinData() const noexcept {
    return read(mMutex, mStdinData);
}

void SSHCommand::setStdinData(SSHDataRef value) noexcept {
    write(mMutex, mStdinData, value);
}

void SSHCommand::setStdinData(std::string_view value) noexcept {
    setStdinData(std::make_shared<const SSHPlatform::ByteBuffer>(value));
}

SSHDataRef SSHCommand::stdoutData() const noexcept {
    return read(mMutex, mStdoutData);
}

void SSHCommand::setStdoutData(SSHDataRef value) noexcept {
    write(mMutex, mStdoutData, value);
}

SSHDataRef SSHCommand::stderrData() const noexcept {
    return read(mMutex, mStderrData);
}

void SSHCommand::setStderrData(SSHDataRef value) noexcept {
    write(mMutex, mStderrData, value);
}

SSHStringRef SSHCommand::exitSignal() const noexcept {
    return read(mMutex, mExitSignal);
}

void SSHCommand::setExitSignal(SSHStringRef value) noexcept {
    write(mMutex, mExitSignal, value);
}

std::int32_t SSHCommand::exitStatus() const noexcept {
    return read(mMutex, mExitStatus);
}

void SSHCommand::setExitStatus(std::int32_t value) noexcept {
    write(mMutex, mExitStatus, value);
}

bool SSHCommand::isClosedInOrder() const noexcept {
    return read(mMutex, mIsClosedInOrder);
}

void SSHCommand::setClosedInOrder(bool value) noexcept {
    write(mMutex, mIsClosedInOrder, value);
}
