#include "Session/AddressRace.h"

#include "Session/Connection.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace SSHEngine {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds betweenAttempts(250);

// Sockets that are connecting; those that are left in the end are closed.
class Attempts {
  public:
    Attempts() = default;
    ~Attempts() {
        for (const int socket : mSockets)
            ::close(socket);
    }
    Attempts(const Attempts &) = delete;
    Attempts &operator=(const Attempts &) = delete;

    const std::vector<int> &sockets() const { return mSockets; }
    bool empty() const { return mSockets.empty(); }
    void add(int socket, std::size_t address) {
        mSockets.push_back(socket);
        mAddresses.push_back(address);
    }
    std::size_t addressOf(int position) const {
        return mAddresses[static_cast<std::size_t>(position)];
    }

    // Answers the socket at this position where it is connected. Else it is closed, and the answer
    // is -1 with errno.
    int take(int position) {
        const int socket = mSockets[static_cast<std::size_t>(position)];
        mSockets.erase(mSockets.begin() + position);
        mAddresses.erase(mAddresses.begin() + position);
        int number = 0;
        socklen_t size = sizeof number;
        if (::getsockopt(socket, SOL_SOCKET, SO_ERROR, &number, &size) == 0 && number == 0)
            return socket;
        ::close(socket);
        errno = number;
        return -1;
    }

  private:
    std::vector<int> mSockets;
    std::vector<std::size_t> mAddresses; // of each, by their place in the list
};

void note(const Connection &connection, std::size_t address, int failure) {
    connection.notes->note([&](SSHFacts &facts) {
        if (address >= facts.addresses.size())
            return;
        facts.addresses[address].error = failure;
        facts.addresses[address].isConnected = failure == 0;
    });
}

} // namespace

int connectToFirst(const Connection &connection, const std::vector<Address> &addresses,
                   std::chrono::milliseconds limit, const BeginAttempt &begin) {
    Attempts attempts;
    auto next = addresses.begin();
    int failure = 0;
    Clock::time_point now = Clock::now();
    const Clock::time_point deadline = now + limit;
    Clock::time_point turn = now; // of the next
    const auto fails = [&](std::size_t address) {
        note(connection, address, errno);
        failure = moreTelling(failure, errno);
        turn = now;
    };
    for (; next != addresses.end() || !attempts.empty(); now = Clock::now()) {
        if (next != addresses.end() && now >= turn) {
            const auto address = static_cast<std::size_t>(next - addresses.begin());
            const int socket = begin(*next++);
            if (socket < 0) {
                fails(address);
                continue;
            }
            attempts.add(socket, address);
            turn = now + betweenAttempts;
        }
        const Clock::time_point until =
            next == addresses.end() ? deadline : std::min(deadline, turn);
        const int ready = connection.waitForAny(
            attempts.sockets(), std::chrono::ceil<std::chrono::milliseconds>(until - now));
        if (ready >= 0) {
            const std::size_t address = attempts.addressOf(ready);
            const int socket = attempts.take(ready);
            if (socket < 0) {
                fails(address);
                continue;
            }
            note(connection, address, 0);
            return socket;
        }
        if (errno != ETIMEDOUT || until == deadline) {
            return -1;
        }
    }
    errno = failure;
    return -1;
}

} // namespace SSHEngine
