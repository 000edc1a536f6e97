#include "Inputs.h"

#include "Failure.h"

#include <SSHSession/TerminalPrompts.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>

namespace {

// So large that a password never has to be moved, which would leave a copy behind.
constexpr std::size_t firstCapacity = 64UL * 1024;

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

    std::string content() const {
        std::string bytes;
        std::size_t size = 0;
        while (const std::size_t count = readSome(bytes, size))
            size += count;
        bytes.resize(size);
        return bytes;
    }

  private:
    bool isStandardInput() const { return mName == "-"; }

    std::size_t readSome(std::string &bytes, std::size_t size) const {
        if (size == bytes.size())
            bytes.resize(std::max(firstCapacity, 2 * size));
        ssize_t count = 0;
        do {
            count = ::read(mDescriptor, bytes.data() + size, bytes.size() - size);
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

void removeLineEnd(std::string &text) {
    if (!text.ends_with('\n'))
        return;
    text.pop_back();
    if (text.ends_with('\r'))
        text.pop_back();
}

Secret askForPassword(const std::string &prompt) {
    std::optional<std::string> answer = SSHPlatform::readSecretFromTerminal(prompt + ": ");
    if (!answer)
        throw Failure("Nobody gave a password at the terminal.");
    return makeSecret(*answer);
}

Secret passwordFrom(const std::string &source) {
    std::string text = Source(source).content();
    removeLineEnd(text);
    return makeSecret(text);
}

Secret readPassword(const std::optional<std::string> &source, const std::string &prompt) {
    if (!source)
        return nullptr;
    Secret secret = *source == "prompt" ? askForPassword(prompt) : passwordFrom(*source);
    if (secret->find('\0') != std::string::npos) // the protocol's library would cut it there
        throw Failure("The password in \"" + *source + "\" holds a zero byte.");
    return secret;
}

} // namespace

Inputs readInputs(const Options &options, const std::string &user) {
    const std::string account = user + "@" + options.host;
    Inputs inputs;
    inputs.password = readPassword(options.passwordFrom, "Password for " + account);
    inputs.adminPassword =
        readPassword(options.adminPasswordFrom, "Administrator password for " + account);
    if (options.standardInputFrom)
        inputs.standardInput = std::make_shared<const SSHPlatform::ByteBuffer>(
            Source(*options.standardInputFrom).content());
    return inputs;
}
