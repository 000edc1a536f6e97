// What a server says in the clear as a connection begins: any lines, its version (RFC 4253, section
// 4.2), and the algorithms that it offers (sections 6 and 7.1). Only reads; nothing here does any
// input or output.
#pragma once

#include <SSHSession/SSHFacts.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace SSHEngine {

class ServerHello {
  public:
    // The next bytes of the server's, in pieces of any size. Answers whether they have changed
    // `facts`.
    bool take(std::string_view bytes);

    // Nothing more will be learned: the offer has come, or cannot come any more. What is taken from
    // then on costs nothing.
    bool isOver() const { return mState == State::Over; }

    // Where the server's version is not complete, what there is of it stands in `linesBefore`. What
    // comes of the connection is not told here.
    const SSHServerFacts &facts() const { return mFacts; }

  private:
    enum class State { Lines, Packets, Over };

    bool takeOfLine(std::string_view &bytes);
    bool takePacket(std::string_view bytes);
    bool examine(std::string_view payload);

    State mState = State::Lines;
    std::size_t mTaken = 0;
    std::string mLine;      // the one that has not ended, as far as it may be a version
    std::size_t mShown = 0; // of that line, in `linesBefore`
    std::string mPackets;   // what has come of them
    SSHServerFacts mFacts;
};

} // namespace SSHEngine
