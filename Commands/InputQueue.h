// What is still to be written to a command's standard input, in pieces that are never copied.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <string_view>
#include <utility>

namespace SSHEngine {

class InputQueue {
  public:
    // `owner` keeps the bytes alive; it is let go of when they have been removed.
    void append(std::shared_ptr<const void> owner, std::string_view bytes) {
        if (!bytes.empty())
            mPieces.push_back({std::move(owner), bytes});
    }

    bool empty() const { return mPieces.empty(); }

    std::size_t size() const { // in bytes
        std::size_t bytes = 0;
        for (const Piece &piece : mPieces)
            bytes += piece.rest.size();
        return bytes;
    }

    // Bytes of one piece; empty when the queue is.
    std::string_view front() const { return empty() ? std::string_view() : mPieces.front().rest; }

    // At most as many as `front` has.
    void removeFromFront(std::size_t count) {
        mPieces.front().rest.remove_prefix(count);
        if (front().empty())
            mPieces.pop_front();
    }

  private:
    struct Piece {
        std::shared_ptr<const void> owner;
        std::string_view rest;
    };
    std::deque<Piece> mPieces;
};

} // namespace SSHEngine
