// The "keyboard-interactive" method of RFC 4256, answered from the session's password, or by the
// user where the session's options say so.
#include "Session/SSHSession_libssh2.h"

#include "Auth/Attempts.h"
#include "Auth/Conversation.h"
#include "Session/Connection.h"
#include "Session/ErrorReporting.h"
#include "Session/Question.h"
#include "Session/WipingAllocator.h"

#include <SSHSession/SSHSessionPasswordPanel.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

using SSHEngine::Connection;
using SSHPlatform::Secret;

namespace {

// The library frees the text.
void giveToLibrary(std::string_view answer, LIBSSH2_USERAUTH_KBDINT_RESPONSE &response) {
    auto *const text = static_cast<char *>(SSHEngine::allocateForLibrary(answer.size()));
    if (!text)
        return;
    std::copy(answer.begin(), answer.end(), text);
    response.text = text;
    response.length = static_cast<unsigned>(answer.size());
}

std::string_view view(const void *text, std::size_t size) {
    return text ? std::string_view(static_cast<const char *>(text), size) : "";
}

void noteQuestions(SSHEngine::LogIn &logIn, int count,
                   const LIBSSH2_USERAUTH_KBDINT_PROMPT *prompts) {
    constexpr std::size_t most = 10;
    constexpr std::size_t longest = 200;
    for (int i = 0; i < count && logIn.questions.size() < most; ++i)
        logIn.questions.emplace_back(view(prompts[i].text, prompts[i].length).substr(0, longest));
}

// Whatever a single prompt asks, it gets the password; several prompts at once cannot all mean it,
// so they get nothing.
void libssh2_keyboard_callback(const char * /*name*/, int /*nameLength*/,
                               const char * /*instruction*/, int /*instructionLength*/,
                               int promptCount, const LIBSSH2_USERAUTH_KBDINT_PROMPT *prompts,
                               LIBSSH2_USERAUTH_KBDINT_RESPONSE *responses, void **abstract) {
    auto &connection = Connection::of(abstract);
    if (connection.isAskedTooOften())
        return;
    noteQuestions(connection.logIn, promptCount, prompts);
    const auto &password = connection.engine.password();
    if (promptCount == 1 && password)
        giveToLibrary(*password, responses[0]);
    else if (promptCount > 0)
        connection.logIn.leavesQuestions = true;
}

// An empty answer may be one that the server takes, so what was declined must not be answered at
// all. The library can only be kept from it by an answer that it gets no memory to send. After the
// first round it would wait for what the server says to that, unless it may not wait.
void giveUp(LIBSSH2_SESSION *session, LIBSSH2_USERAUTH_KBDINT_RESPONSE &response) {
    response.length = SSHEngine::tooMuchForLibrary;
    libssh2_session_set_blocking(session, 0);
}

void converse(const char *name, int nameSize, const char *instruction, int instructionSize,
              int promptCount, const LIBSSH2_USERAUTH_KBDINT_PROMPT *prompts,
              LIBSSH2_USERAUTH_KBDINT_RESPONSE *responses, void **abstract) {
    auto &connection = Connection::of(abstract);
    if (connection.isAskedTooOften())
        return;
    SSHEngine::ServersRequest request = {
        .name = view(name, static_cast<std::size_t>(nameSize)),
        .instruction = view(instruction, static_cast<std::size_t>(instructionSize)),
        .prompts = {}};
    for (int i = 0; i < promptCount; ++i)
        request.prompts.push_back(
            {.text = view(prompts[i].text, prompts[i].length), .isSecret = prompts[i].echo == 0});
    noteQuestions(connection.logIn, promptCount, prompts);
    const auto answers = connection.logIn.conversation->answers(request);
    if (!answers && promptCount > 0)
        giveUp(connection.session(), responses[0]);
    for (std::size_t i = 0; answers && i < answers->size(); ++i)
        giveToLibrary((*answers)[i].view(), responses[i]);
}

// None when the user declines, or nobody can be asked any more.
Secret ask(Connection &connection, const std::string &text, bool isSecret) {
    Secret answer = Secret::none();
    if (connection.isShutDown())
        return answer;
    SSHEngine::askOnMainThread(connection, [&] {
        std::optional<std::string> typed = SSHSessionPasswordPanel(connection.endDescriptor())
                                               .responseToKeyboardPrompt(text, isSecret);
        answer = Secret::takenFrom(typed);
    });
    connection.logIn.hasAnswers |= static_cast<bool>(answer);
    return answer;
}

std::string failureText(int code) {
    switch (code) {
    case LIBSSH2_ERROR_TIMEOUT:
        return " Failed because of timeout.\n";
    case LIBSSH2_ERROR_AUTHENTICATION_FAILED:
        return " Authentication failed.\n";
    default:
        return fmt::format(" ({})", code);
    }
}

std::string failureText(LIBSSH2_SESSION *session, SSHEngine::Conversation *conversation, int code) {
    if (!conversation)
        return failureText(code);
    // The library counts the prompts as well, before it shows them.
    if (libssh2_session_last_errno(session) == LIBSSH2_ERROR_OUT_OF_BOUNDARY)
        conversation->giveUpTooManyPrompts();
    return (conversation->isGivenUp() ? " " : failureText(code)) + conversation->account();
}

SSHAttempt attemptOn(LIBSSH2_SESSION *session, SSHEngine::LogIn &logIn, int code) {
    SSHAttempt attempt;
    attempt.method = "keyboard-interactive";
    SSHEngine::setResult(attempt, session, code);
    attempt.questions = std::exchange(logIn.questions, {});
    const bool leavesQuestions = std::exchange(logIn.leavesQuestions, false);
    if (code == 0)
        return attempt;
    if (logIn.conversation)
        attempt.remark = logIn.conversation->account();
    const bool isGivenUp = logIn.conversation && logIn.conversation->isGivenUp();
    if (isGivenUp || (leavesQuestions && attempt.result != SSHAttemptResult::Ended))
        attempt.result = SSHAttemptResult::NotGiven;
    return attempt;
}

SSHEngine::Conversation conversationOn(Connection &connection) {
    // An examination sends it by one method.
    const auto &given = connection.engine.password();
    const bool isSpent = connection.engine.asksNobody && connection.logIn.isPasswordSent;
    return {[&connection](const std::string &text, bool isSecret) {
                return ask(connection, text, isSecret);
            },
            given && !isSpent ? Secret::of(*given) : connection.logIn.password,
            !connection.logIn.refusedPassword};
}

} // namespace

bool SSHSession_libssh2::_authenticateWithKeyboard(Connection &connection, SSHErrorRef *error) {
    SSHEngine::LogIn &logIn = connection.logIn;
    const auto authenticate = [&](LIBSSH2_SESSION *session) {
        const char *const name =
            SSHEngine::requiredUser(*this, "-[SSHSession_libssh2 _authenticateWithKeyboard:]");
        const int code = libssh2_userauth_keyboard_interactive_ex(
            session, name, static_cast<unsigned>(std::strlen(name)),
            options().asksServersQuestions ? converse : libssh2_keyboard_callback);
        libssh2_session_set_blocking(session, 1);
        const std::string account = code == 0 ? "" : failureText(session, logIn.conversation, code);
        const SSHAttempt attempt = attemptOn(session, logIn, code);
        SSHEngine::noteAttempt(connection, attempt);
        logIn.mayHaveFactor = code == LIBSSH2_ERROR_AUTHENTICATION_FAILED;
        return code == 0 || SSHEngine::fail(error, [&] {
                   return SSHEngine::connectionError(
                       *this, "SSH could not authenticate using keyboard-interactive." + account,
                       code,
                       SSHEngine::causeOfAttempt(attempt, SSHEngine::situationOf(connection)));
               });
    };
    if (!options().asksServersQuestions)
        return onSessionQueue(connection, error, authenticate);

    // The user may take long, and may end the session while a question shows, on the very thread
    // that waits for it: the queue is not held meanwhile. Nobody else uses a connection that is
    // still being made.
    SSHEngine::Conversation conversation = conversationOn(connection);
    logIn.conversation = &conversation;
    const bool isIn = holds(connection) && authenticate(connection.session());
    logIn.conversation = nullptr;
    if (!isIn && !holds(connection))
        SSHEngine::fail(error, [&] { return SSHEngine::endedStartError(connection); });
    return isIn;
}
