#include "Inputs.h"

#include "Failure.h"

#include <SSHSession/TerminalPrompts.h>

#include <fcntl.h>
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

class Source {
  public:
    explicit Source(const std::string &name)
        : mName(name), mDescriptor(isStandardInput() ? STDIN_FILENO
                                                     : ::open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (mDescriptor < 0)
            fail();
    }
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;
    ~Source() {
        if (!isStandardInput())
            ::close(mDescriptor);
    }

    SSHDataRef content() const {
        const auto bytes = std::make_shared<ByteBuffer>("", ByteBuffer::Contents::Secret);
        std::string piece(pieceSize, '\0');
        while (const std::size_t count = readSome(piece))
            bytes->append(std::string_view(piece).substr(0, count));
        SSHPlatform::wipe(piece);
        return bytes;
    }

  private:
    bool isStandardInput() const { return mName == "-"; }

    std::size_t readSome(std::string &piece) const {
        ssize_t count = 0;
        do {
            count = ::read(mDescriptor, piece.data(), piece.size());
        } while (count < 0 && errno == EINTR);
        if (count < 0)
            fail();
        return static_cast<std::size_t>(count);
    }

    [[noreturn]] void fail() const {
        const int number = errno;
        throw Failure("Could not read " +
                      (isStandardInput() ? "standard input" : "\"" + mName + "\"") + ": " +
                      std::generic_category().message(number) + ".");
    }

    const std::string mName;
    const int mDescriptor;
};

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

} // namespace

Inputs readInputs(const Options &options, const std::string &user) {
    const std::string account = user + "@" + options.host;
    return {.password = readPassword(options.passwordFrom, "Password for " + account),
            .adminPassword =
                readPassword(options.adminPasswordFrom, "Administrator password for " + account),
            .standardInput =
                options.standardInputFrom ? Source(*options.standardInputFrom).content() : nullptr};
}
