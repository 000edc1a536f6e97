#include "Platform/ReadFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace SSHPlatform {

namespace {

template <typename Call>
auto uninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

int readAll(int descriptor, std::size_t limit, std::string &content) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0)
        return errno;
    if (!S_ISREG(status.st_mode))
        return EINVAL;
    std::array<char, 65536> buffer{};
    while (true) {
        const ssize_t count =
            uninterrupted([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
        if (count <= 0)
            return count == 0 ? 0 : errno;
        content.append(buffer.data(), static_cast<std::size_t>(count));
        if (content.size() > limit)
            return EFBIG;
    }
}

} // namespace

int readFile(const std::string &path, std::size_t limit, std::string &content) {
    content.clear();
    const int descriptor = uninterrupted(
        [&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); });
    if (descriptor < 0)
        return errno;
    const int failure = readAll(descriptor, limit, content);
    ::close(descriptor);
    if (failure != 0)
        content.clear();
    return failure;
}

} // namespace SSHPlatform
