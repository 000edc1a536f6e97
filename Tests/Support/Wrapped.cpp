#include "Tests/Support/Wrapped.h"

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
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

int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol) {
    wrapped().inheritable += (type & SOCK_CLOEXEC) == 0;
    return __real_socket(domain, type, protocol);
}

decltype(std::fopen) __real_fopen;
std::FILE *__wrap_fopen(const char *path, const char *mode) {
    wrapped().inheritable += !std::strchr(mode, 'e');
    return __real_fopen(path, mode);
}

struct bio_st *__real_BIO_new_file(const char *path, const char *mode);
struct bio_st *__wrap_BIO_new_file(const char *path, const char *mode) {
    wrapped().inheritable += !std::strchr(mode, 'e');
    return __real_BIO_new_file(path, mode);
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
