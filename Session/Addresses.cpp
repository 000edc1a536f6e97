#include "Session/Addresses.h"

#include <netdb.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace SSHEngine {

namespace {

int weight(int number) {
    switch (number) {
    case 0:
        return 0;
    case EAFNOSUPPORT:
    case EADDRNOTAVAIL:
    case ENETUNREACH:
        return 1;
    case ECONNREFUSED: // the host itself
    case ECONNRESET:
        return 3;
    default:
        return 2;
    }
}

} // namespace

Address::Address(const sockaddr *first, std::size_t length) : size(static_cast<socklen_t>(length)) {
    std::memcpy(&value, first, std::min(length, sizeof value));
}

std::string Address::text() const {
    std::array<char, NI_MAXHOST> name{};
    ::getnameinfo(get(), size, name.data(), name.size(), nullptr, 0, NI_NUMERICHOST);
    return name.data();
}

bool Address::operator==(const Address &other) const {
    return size == other.size && std::memcmp(&value, &other.value, size) == 0;
}

std::vector<Address> inTurn(const std::vector<Address> &preferred) {
    std::vector<Address> first; // of the family that the system prefers
    std::vector<Address> second;
    for (const Address &address : preferred) {
        auto &same = address.family() == preferred.front().family() ? first : second;
        if (std::find(same.begin(), same.end(), address) == same.end())
            same.push_back(address);
    }
    std::vector<Address> ordered;
    for (std::size_t i = 0; i < std::max(first.size(), second.size()); ++i)
        for (const auto *same : {&first, &second})
            if (i < same->size())
                ordered.push_back((*same)[i]);
    return ordered;
}

int moreTelling(int first, int second) {
    return weight(second) > weight(first) ? second : first;
}

} // namespace SSHEngine
