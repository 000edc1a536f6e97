// SPDX-License-Identifier: BSD-3-Clause

// How a command's output and input flow while it runs, where they are not held in memory.
//
// The functions below are the host's own, and copied for each execution. They are called on the
// thread that called `execute`, inside the session queue: they must not throw, and must not call
// `start`, `stop` or `execute` of this session, nor wait for a thread that does; `cancel` is
// allowed. What holds one of them up holds up its own command alone, and time limits on a server's
// silence do not count it; but meanwhile nobody answers the server, which may take the connection
// for lost (sshd_config(5), ClientAliveInterval). A sink need not wait: see there.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>

// Standard output and standard error.
enum class SSHCommandStream { Output, ErrorOutput };

// Takes output as write(2) does: answers how many bytes of the piece it has taken, from its front.
// What it has left comes again with the next call for that stream; until then no more of either
// stream is taken from the server than its window lets in (2 MiB). A sink that has no room waits
// for some itself, a fraction of a second at most, and then answers 0: between two calls the
// command attends to its connection, to its input and to `cancel`. Nothing ends the run as `cancel`
// does. Where the connection ends meanwhile, the sink is given what has come before that is told.
//
// Pieces are never empty. Those of one stream come in their order. Between the two streams the
// order is that of arrival, as far as the pieces did not arrive together; those that did come
// standard output first.
using SSHOutputSink =
    std::function<std::optional<std::size_t>(SSHCommandStream stream, std::string_view piece)>;

// Gives input as read(2) does: fills `bytes` with at most `room`, at least one, and answers how
// many; 0 is the end of the input, after which it is not called again. Nothing ends the run as
// `cancel` does. It may wait, but then the command's output waits as well; a host whose input comes
// slowly, or depends on the output, gives the descriptor of a pipe instead.
using SSHInputSource = std::function<std::optional<std::size_t>(char *bytes, std::size_t room)>;
