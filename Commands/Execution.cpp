// Runs one command on the connected session, from opening its channel to filling the record.
#include "Session/SSHSession_libssh2.h"

#include "Commands/ChannelPump.h"
#include "Commands/CommandNotes.h"
#include "Commands/FollowedSudo.h"
#include "Platform/Text.h"
#include "Session/Causes.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/TimeLimit.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string_view>

using SSHEngine::causeOf;
using SSHEngine::ChannelPump;
using SSHEngine::CommandNotes;
using SSHEngine::Connection;
using SSHEngine::Ending;
using SSHEngine::fail;
using SSHEngine::FollowedSudo;
using SSHEngine::SudoConversation;
using SSHPlatform::ByteBuffer;

namespace {

using Engine = SSHSession_libssh2;

constexpr std::string_view execRequest = "exec";

// How long after the end of both outputs this side closes the channel, for servers that wait for
// that.
constexpr std::chrono::seconds patienceBeforeClosing(3);
constexpr std::chrono::milliseconds closingWait(100);
constexpr std::chrono::milliseconds openingWait(100);

std::string textOf(const SSHStringRef &text) {
    return text ? *text : std::string();
}

std::string_view bytesOf(const SSHDataRef &data) {
    return data ? data->view() : std::string_view();
}

// A session that watches its connection may have begun to open the channel. Only without blocking
// can it ask a server that says nothing.
LIBSSH2_CHANNEL *openChannel(Connection &connection, SSHErrorRef *error) {
    LIBSSH2_SESSION *const session = connection.session();
    libssh2_session_set_blocking(session, connection.engine.options().watchesConnection ? 0 : 1);
    LIBSSH2_CHANNEL *channel = connection.watch.takeOpened();
    while (!channel && !(channel = connection.openChannel()) &&
           libssh2_session_last_errno(session) == LIBSSH2_ERROR_EAGAIN)
        if (connection.watch.wait(SSHPlatform::WaitFor::Reading, openingWait) < 0)
            break;
    if (channel) {
        libssh2_channel_set_blocking(channel, 0); // for the whole session, until the next run
        return channel;
    }
    const int code = libssh2_session_last_errno(session);
    fail(error, [&] {
        return code == LIBSSH2_ERROR_TIMEOUT
                   ? SSHEngine::lostConnectionError(connection.engine,
                                                    Engine::_stringForErrorCode(code), code,
                                                    SSHErrorCause::ServerUnresponsive)
                   : Engine::_errorFromFunction(
                         session, "libssh2_channel_open_session", code,
                         causeOf(code, connection, SSHErrorCause::SessionRefused));
    });
    return nullptr;
}

// One command on its channel. Whatever fails leaves the channel to the end of the connection.
class CommandRun {
  public:
    CommandRun(Connection &connection, SSHCommand &command, CommandNotes &notes,
               LIBSSH2_CHANNEL *channel)
        : mConnection(connection), mCommand(command), mNotes(notes),
          mAdminPassword(command.adminPassword()), mChannel(channel),
          mPump(connection, channel, command.outputSink()) {}

    bool start(SSHErrorRef *error);
    bool converseWithSudo(SSHErrorRef *error);
    bool drain(SSHErrorRef *error);
    void close();
    void fillRecord();

  private:
    bool followsSudo() const { return mConnection.engine.options().followsSudo; }
    bool step(SSHErrorRef *error);
    void endInput();
    void beginInput();
    bool endsInputOnce() const;
    bool isEndUnsent() const;
    std::size_t inputBytes() const;
    bool serverHasClosed() const;
    std::string exitSignal() const;

    Connection &mConnection;
    SSHCommand &mCommand;
    CommandNotes &mNotes;
    const SSHStringRef mAdminPassword;
    LIBSSH2_CHANNEL *const mChannel;
    ChannelPump mPump;
    bool mIsInputQueued = false;
    std::size_t mInputSize = 0; // of what has been queued
    bool mHasInput = false;     // whether the record has any, as found at the start
    bool mFlowsIn = false;      // and not as a whole
    bool mIsInputEnded = false; // once and for all
    bool mIsClosedInOrder = false;
};

bool CommandRun::start(SSHErrorRef *error) {
    const std::string command = textOf(mCommand.command());
    const std::string text = !mAdminPassword ? command
                             : followsSudo() ? SSHEngine::followedSudoCommand(command)
                                             : SSHEngine::sudoCommand(command);
    int code = 0;
    {
        const Connection::PatientReads patience(mConnection);
        while ((code = libssh2_channel_process_startup(
                    mChannel, execRequest.data(), execRequest.size(), text.data(),
                    static_cast<unsigned>(text.size()))) == LIBSSH2_ERROR_EAGAIN)
            mConnection.watch.ask();
    }
    if (code != 0)
        return fail(error, [&] {
            const bool isTooLong = code == LIBSSH2_ERROR_INVAL || code == LIBSSH2_ERROR_ZLIB ||
                                   code == LIBSSH2_ERROR_OUT_OF_BOUNDARY;
            return Engine::_errorFromFunction(
                mConnection.session(), "libssh2_channel_exec", code,
                isTooLong ? SSHErrorCause::CommandTooLong
                          : causeOf(code, mConnection, SSHErrorCause::CommandRefused));
        });
    mNotes.hasStarted();
    mFlowsIn = SSHEngine::flowsIn(mCommand);
    mHasInput = mFlowsIn || !bytesOf(mCommand.stdinData()).empty();
    if (!mAdminPassword)
        mPump.beginOutputFlow();
    // Right after the request the library does not know yet that it waits for the server, and the
    // first pump step would pause for its full time. One read of each stream tells it.
    return mPump.read(error);
}

bool CommandRun::step(SSHErrorRef *error) {
    const bool succeeded = mPump.step(error);
    mNotes.hasMoved(mPump, inputBytes());
    return succeeded;
}

// That have left the record, or where they flow from.
std::size_t CommandRun::inputBytes() const {
    if (mFlowsIn)
        return mPump.flowed();
    return mInputSize - std::min(mPump.input.size(), mInputSize);
}

bool CommandRun::converseWithSudo(SSHErrorRef *error) {
    if (!mAdminPassword)
        return true;
    const auto now = SudoConversation::Clock::now();
    const std::unique_ptr<SudoConversation> conversation =
        followsSudo() ? std::make_unique<FollowedSudo>(*mAdminPassword, now)
                      : std::make_unique<SudoConversation>(*mAdminPassword, now);
    bool continues = false;
    while (true) {
        // While the pump step read standard error, the news that sudo has accepted may have come,
        // and behind it a text of the command's that looks like a prompt.
        if (!step(error) || !mPump.readOutput(&continues, error))
            return false;
        const SudoConversation::Outcome outcome = conversation->examine(
            *mPump.output, *mPump.errorOutput, mPump.keepReading, SudoConversation::Clock::now());
        if (outcome == SudoConversation::Outcome::Accepted) {
            mNotes.sudoHasAccepted(mPump);
            return mPump.beginOutputFlow();
        }
        if (outcome == SudoConversation::Outcome::Asked)
            mPump.queueInput(conversation->answer().shared(), conversation->answer().view());
        if (outcome == SudoConversation::Outcome::Refused ||
            outcome == SudoConversation::Outcome::TimedOut)
            return fail(error, [&] {
                return outcome == SudoConversation::Outcome::Refused
                           ? SSHEngine::commandError(
                                 conversation->refusal(mPump.errorOutput->view()), 0,
                                 SSHErrorCause::SudoRefused)
                           : SSHEngine::commandError("Password authentication for sudo timed out.",
                                                     0, SSHErrorCause::SudoSilent);
            });
    }
}

// Both outputs may have ended long before the command has read its input.
bool CommandRun::drain(SSHErrorRef *error) {
    mIsInputQueued = !mHasInput;
    if (mHasInput || libssh2_channel_eof(mChannel) != 0)
        mPump.doNotWait();
    do {
        if (!step(error))
            return false;
        if (!mIsInputQueued)
            beginInput();
        if (mHasInput && mPump.input.empty() && !mPump.awaitsInput())
            endInput();
    } while ((mPump.keepReading || mPump.keepWriting || !mPump.input.empty() || isEndUnsent()) &&
             !serverHasClosed());
    return true;
}

void CommandRun::beginInput() {
    mIsInputQueued = true;
    if (mFlowsIn)
        return mPump.beginInputFlow(mCommand.stdinDescriptor(), mCommand.stdinSource());
    const SSHDataRef data = mCommand.stdinData();
    mInputSize = bytesOf(data).size();
    mPump.queueInput(data, bytesOf(data));
}

bool CommandRun::endsInputOnce() const {
    return mFlowsIn || mConnection.engine.options().endsInputOnce;
}

void CommandRun::endInput() {
    if (!mIsInputEnded)
        mIsInputEnded =
            libssh2_channel_send_eof(mChannel) != LIBSSH2_ERROR_EAGAIN && endsInputOnce();
}

// As it is while keys are exchanged. The command may wait for it.
bool CommandRun::isEndUnsent() const {
    return mHasInput && !mIsInputEnded && endsInputOnce();
}

// True as well when a command ended without reading all of its input: nobody takes the rest.
bool CommandRun::serverHasClosed() const {
    return !mPump.holdsOutput() && libssh2_channel_eof(mChannel) != 0 &&
           libssh2_channel_wait_closed(mChannel) == 0;
}

// The exit status comes when the command ends, which may be long after its outputs have ended, and
// at the latest before the server closes the channel. That is waited for as long as the connection
// lives, whether this side has closed the channel or not.
void CommandRun::close() {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point outputsEnded = Clock::now();
    int code = LIBSSH2_ERROR_EAGAIN;
    while ((code = libssh2_channel_wait_closed(mChannel)) == LIBSSH2_ERROR_EAGAIN) {
        if (Clock::now() - outputsEnded >= patienceBeforeClosing)
            libssh2_channel_close(mChannel);
        if (mConnection.watch.wait(SSHPlatform::WaitFor::Reading, closingWait) < 0)
            break;
    }
    mIsClosedInOrder = code == 0;
    libssh2_channel_close(mChannel);
    // What is left half sent would come before anything that the next command sends.
    while (mIsClosedInOrder && mConnection.hasUnsent())
        if (mConnection.wait(SSHPlatform::WaitFor::Writing, closingWait) < 0)
            break;
}

std::string CommandRun::exitSignal() const {
    char *name = nullptr;
    libssh2_channel_get_exit_signal(mChannel, &name, nullptr, nullptr, nullptr, nullptr, nullptr);
    if (!name)
        return std::string(SSHPlatform::nullText);
    std::string text = SSHPlatform::decodedUTF8(name);
    libssh2_free(mConnection.session(), name);
    return text;
}

void CommandRun::fillRecord() {
    const int status = libssh2_channel_get_exit_status(mChannel);
    const std::string signal = exitSignal();
    if (mIsClosedInOrder)
        mNotes.hasEnded(status, signal == SSHPlatform::nullText ? "" : signal);
    const bool isHeld = !mPump.flowsOut(); // else the sink has it
    mCommand.setStdoutData(isHeld ? mPump.output : std::make_shared<const ByteBuffer>());
    mCommand.setStderrData(isHeld ? mPump.errorOutput : std::make_shared<const ByteBuffer>());
    mCommand.setExitStatus(status);
    mCommand.setExitSignal(std::make_shared<const std::string>(signal));
    mCommand.setClosedInOrder(mIsClosedInOrder);
    mConnection.watch.retire(mChannel);
}

} // namespace

bool SSHSession_libssh2::_execute(Connection &connection,
                                  const std::shared_ptr<SSHCommand> &command, SSHErrorRef *error) {
    if (!command)
        return fail(error, [] {
            return SSHEngine::commandError("There is no command.", 0, SSHErrorCause::Unknown);
        });
    connection.noteProgress();
    CommandNotes notes(*connection.notes, *command);
    const SSHEngine::TimeLimit length(connection, Ending::SlowCommand);
    const SSHEngine::TimeLimit silence(connection, Ending::SilentCommand);
    LIBSSH2_CHANNEL *const channel = openChannel(connection, error);
    if (!channel)
        return false;
    CommandRun run(connection, *command, notes, channel);
    if (!run.start(error) || !run.converseWithSudo(error) || !run.drain(error))
        return false;
    run.close();
    if (connection.isShutDown())
        return fail(error, [&] { return SSHEngine::endedCommandError(connection); });
    run.fillRecord();
    return true;
}
