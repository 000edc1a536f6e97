// Runs one command on the connected session, from opening its channel to filling the record.
#include "Session/SSHSession_libssh2.h"

#include "Commands/ChannelRun.h"
#include "Commands/Sudo.h"
#include "Platform/Text.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdlib>
#include <string_view>

namespace {

constexpr std::string_view channelType = "session";
constexpr std::string_view execRequest = "exec";
constexpr const char *couldNotExecute = "Dravella could not execute the SSH command.";

// How long a finished command's channel may take until the server has closed it. The exit status
// may well be the last thing to arrive; but a server that never closes must not hold the caller.
constexpr std::chrono::seconds longestClose(1);

std::string textOf(const SSHStringRef &text) {
    return text ? *text : std::string();
}

std::string_view bytesOf(const SSHDataRef &data) {
    return data ? data->view() : std::string_view();
}

// True as well when a command ended without reading all of its input: nobody takes the rest.
bool serverHasClosed(LIBSSH2_CHANNEL *channel) {
    return libssh2_channel_eof(channel) != 0 && libssh2_channel_wait_closed(channel) == 0;
}

std::string exitSignalName(LIBSSH2_CHANNEL *channel) {
    char *name = nullptr;
    libssh2_channel_get_exit_signal(channel, &name, nullptr, nullptr, nullptr, nullptr, nullptr);
    const std::unique_ptr<char, decltype(&std::free)> owned(name, std::free);
    return name ? SSHPlatform::decodedUTF8(name) : std::string(SSHPlatform::nullText);
}

void fillRecord(SSHCommand &command, const ChannelRun &run) {
    command.setStdoutData(run.output);
    command.setStderrData(run.errorOutput);
    command.setExitStatus(libssh2_channel_get_exit_status(run.channel));
    command.setExitSignal(std::make_shared<const std::string>(exitSignalName(run.channel)));
}

} // namespace

bool SSHSession_libssh2::_execute(const std::shared_ptr<SSHCommand> &command, SSHErrorRef *error) {
    const SessionHandle handle = _session();
    if (!command || !handle) {
        if (error)
            *error = _errorWithDescription(
                couldNotExecute, handle ? "There is no command." : "The session is not connected.",
                0);
        return false;
    }
    LIBSSH2_SESSION *const session = handle.get();
    const SSHStringRef adminPassword = command->adminPassword();
    std::string text = textOf(command->command());
    if (adminPassword)
        text = sudoCommand(text);

    ChannelRun run;
    if (!_openChannel(session, run, error) || !_startCommand(text, run, error))
        return false;
    run.hasInput = !bytesOf(command->stdinData()).empty();
    if (adminPassword && !_runSudoPhase(session, *adminPassword, run, error))
        return false;
    if (!_drain(session, *command, run, error))
        return false;
    _closeChannel(session, run);
    fillRecord(*command, run);
    libssh2_channel_free(run.channel);
    return true;
}

bool SSHSession_libssh2::_openChannel(LIBSSH2_SESSION *session, ChannelRun &run,
                                      SSHErrorRef *error) {
    libssh2_session_set_blocking(session, 1);
    run.channel = libssh2_channel_open_ex(session, channelType.data(), channelType.size(),
                                          LIBSSH2_CHANNEL_WINDOW_DEFAULT,
                                          LIBSSH2_CHANNEL_PACKET_DEFAULT, nullptr, 0);
    if (run.channel) {
        libssh2_channel_set_blocking(run.channel, 0); // for the whole session, until the next run
        return true;
    }
    const int code = libssh2_session_last_errno(session);
    if (error)
        *error = code == LIBSSH2_ERROR_TIMEOUT
                     ? _lostConnectionError(_stringForErrorCode(code), code)
                     : _errorFromFunction("libssh2_channel_open_session", code);
    return false;
}

bool SSHSession_libssh2::_startCommand(const std::string &text, ChannelRun &run,
                                       SSHErrorRef *error) {
    int code = 0;
    do {
        code = libssh2_channel_process_startup(run.channel, execRequest.data(), execRequest.size(),
                                               text.data(), static_cast<unsigned>(text.size()));
    } while (code == LIBSSH2_ERROR_EAGAIN);
    if (code != 0) {
        if (error)
            *error = _errorFromFunction("libssh2_channel_exec", code);
        return false;
    }
    // Right after the request the library does not know yet that it waits for the server, and the
    // first pump step would pause for its full time. One read of each stream tells it.
    bool streamsContinue = false;
    if (!_readStreams(run, &streamsContinue, error))
        return false;
    run.mayBeSilent = libssh2_channel_eof(run.channel) == 0;
    return true;
}

bool SSHSession_libssh2::_runSudoPhase(LIBSSH2_SESSION *session, const std::string &password,
                                       ChannelRun &run, SSHErrorRef *error) {
    SudoConversation conversation(password, SudoConversation::Clock::now());
    bool continues = false;
    while (true) {
        // While the pump step read standard error, the news that sudo has accepted may have come,
        // and behind it a text of the command's that looks like a prompt.
        if (!_pump(session, run, error) ||
            !_readFromChannel(run.channel, *run.output, false, &continues, error))
            return false;
        const SudoConversation::Outcome outcome =
            conversation.examine(*run.output, *run.errorOutput, run.input, run.keepReading,
                                 SudoConversation::Clock::now());
        if (outcome == SudoConversation::Outcome::Accepted)
            return true;
        if (outcome == SudoConversation::Outcome::Pending)
            continue;
        if (error)
            *error = _errorWithDescription(
                couldNotExecute,
                outcome == SudoConversation::Outcome::Refused
                    ? "The SSH user was not able to use sudo. The password was not accepted."
                    : "Password authentication for sudo timed out.",
                0);
        return false;
    }
}

bool SSHSession_libssh2::_drain(LIBSSH2_SESSION *session, const SSHCommand &command,
                                ChannelRun &run, SSHErrorRef *error) {
    bool inputQueued = false;
    do {
        if (!_pump(session, run, error))
            return false;
        if (run.hasInput && !inputQueued) {
            const SSHDataRef data = command.stdinData();
            run.input.append(bytesOf(data));
            inputQueued = true;
        }
        if (run.hasInput && run.input.empty())
            libssh2_channel_send_eof(run.channel);
    } while ((run.keepReading || run.keepWriting) && !serverHasClosed(run.channel));
    return true;
}

void SSHSession_libssh2::_closeChannel(LIBSSH2_SESSION *session, ChannelRun &run) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point deadline = Clock::now() + longestClose;
    do {
        libssh2_channel_close(run.channel);
        if (libssh2_channel_wait_closed(run.channel) != LIBSSH2_ERROR_EAGAIN)
            return;
    } while (Clock::now() < deadline && _waitForChannel(session, nullptr));
}
