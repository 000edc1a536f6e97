#include <SSHSession/ByteBuffer.h>

#include <algorithm>
#include <cstdlib>
#include <exception>

namespace SSHPlatform {

ByteBuffer::ByteBuffer(std::string_view bytes) noexcept {
    append(bytes);
}

ByteBuffer::~ByteBuffer() {
    std::free(mStorage);
}

void ByteBuffer::append(std::string_view bytes) noexcept {
    if (bytes.empty())
        return;
    makeRoom(bytes.size());
    std::copy(bytes.begin(), bytes.end(), mStorage + mEnd);
    mEnd += bytes.size();
}

void ByteBuffer::removeFromFront(std::size_t count) noexcept {
    mBegin += std::min(count, size());
    if (empty())
        clear();
}

void ByteBuffer::clear() noexcept {
    mBegin = mEnd = 0;
}

void ByteBuffer::makeRoom(std::size_t count) noexcept {
    if (mCapacity - mEnd >= count)
        return;
    // Closing the gap at the front pays only when it is at least as large as what must be moved;
    // otherwise a queue that is never quite empty would be moved again and again.
    if (mBegin >= size() && mCapacity - size() >= count) {
        if (!empty())
            std::copy(data(), data() + size(), mStorage);
        mEnd -= mBegin;
        mBegin = 0;
        return;
    }
    constexpr std::size_t smallest = 4096;
    const std::size_t capacity = std::max({mEnd + count, mCapacity + mCapacity / 2, smallest});
    auto *storage = static_cast<char *>(std::realloc(mStorage, capacity));
    if (!storage)
        std::terminate();
    mStorage = storage;
    mCapacity = capacity;
}

} // namespace SSHPlatform
