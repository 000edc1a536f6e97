#include <SSHSession/ByteBuffer.h>
#include <SSHSession/Secret.h>

#include <algorithm>
#include <cstdlib>
#include <exception>

namespace SSHPlatform {

ByteBuffer::ByteBuffer(std::string_view bytes, Contents contents) noexcept : mContents(contents) {
    append(bytes);
}

ByteBuffer::~ByteBuffer() {
    forget();
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
    forget();
    mBegin = mEnd = 0;
}

void ByteBuffer::makeRoom(std::size_t count) noexcept {
    if (mCapacity - mEnd >= count)
        return;
    // Closing the gap at the front pays only when it is at least as large as what must be moved;
    // otherwise a queue that is never quite empty would be moved again and again.
    if (mContents == Contents::Plain && mBegin >= size() && mCapacity - size() >= count) {
        if (!empty())
            std::copy(data(), data() + size(), mStorage);
        mEnd -= mBegin;
        mBegin = 0;
        return;
    }
    constexpr std::size_t smallest = 4096;
    const std::size_t capacity = std::max({mEnd + count, mCapacity + mCapacity / 2, smallest});
    moveTo(capacity);
}

void ByteBuffer::moveTo(std::size_t capacity) noexcept {
    const bool isPlain = mContents == Contents::Plain;
    auto *storage =
        static_cast<char *>(isPlain ? std::realloc(mStorage, capacity) : std::malloc(capacity));
    if (!storage)
        std::terminate();
    if (!isPlain) {
        std::copy(mStorage, mStorage + mEnd, storage);
        forget();
        std::free(mStorage);
    }
    mStorage = storage;
    mCapacity = capacity;
}

void ByteBuffer::forget() noexcept {
    if (mContents == Contents::Secret)
        wipe(mStorage, mEnd);
}

} // namespace SSHPlatform
