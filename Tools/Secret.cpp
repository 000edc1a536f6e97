#include "Secret.h"

namespace {

// Through a volatile reference, so that the compiler may not leave it out. All of the capacity,
// since a shortened text still holds what it was.
void wipe(std::string &text) {
    text.resize(text.capacity());
    for (volatile char &byte : text)
        byte = 0;
    text.clear();
}

} // namespace

Secret makeSecret(std::string &text) {
    const auto forget = [](std::string *secret) {
        wipe(*secret);
        delete secret;
    };
    Secret secret(new std::string(text), forget);
    wipe(text);
    return secret;
}
