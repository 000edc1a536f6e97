#include "Auth/AgentList.h"

#include "Platform/Socket.h"
#include "Session/KeyEncoding.h"
#include "Session/KeyType.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <system_error>

#ifndef MSG_NOSIGNAL
#define MSG_NOSIGNAL 0 // a signal of a closed socket is then the host's to ignore
#endif

namespace SSHEngine {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t lengthSize = 4;
constexpr std::size_t longestAnswer = std::size_t{256} * 1024; // OpenSSH's limit
constexpr std::string_view listRequest("\0\0\0\1\x0B", 5);     // SSH_AGENTC_REQUEST_IDENTITIES
constexpr char identitiesAnswer = 12;

// One question to one agent, done by a deadline.
class Inquiry {
  public:
    explicit Inquiry(const char *path) { open(path); }
    ~Inquiry() {
        if (mSocket >= 0)
            ::close(mSocket);
    }
    Inquiry(const Inquiry &) = delete;
    Inquiry &operator=(const Inquiry &) = delete;

    // Without the length before it. -1 with errno when there is none.
    int answer(std::string &bytes);

  private:
    void open(const char *path);
    int await(SSHPlatform::WaitFor direction);
    int receive(std::string &bytes, std::size_t size);
    milliseconds left() const {
        return std::chrono::ceil<milliseconds>(std::max(mDeadline - Clock::now(), {}));
    }

    const Clock::time_point mDeadline = Clock::now() + std::chrono::seconds(2);
    int mSocket = -1;
};

void Inquiry::open(const char *path) {
    constexpr milliseconds pause(20);
    mSocket = openAgentSocket(path);
    while (mSocket < 0 && errno == EAGAIN && left() > milliseconds(0)) {
        SSHPlatform::waitForSocket(-1, SSHPlatform::WaitFor::Nothing, pause);
        mSocket = openAgentSocket(path);
    }
}

int Inquiry::await(SSHPlatform::WaitFor direction) {
    const int ready = SSHPlatform::waitForSocket(mSocket, direction, left());
    if (ready == 0)
        errno = ETIMEDOUT;
    return ready > 0 ? 0 : -1;
}

int Inquiry::receive(std::string &bytes, std::size_t size) {
    std::array<char, 4096> buffer{};
    while (bytes.size() < size) {
        if (await(SSHPlatform::WaitFor::Reading) != 0)
            return -1;
        const ssize_t count =
            ::recv(mSocket, buffer.data(), std::min(buffer.size(), size - bytes.size()), 0);
        if (count == 0)
            errno = ECONNRESET;
        if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN))
            return -1;
        bytes.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return 0;
}

int Inquiry::answer(std::string &bytes) {
    if (mSocket < 0 || await(SSHPlatform::WaitFor::Writing) != 0 ||
        ::send(mSocket, listRequest.data(), listRequest.size(), MSG_NOSIGNAL) < 0)
        return -1;
    std::string length;
    if (receive(length, lengthSize) != 0)
        return -1;
    std::string_view rest = length;
    const std::size_t size = takeNumber(rest).value_or(0);
    errno = EMSGSIZE;
    return size > longestAnswer ? -1 : receive(bytes, size);
}

} // namespace

int openAgentSocket(const char *path) {
    sockaddr_un address{};
    if (std::strlen(path) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(static_cast<void *>(address.sun_path), path, std::strlen(path) + 1);
    const int descriptor = SSHPlatform::openSocket(AF_UNIX);
    if (descriptor < 0)
        return -1;
    ::fcntl(descriptor, F_SETFL, O_NONBLOCK); // an agent that takes nobody in would be waited for
    if (::connect(descriptor, reinterpret_cast<const sockaddr *>(&address),
                  static_cast<socklen_t>(sizeof address)) == 0)
        return descriptor;
    const int failure = errno;
    ::close(descriptor);
    errno = failure;
    return -1;
}

std::optional<std::vector<SSHAgentIdentity>> identitiesIn(std::string_view answer) {
    if (!answer.starts_with(identitiesAnswer))
        return std::nullopt;
    answer.remove_prefix(1);
    const std::optional<std::uint32_t> count = takeNumber(answer);
    if (!count)
        return std::nullopt;
    std::vector<SSHAgentIdentity> identities;
    for (std::uint32_t i = 0; i < *count; ++i) {
        const std::optional<std::string_view> key = takeString(answer);
        const std::optional<std::string_view> comment = takeString(answer);
        if (!key || !comment)
            return std::nullopt;
        identities.push_back({.comment = std::string(*comment),
                              .type = keyTypeIn(*key),
                              .fingerprint = keyFingerprint(*key)});
    }
    return identities;
}

SSHAgentFacts agentFacts() {
    const char *const path = std::getenv("SSH_AUTH_SOCK");
    SSHAgentFacts facts;
    if (!path || !*path)
        return facts;
    facts.socket = path;
    std::string answer;
    if (Inquiry(path).answer(answer) != 0) {
        facts.problem = std::generic_category().message(errno);
        return facts;
    }
    if (auto identities = identitiesIn(answer))
        facts.identities = std::move(*identities);
    else
        facts.problem = "it did not answer with a list of keys";
    return facts;
}

} // namespace SSHEngine
