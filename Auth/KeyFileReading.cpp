#include "Auth/KeyFileReading.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>

namespace SSHEngine {

namespace {

constexpr std::size_t largestKeyFile = 1UL << 20;
constexpr std::size_t usualRoom = 1UL << 14; // also for a file that does not tell its size
constexpr mode_t rightsOfOthers = 077;
constexpr mode_t rights = 07777;

class OpenFile {
  public:
    // A named pipe that nobody writes to would be waited for, and a terminal would become ours.
    explicit OpenFile(const std::string &path)
        : mDescriptor(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {}
    ~OpenFile() {
        if (mDescriptor >= 0)
            ::close(mDescriptor);
    }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;

    int descriptor() const { return mDescriptor; }

  private:
    const int mDescriptor;
};

std::string systemsReason() {
    return std::generic_category().message(errno) + ".";
}

// Empty when nothing is against reading it.
std::string objection(const struct stat &status) {
    if (S_ISDIR(status.st_mode))
        return "It is a directory.";
    if (!S_ISREG(status.st_mode))
        return "It is not a regular file.";
    if (static_cast<std::size_t>(status.st_size) > largestKeyFile)
        return "It is larger than 1 MB, which no key is.";
    return "";
}

std::string exposureOf(const struct stat &status) {
    if (status.st_uid != ::getuid() || (status.st_mode & rightsOfOthers) == 0)
        return "";
    return fmt::format("Others have rights to it (mode {:04o}). A private key must be its owner's "
                       "alone (mode 0600).",
                       static_cast<unsigned>(status.st_mode & rights));
}

// How much there was, as far as there is room; none for an error, which errno tells.
std::optional<std::size_t> readAll(int descriptor, std::string &room) {
    std::size_t size = 0;
    while (size < room.size()) {
        const ssize_t count = ::read(descriptor, room.data() + size, room.size() - size);
        if (count == 0)
            break;
        if (count < 0 && errno != EINTR)
            return std::nullopt;
        size += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return size;
}

} // namespace

KeyFileContent readKeyFile(const std::string &path) {
    const OpenFile file(path);
    struct stat status {};
    KeyFileContent content;
    if (file.descriptor() < 0 || ::fstat(file.descriptor(), &status) != 0)
        content.reason = systemsReason();
    else
        content.reason = objection(status);
    if (!content.reason.empty())
        return content;
    content.exposure = exposureOf(status);
    content.mode = static_cast<unsigned>(status.st_mode & rights);
    std::string bytes(std::max(static_cast<std::size_t>(status.st_size), usualRoom), '\0');
    if (const auto size = readAll(file.descriptor(), bytes))
        content.bytes = SSHPlatform::Secret::of({bytes.data(), *size});
    else
        content.reason = systemsReason();
    SSHPlatform::wipe(bytes);
    return content;
}

} // namespace SSHEngine
