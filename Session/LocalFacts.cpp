#include "Session/LocalFacts.h"

namespace SSHEngine {

SSHLocalFacts localFacts(const SSHSession & /*session*/) {
    return {};
}

} // namespace SSHEngine
