#include "Inputs.h"

#include "Failure.h"

#include <SSHSession/TerminalPrompts.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>

namespace {

using SSHPlatform::ByteBuffer;
using SSHPlatform::Secret;

constexpr std::size_t pieceSize = 64UL * 1024;

std::string_view withoutLineEnd(std::string_view text) {
    if (text.ends_with('\n'))
        text.remove_suffix(text.ends_with("\r\n") ? 2 : 1);
    return text;
}

Secret askForPassword(const std::string &prompt) {
    Secret answer = SSHPlatform::readSecretFromTerminal(prompt + ": ");
    if (!answer)
        throw Failure("Nobody gave a password at the terminal.");
    return answer;
}

Secret passwordFrom(const std::string &source) {
    return Secret::of(withoutLineEnd(Source(source).content()->view()));
}

Secret readPassword(const std::optional<std::string> &source, const std::string &prompt) {
    if (!source)
        return Secret::none();
    Secret secret = *source == "prompt" ? askForPassword(prompt) : passwordFrom(*source);
    if (secret.view().find('\0') !=
        std::string_view::npos) // the protocol's library would cut it there
        throw Failure("The password in \"" + *source + "\" holds a zero byte.");
    return secret;
}

bool isStandardInputOpen() {
    const int flags = ::fcntl(STDIN_FILENO, F_GETFL);
    return flags != -1 && (flags & O_ACCMODE) != O_WRONLY;
}

// Nobody types at the terminal for a command that does not ask, and a password's source is not the
// command's.
std::unique_ptr<const Source> inputOf(const Options &options) {
    if (options.standardInputFrom)
        return std::make_unique<const Source>(*options.standardInputFrom);
    if (options.hasNoInput || !isStandardInputOpen())
        return std::make_unique<const Source>("/dev/null");
    const bool isTaken = options.isDoctor || ::isatty(STDIN_FILENO) != 0 ||
                         options.passwordFrom == "-" || options.adminPasswordFrom == "-";
    return isTaken ? nullptr : std::make_unique<const Source>("-");
}

} // namespace

Source::Source(const std::string &name)
    : mName(name),
      mDescriptor(isStandardInput() ? STDIN_FILENO : ::open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
    struct stat status {};
    if (mDescriptor < 0 || ::fstat(mDescriptor, &status) != 0)
        fail();
    if (S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        fail();
    }
}

Source::~Source() {
    if (!isStandardInput())
        ::close(mDescriptor);
}

SSHPlatform::ByteBufferRef Source::content() const {
    const auto bytes = std::make_shared<ByteBuffer>("", ByteBuffer::Contents::Secret);
    std::string piece(pieceSize, '\0');
    while (const std::size_t count = readSome(piece))
        bytes->append(std::string_view(piece).substr(0, count));
    SSHPlatform::wipe(piece);
    return bytes;
}

std::size_t Source::readSome(std::string &piece) const {
    ssize_t count = 0;
    do {
        count = ::read(mDescriptor, piece.data(), piece.size());
    } while (count < 0 && errno == EINTR);
    if (count < 0)
        fail();
    return static_cast<std::size_t>(count);
}

void Source::fail() const {
    const int number = errno;
    throw Failure("Could not read " + (isStandardInput() ? "standard input" : "\"" + mName + "\"") +
                  ": " + std::generic_category().message(number) + ".");
}

Inputs readInputs(const Options &options, const std::string &user) {
    const std::string account = user + "@" + options.host;
    return {.password = readPassword(options.passwordFrom, "Password for " + account),
            .adminPassword =
                readPassword(options.adminPasswordFrom, "Administrator password for " + account),
            .standardInput = inputOf(options)};
}
