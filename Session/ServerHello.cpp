#include "Session/ServerHello.h"

#include "Session/KeyEncoding.h"
#include "Session/NameList.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace SSHEngine {

namespace {

constexpr std::size_t mostBytes = 64UL * 1024;
constexpr std::size_t mostLineBytes = 1024; // that are shown of what is no version
constexpr std::size_t longestVersion = 255; // with its line end
constexpr std::size_t wordSize = 4;

// Messages (RFC 4253, section 12).
constexpr char ignoreMessage = 2;
constexpr char debugMessage = 4;
constexpr char offerMessage = 20;

bool takeNames(std::string_view &bytes, std::vector<std::string> &names) {
    const std::optional<std::string_view> list = takeString(bytes);
    if (list)
        names = namesIn(*list);
    return list.has_value();
}

// Behind the message's number.
std::optional<SSHAlgorithms> offerIn(std::string_view bytes) {
    constexpr std::size_t cookieSize = 16;
    SSHAlgorithms offer;
    bytes.remove_prefix(std::min(cookieSize, bytes.size()));
    for (auto *names : {&offer.keyExchange, &offer.hostKey, &offer.cipherToServer,
                        &offer.cipherToClient, &offer.macToServer, &offer.macToClient,
                        &offer.compressionToServer, &offer.compressionToClient})
        if (!takeNames(bytes, *names))
            return std::nullopt;
    return offer;
}

} // namespace

bool ServerHello::take(std::string_view bytes) {
    bytes = bytes.substr(0, isOver() ? 0 : mostBytes - mTaken);
    if (bytes.empty())
        return false;
    mTaken += bytes.size();
    bool hasChanged = !std::exchange(mFacts.hasSpoken, true);
    while (mState == State::Lines && !bytes.empty())
        hasChanged |= takeOfLine(bytes);
    if (mState == State::Packets) {
        mPackets += bytes;
        while (mState == State::Packets && takePacket(mPackets)) {
        }
        hasChanged |= mFacts.offer.has_value();
    }
    if (mTaken == mostBytes)
        mState = State::Over;
    if (isOver())
        mPackets = std::string();
    return hasChanged;
}

// Up to the line's end, where that has come. A line is shown as it comes: a server of another kind
// may wait within one. Once it turns out to be the version it is taken back.
bool ServerHello::takeOfLine(std::string_view &bytes) {
    const std::size_t end = bytes.find('\n');
    const bool hasEnded = end != std::string_view::npos;
    const std::string_view part = bytes.substr(0, hasEnded ? end + 1 : bytes.size());
    bytes.remove_prefix(part.size());
    std::string &lines = mFacts.linesBefore;
    mLine.append(part.substr(0, longestVersion - std::min(longestVersion, mLine.size())));
    const std::string_view shown = part.substr(0, mostLineBytes - lines.size());
    lines += shown;
    mShown += shown.size();
    if (!hasEnded)
        return !shown.empty();
    const bool isVersion = mLine.starts_with("SSH-");
    if (isVersion) {
        lines.resize(lines.size() - mShown);
        mFacts.version = mLine.substr(0, mLine.find_first_of("\r\n"));
        mState = State::Packets;
    }
    mLine.clear();
    mShown = 0;
    return isVersion || !shown.empty();
}

// Answers whether it has taken a packet off the front of what has come.
bool ServerHello::takePacket(std::string_view bytes) {
    const std::optional<std::size_t> size = takeNumber(bytes);
    if (size && (*size < 2 || *size > mostBytes)) {
        mState = State::Over;
        return false;
    }
    if (!size || bytes.size() < *size)
        return false;
    const auto padding = static_cast<unsigned char>(bytes.front());
    const std::size_t payloadSize = *size - 1 - std::min<std::size_t>(padding, *size - 1);
    if (!examine(bytes.substr(1, payloadSize)))
        mState = State::Over;
    mPackets.erase(0, wordSize + *size);
    return true;
}

// Answers whether the offer may still come.
bool ServerHello::examine(std::string_view payload) {
    if (payload.empty())
        return false;
    const char message = payload.front();
    if (message == offerMessage)
        mFacts.offer = offerIn(payload.substr(1));
    return message == ignoreMessage || message == debugMessage;
}

} // namespace SSHEngine
