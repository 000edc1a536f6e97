#include "Handover.h"

#include "Output.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace {

// A terminal that can be written to may have room for a few bytes alone. On a descriptor of its own
// whoever shares the stream does not come to know that this one does not wait for more.
int terminalOf(int descriptor) {
    const char *const name = ::ttyname(descriptor);
    return name ? ::open(name, O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC) : -1;
}

} // namespace

Handover::Target::Target(int number, bool isRaw)
    : isTerminal(::isatty(number) != 0), ownDescriptor(isTerminal ? terminalOf(number) : -1),
      descriptor(ownDescriptor == -1 ? number : ownDescriptor), isFiltered(isTerminal && !isRaw) {}

Handover::Target::~Target() {
    if (ownDescriptor != -1)
        ::close(ownDescriptor);
}

Handover::Handover(bool isRaw) : mTargets{{{STDOUT_FILENO, isRaw}, {STDERR_FILENO, isRaw}}} {}

// A piece counts as taken once all that stands for it has been written. Until then it comes again.
std::optional<std::size_t> Handover::take(SSHCommandStream stream, std::string_view piece) {
    Target &target = mTargets.at(static_cast<std::size_t>(stream));
    if (target.pieceSize == 0) {
        target.pieceSize = piece.size();
        target.pending.append(target.isFiltered ? target.text.take(piece) : piece);
    }
    if (target.flush())
        return std::exchange(target.pieceSize, 0);
    return target.failure == 0 ? std::optional<std::size_t>(0) : std::nullopt;
}

// Answers whether everything is written.
bool Handover::Target::flush() {
    if (isTerminal)
        hideProgress();
    while (!pending.empty()) {
        const ssize_t written = writeSome(descriptor, pending.view());
        if (written <= 0) {
            failure = static_cast<int>(-written);
            return false;
        }
        pending.removeFromFront(static_cast<std::size_t>(written));
    }
    return true;
}

void Handover::finish() {
    requireOutput(mTargets.front().failure);
    requireErrorOutput(mTargets.back().failure);
    writeOutput(mTargets.front().text.rest());
    writeErrorOutput(mTargets.back().text.rest());
}

bool Handover::hasLostReader() const {
    return std::ranges::any_of(mTargets,
                               [](const Target &target) { return target.failure == EPIPE; });
}
