// Whatever a server says first, in whatever pieces it comes: what is learned of it is the same, and
// no more than there is room for.
#include "Fuzz/Support/Property.h"

#include "Session/Negotiation.h"
#include "Session/ServerHello.h"

#include <algorithm>

using namespace SSHEngine;

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::string_view input = textOf(data, size);
    const std::size_t piece = std::max<std::size_t>(takeByte(input), 1);
    ServerHello whole;
    ServerHello inPieces;
    whole.take(input);
    for (std::string_view rest = input; !rest.empty();
         rest.remove_prefix(std::min(piece, rest.size())))
        inPieces.take(rest.substr(0, piece));
    const SSHServerFacts &one = whole.facts();
    const SSHServerFacts &other = inPieces.facts();
    hold(whole.isOver() == inPieces.isOver(), "it ends at the same place");
    hold(one.version == other.version && one.linesBefore == other.linesBefore, "lines are lines");
    hold(one.linesBefore.size() <= 1024 && one.version.size() <= 255, "lines are short");
    hold(one.offer.has_value() == other.offer.has_value(), "an offer is an offer");
    hold(!one.offer || one.offer->keyExchange == other.offer->keyExchange, "of the same content");
    if (one.offer)
        nothingInCommon(*one.offer, *other.offer);
    return 0;
}
