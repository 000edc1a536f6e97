// SPDX-License-Identifier: BSD-3-Clause

// A growable run of bytes.
//
// Appending never copies what is already there when the allocator can grow in place, and
// removing from the front takes constant time, so that a buffer can serve as the queue between a
// fast producer and a slow consumer. A buffer is handed over by reference (`ByteBufferRef`), never
// copied behind the caller's back. One thread at a time may change a buffer; a buffer that nobody
// changes any more may be read from any thread. Running out of memory ends the process.
#pragma once

#include <SSHSession/SSHSessionExport.h>

#include <cstddef>
#include <memory>
#include <string_view>

namespace SSHPlatform {

class SSHSESSION_EXPORT ByteBuffer {
  public:
    ByteBuffer() noexcept = default;
    // Of a buffer with a secret every byte is overwritten before its memory is given back, also
    // when it grows, which then always copies.
    enum class Contents { Plain, Secret };
    explicit ByteBuffer(std::string_view bytes, Contents contents = Contents::Plain) noexcept;
    ByteBuffer(const ByteBuffer &) = delete;
    ByteBuffer &operator=(const ByteBuffer &) = delete;
    ~ByteBuffer();

    // The bytes, without a terminator; null or dangling when empty. Valid until the next change.
    const char *data() const noexcept { return mStorage + mBegin; }
    std::size_t size() const noexcept { return mEnd - mBegin; }
    bool empty() const noexcept { return mEnd == mBegin; }
    std::string_view view() const noexcept { return {data(), size()}; }

    // `bytes` must not lie inside this buffer.
    void append(std::string_view bytes) noexcept;

    // Drops the first `count` bytes; at most all of them.
    void removeFromFront(std::size_t count) noexcept;

    void clear() noexcept;

  private:
    void makeRoom(std::size_t count) noexcept;
    void moveTo(std::size_t capacity) noexcept;
    void forget() noexcept;

    char *mStorage = nullptr;
    std::size_t mBegin = 0;
    std::size_t mEnd = 0;
    std::size_t mCapacity = 0;
    const Contents mContents = Contents::Plain;
};

using ByteBufferRef = std::shared_ptr<const ByteBuffer>;

} // namespace SSHPlatform
