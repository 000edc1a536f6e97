// SPDX-License-Identifier: BSD-3-Clause

// One remote command: what to run, and what came of it.
//
// The host application makes a record, fills in `command` and, where wanted, `adminPassword` and
// `stdinData`, hands it to SSHSession::execute and reads the outputs afterwards. The outputs are
// written only when the execution succeeds; a failed one leaves them as they were.
//
// All of the input and output is held in memory, unless the host gives an `outputSink` and takes
// the input from a descriptor or a source: then memory stays constant, however much flows.
//
// Object properties are shared references to the very value they were given, never copies; null is
// a value. Every property is atomic: a getter answers a reference that stays valid even when
// another thread replaces the value at once. Two different properties are not ordered among each
// other.
#pragma once

#include <SSHSession/ByteBuffer.h>
#include <SSHSession/Mutex.h>
#include <SSHSession/SSHCommandFlow.h>
#include <SSHSession/SSHSessionExport.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

using SSHStringRef = std::shared_ptr<const std::string>;
using SSHDataRef = SSHPlatform::ByteBufferRef;

class SSHSESSION_EXPORT SSHCommand {
  public:
    SSHCommand() noexcept;
    SSHCommand(const SSHCommand &) = delete;
    SSHCommand &operator=(const SSHCommand &) = delete;
    ~SSHCommand();

    // The command line for the user's login shell on the server, in UTF-8.
    SSHStringRef command() const noexcept { return mCommand.get(); }
    void setCommand(SSHStringRef value) noexcept { mCommand.set(std::move(value)); }
    void setCommand(std::string_view value) noexcept;
    void setCommand(std::nullptr_t) noexcept { setCommand(SSHStringRef()); }

    // When not null, the command runs as root through sudo(8), and this answers sudo's prompt.
    // Unless the session has the option followsSudo, the user's own shell then reads the command
    // inside double quotes, once more than otherwise: write a backslash before every backslash,
    // dollar sign and back-quote that is meant for root's shell, also in what SSHEscapeString
    // quoted. A plain text is copied into memory that is wiped when the last reference to it goes;
    // a reference is what its maker made it: hand over SSHPlatform::Secret's `shared` to have it
    // wiped.
    SSHStringRef adminPassword() const noexcept { return mAdminPassword.get(); }
    void setAdminPassword(SSHStringRef value) noexcept { mAdminPassword.set(std::move(value)); }
    void setAdminPassword(std::string_view value) noexcept;
    void setAdminPassword(std::nullptr_t) noexcept { setAdminPassword(SSHStringRef()); }

    // The command's standard input, followed by end-of-file. When null or empty nothing is written
    // and no end-of-file is sent: a command that reads its standard input then waits for ever.
    // While the command runs on, end-of-file is sent repeatedly, which OpenSSH takes; a stricter
    // server may end the connection. A plain text is copied into a buffer that is wiped in the end;
    // one that is handed over is not copied, and wiped when it was made with Contents::Secret.
    SSHDataRef stdinData() const noexcept { return mStdinData.get(); }
    void setStdinData(SSHDataRef value) noexcept { mStdinData.set(std::move(value)); }
    void setStdinData(std::string_view value) noexcept;
    void setStdinData(std::nullptr_t) noexcept { setStdinData(SSHDataRef()); }

    // Where the command's standard input comes from while it runs, in place of `stdinData`: an open
    // descriptor of a file, a pipe, a socket or a terminal, -1 for none. It is read up to its end,
    // of which the command is told once, as soon as the server has room for more and the descriptor
    // has something: it may be a blocking one, as long as nobody else reads from it. What was read
    // may be more than the command has taken. Not closed; leave it open until `execute` has
    // returned. A descriptor that cannot be read fails the execution.
    int stdinDescriptor() const noexcept { return mStdinDescriptor.get(); }
    void setStdinDescriptor(int value) noexcept { mStdinDescriptor.set(value); }

    // A function of the host's own in place of both; none when empty.
    SSHInputSource stdinSource() const noexcept { return mStdinSource.get(); }
    void setStdinSource(SSHInputSource value) noexcept { mStdinSource.set(std::move(value)); }

    // Takes the outputs as they come, when not empty. `stdoutData` and `stderrData` are empty then.
    // With `adminPassword` nothing reaches it before sudo has accepted. It has taken everything
    // when `execute` answers true, and perhaps something when that fails.
    SSHOutputSink outputSink() const noexcept { return mOutputSink.get(); }
    void setOutputSink(SSHOutputSink value) noexcept { mOutputSink.set(std::move(value)); }

    // Everything the command wrote to its standard output.
    SSHDataRef stdoutData() const noexcept { return mStdoutData.get(); }
    void setStdoutData(SSHDataRef value) noexcept { mStdoutData.set(std::move(value)); }

    // Everything the command wrote to its standard error; with `adminPassword`, what arrived after
    // the last password prompt.
    SSHDataRef stderrData() const noexcept { return mStderrData.get(); }
    void setStderrData(SSHDataRef value) noexcept { mStderrData.set(std::move(value)); }

    // The name of the signal that ended the command, without "SIG" (RFC 4254, section 6.10), or the
    // six characters "(null)" when the server reported none.
    SSHStringRef exitSignal() const noexcept { return mExitSignal.get(); }
    void setExitSignal(SSHStringRef value) noexcept { mExitSignal.set(std::move(value)); }

    // Whether `exitSignal` names one.
    bool wasEndedBySignal() const noexcept;

    // The exit status that the server reported; 0 when it sent none, which has three reasons: a
    // signal ended the command (see `exitSignal`), the connection ended before the command did (see
    // `isClosedInOrder`), or the server never says.
    std::int32_t exitStatus() const noexcept { return mExitStatus.get(); }
    void setExitStatus(std::int32_t value) noexcept { mExitStatus.set(value); }

    // Whether the server has closed the command's channel (RFC 4254, section 5.3), which it does
    // when the command has ended. False when the connection ended first: then the outputs may be
    // cut, the exit status may be missing, and the command may run on. `execute` answers true all
    // the same when both outputs had ended by then.
    bool isClosedInOrder() const noexcept { return mIsClosedInOrder.get(); }
    void setClosedInOrder(bool value) noexcept { mIsClosedInOrder.set(value); }

  private:
    // What it held before is released by the parameter, after the lock.
    template <typename Value>
    class Property {
      public:
        Property() = default;
        explicit Property(Value value) : mValue(std::move(value)) {}

        Value get() const noexcept {
            const SSHPlatform::MutexLock lock(mMutex);
            return mValue;
        }

        void set(Value value) noexcept {
            const SSHPlatform::MutexLock lock(mMutex);
            std::swap(mValue, value);
        }

      private:
        mutable SSHPlatform::Mutex mMutex;
        Value mValue SSHSESSION_GUARDED_BY(mMutex){};
    };

    Property<SSHStringRef> mCommand;
    Property<SSHStringRef> mAdminPassword;
    Property<SSHDataRef> mStdinData;
    Property<int> mStdinDescriptor{-1};
    Property<SSHInputSource> mStdinSource;
    Property<SSHOutputSink> mOutputSink;
    Property<SSHDataRef> mStdoutData;
    Property<SSHDataRef> mStderrData;
    Property<SSHStringRef> mExitSignal;
    Property<std::int32_t> mExitStatus;
    Property<bool> mIsClosedInOrder;
};
