#include "Handover.h"

#include "Output.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

Handover::Target::Target(int number, bool isRaw)
    : descriptor(number), isTerminal(::isatty(number) != 0),
      isFiltered(isTerminal && !isRaw) {}

Handover::Handover(bool isRaw)
    : mTargets{{Target(STDOUT_FILENO, isRaw), Target(STDERR_FILENO, isRaw)}} {}

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
    const auto require = [](const Target &target, void (*requireWritten)(int)) {
        if (target.failure != EPIPE)
            requireWritten(target.failure);
    };
    require(mTargets.front(), requireOutput);
    require(mTargets.back(), requireErrorOutput);
    writeOutput(mTargets.front().text.rest());
    writeErrorOutput(mTargets.back().text.rest());
}

bool Handover::hasLostReader() const {
    return std::ranges::any_of(mTargets,
                               [](const Target &target) { return target.failure == EPIPE; });
}
