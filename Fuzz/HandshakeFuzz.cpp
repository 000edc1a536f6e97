// Whatever a server says from its first byte on, the handshake fails with an error: nothing that
// was not made for this very handshake carries a valid signature of it.
#include "Fuzz/Support/PlayedServer.h"
#include "Fuzz/Support/Property.h"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    homeOfPlayedSessions();
    std::string_view input = textOf(data, size);
    const std::size_t piece = takeByte(input);
    const auto session = PlayedSession::make();
    const auto connection = session->connectedTo(playServer(std::string(input), piece));
    SSHErrorRef error;
    hold(!session->_startSession(*connection, &error), "no server proves to be one it is not");
    expectOutcome(false, error);
    session->stop();
    return 0;
}
