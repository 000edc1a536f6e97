// Bounds what an agent sends: the library makes room for whatever length a reply claims to have.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace SSHEngine {

// Follows the replies of one connection to an agent. Each begins with its length (section 3 of
// draft-miller-ssh-agent).
class AgentReplies {
  public:
    // Whether what has come now belongs to replies of honest lengths.
    bool admit(std::string_view bytes) noexcept;

  private:
    std::uint32_t mLeft = 0; // of the reply, or as much of its length as is known
    std::size_t mLengthBytes = 0;
};

} // namespace SSHEngine
