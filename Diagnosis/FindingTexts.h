// The words of the findings, in one table: what findings are made of, and the document that lists
// them.
#pragma once

#include <SSHSession/SSHFinding.h>

#include <span>

namespace SSHEngine {

struct FindingText {
    SSHFindingID id;
    const char *name;
    const char *heading; // the problem, as somebody who has it would put it
    // Both with named arguments of {fmt}. Whole sentences that may be missing begin with a space:
    // "{said}" quotes the server.
    const char *text;
    const char *step;
    const char *fixedTexts; // those of the library with which it comes, a line each
};

// In the order of SSHFindingID.
std::span<const FindingText> findingTexts() noexcept;

} // namespace SSHEngine
