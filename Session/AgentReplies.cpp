#include "Session/AgentReplies.h"

#include <algorithm>

namespace SSHEngine {

namespace {

constexpr std::size_t lengthSize = 4;
constexpr std::uint32_t longestReply = 256UL * 1024; // OpenSSH's limit, for agents and clients

} // namespace

bool AgentReplies::admit(std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        if (mLengthBytes < lengthSize) {
            mLeft = mLeft << 8U | static_cast<std::uint8_t>(bytes.front());
            bytes.remove_prefix(1);
            if (++mLengthBytes == lengthSize && mLeft > longestReply)
                return false;
        } else {
            const std::size_t taken = std::min<std::size_t>(bytes.size(), mLeft);
            bytes.remove_prefix(taken);
            mLeft -= static_cast<std::uint32_t>(taken);
        }
        if (mLengthBytes == lengthSize && mLeft == 0)
            mLengthBytes = 0;
    }
    return true;
}

} // namespace SSHEngine
