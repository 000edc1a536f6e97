#include "Tests/Support/Wrapped.h"

#include <libssh2.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <tuple>
#include <type_traits>

Wrapped &wrapped() {
    static auto *const value = new Wrapped;
    return *value;
}

void Wrapped::inject(const Fault &fault) {
    const std::lock_guard lock(mMutex);
    mFault = fault;
    mCalls.clear();
    allocations = 0;
}

std::map<std::string, int> Wrapped::calls() const {
    const std::lock_guard lock(mMutex);
    return mCalls;
}

bool Wrapped::shouldFail(const char *function) {
    const std::lock_guard lock(mMutex);
    const int call = ++mCalls[function];
    return mFault.function == function && call >= mFault.first &&
           call < mFault.first + mFault.times;
}

#pragma GCC diagnostic ignored "-Wignored-attributes" // of functions, which types do not have

namespace {

template <typename Function>
struct Signature;
template <typename R, typename... Arguments>
struct Signature<R(Arguments...)> {
    using Result = R;
    template <std::size_t Index>
    using Argument = std::tuple_element_t<Index, std::tuple<Arguments...>>;
};
template <typename R, typename... Arguments>
struct Signature<R(Arguments...) noexcept> : Signature<R(Arguments...)> {};

void note(LIBSSH2_SESSION *session, int code) {
    if (session)
        libssh2_session_set_last_error(session, code, "injected");
}
template <typename Other>
void note(const Other & /*none has one*/, int /*code*/) {}

template <typename Function, typename First, typename... Rest>
auto pass(const char *name, Function *real, First first, Rest... rest) {
    using Result = typename Signature<Function>::Result;
    if (!wrapped().shouldFail(name))
        return real(first, rest...);
    const int result = wrapped().result();
    note(first, result);
    if constexpr (std::is_pointer_v<Result>) {
        return static_cast<Result>(nullptr);
    } else {
        const bool isLibrarys = std::string_view(name).starts_with("libssh2_");
        errno = isLibrarys ? errno : result;
        return static_cast<Result>(isLibrarys ? result : -1);
    }
}

// The allocator that a session was given; the one that fails by itself stands before it.
struct Allocator {
    LIBSSH2_ALLOC_FUNC((*allocate));
    LIBSSH2_FREE_FUNC((*release));
    LIBSSH2_REALLOC_FUNC((*reallocate));
} given;

bool mayAllocate() {
    return wrapped().allocations++ != wrapped().goodAllocations;
}
LIBSSH2_ALLOC_FUNC(allocate) {
    if (!mayAllocate())
        return nullptr;
    ++wrapped().liveAllocations;
    return given.allocate(count, abstract);
}
LIBSSH2_FREE_FUNC(release) {
    if (ptr)
        --wrapped().liveAllocations;
    given.release(ptr, abstract);
}
LIBSSH2_REALLOC_FUNC(reallocate) {
    if (!ptr)
        return allocate(count, abstract);
    return mayAllocate() ? given.reallocate(ptr, count, abstract) : nullptr;
}

} // namespace

// The parameters of a function, and their names. The build takes the functions' names from the
// lines that begin with WRAP or WITH_A_HOOK.
#define P1(f) Signature<decltype(f)>::Argument<0> a
#define P2(f) P1(f), Signature<decltype(f)>::Argument<1> b
#define P3(f) P2(f), Signature<decltype(f)>::Argument<2> c
#define P4(f) P3(f), Signature<decltype(f)>::Argument<3> d
#define P5(f) P4(f), Signature<decltype(f)>::Argument<4> e
#define P6(f) P5(f), Signature<decltype(f)>::Argument<5> g
#define P7(f) P6(f), Signature<decltype(f)>::Argument<6> h
#define P9(f) P7(f), Signature<decltype(f)>::Argument<7> i, Signature<decltype(f)>::Argument<8> j
#define N1 a
#define N2 N1, b
#define N3 N2, c
#define N4 N3, d
#define N5 N4, e
#define N6 N5, g
#define N7 N6, h
#define N9 N7, i, j
#define WITH_A_HOOK(count, f)                                                                      \
    decltype(f) __real_##f;                                                                        \
    Signature<decltype(f)>::Result __wrap_##f(P##count(f))
#define WRAP(count, f)                                                                             \
    WITH_A_HOOK(count, f) {                                                                        \
        return pass(#f, __real_##f, N##count);                                                     \
    }

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl*): the linker's names
extern "C" {

WITH_A_HOOK(1, time) {
    const std::time_t now = __real_time(nullptr) + wrapped().secondsAhead;
    return a ? *a = now : now;
}
WITH_A_HOOK(1, close) {
    const int result = __real_close(a);
    if (result != 0 && errno == EBADF)
        ++wrapped().badCloses;
    return result;
}
WITH_A_HOOK(3, poll) {
    if (b == 2 && a[0].fd < 0)
        ++wrapped().plainPauses;
    return pass("poll", __real_poll, a, b, c);
}
WITH_A_HOOK(3, socket) {
    wrapped().inheritable += (b & SOCK_CLOEXEC) == 0;
    return pass("socket", __real_socket, a, b, c);
}
WITH_A_HOOK(2, fopen) {
    wrapped().inheritable += !std::strchr(b, 'e');
    return pass("fopen", __real_fopen, a, b);
}
#ifdef SSHSESSION_WRAPS_LIBSSH2
struct bio_st *BIO_new_file(const char *path, const char *mode); // of libcrypto
WITH_A_HOOK(2, BIO_new_file) {
    wrapped().inheritable += !std::strchr(b, 'e');
    return pass("BIO_new_file", __real_BIO_new_file, a, b);
}
#endif
WITH_A_HOOK(4, getaddrinfo) {
    if (wrapped().beforeLookUp)
        wrapped().beforeLookUp();
    if (wrapped().shouldFail("getaddrinfo"))
        return wrapped().result();
    if (wrapped().addresses.empty())
        return __real_getaddrinfo(a, b, c, d);
    int result = 0;
    for (const std::string &address : wrapped().addresses) { // freed one by one
        result = result != 0 ? result : __real_getaddrinfo(address.c_str(), b, c, d);
        d = result != 0 ? d : &(*d)->ai_next;
    }
    return result;
}
WITH_A_HOOK(4, libssh2_session_init_ex) {
    if (wrapped().shouldFail("libssh2_session_init_ex")) {
        errno = ENOMEM;
        return nullptr;
    }
    if (!wrapped().goodAllocations || !a)
        return __real_libssh2_session_init_ex(a, b, c, d);
    given = {a, b, c};
    return __real_libssh2_session_init_ex(allocate, release, reallocate, d);
}

WRAP(3, connect)
WRAP(4, send)
WRAP(4, recv)
WRAP(5, setsockopt)
WRAP(2, pipe2)
WRAP(1, libssh2_agent_init)
WRAP(1, libssh2_agent_connect)
WRAP(1, libssh2_agent_list_identities)
WRAP(3, libssh2_agent_get_identity)
WRAP(3, libssh2_agent_userauth)
WRAP(7, libssh2_channel_open_ex)
WRAP(5, libssh2_channel_process_startup)
WRAP(4, libssh2_channel_read_ex)
WRAP(4, libssh2_channel_write_ex)
WRAP(1, libssh2_channel_send_eof)
WRAP(1, libssh2_channel_close)
WRAP(1, libssh2_channel_wait_closed)
WRAP(7, libssh2_channel_get_exit_signal)
WRAP(1, libssh2_channel_free)
WRAP(2, libssh2_keepalive_send)
WRAP(1, libssh2_knownhost_init)
WRAP(3, libssh2_knownhost_readfile)
WRAP(7, libssh2_knownhost_checkp)
WRAP(9, libssh2_knownhost_addc)
WRAP(4, libssh2_knownhost_readline)
WRAP(6, libssh2_knownhost_writeline)
WRAP(3, libssh2_session_flag)
WRAP(2, libssh2_session_handshake)
WRAP(3, libssh2_session_hostkey)
WRAP(3, libssh2_session_supported_algs)
WRAP(3, libssh2_userauth_list)
WRAP(4, libssh2_userauth_keyboard_interactive_ex)
WRAP(6, libssh2_userauth_password_ex)
WRAP(6, libssh2_userauth_publickey_fromfile_ex)
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl*)
