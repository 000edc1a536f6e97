#include "Tests/Support/Wrapped.h"

#include <netdb.h>
#include <poll.h>

#include <cerrno>
#include <ctime>

Wrapped &wrapped() {
    static auto *const value = new Wrapped;
    return *value;
}

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl*): the linker's names
extern "C" {

std::time_t __real_time(std::time_t *result);
std::time_t __wrap_time(std::time_t *result) {
    const std::time_t now = __real_time(nullptr) + wrapped().secondsAhead;
    return result ? *result = now : now;
}

int __real_close(int descriptor);
int __wrap_close(int descriptor) {
    const int result = __real_close(descriptor);
    if (result != 0 && errno == EBADF)
        ++wrapped().badCloses;
    return result;
}

int __real_poll(pollfd *entries, nfds_t count, int timeout);
int __wrap_poll(pollfd *entries, nfds_t count, int timeout) {
    if (count == 2 && entries[0].fd < 0)
        ++wrapped().plainPauses;
    return __real_poll(entries, count, timeout);
}

decltype(::getaddrinfo) __real_getaddrinfo;
int __wrap_getaddrinfo(const char *node, const char *service, const addrinfo *hints,
                       addrinfo **results) {
    if (wrapped().beforeLookUp)
        wrapped().beforeLookUp();
    return __real_getaddrinfo(node, service, hints, results);
}
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl*)
