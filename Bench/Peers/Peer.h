// What every benchmark program in C++ does with its library, the way the library's own users would.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

struct LogIn {
    unsigned short port = 0; // on 127.0.0.1
    std::string user;
    std::string keyFile;    // without a pass phrase
    std::string knownHosts; // where the server's host key is
};

// Every operation throws when it fails, a command also when its exit status is not 0.
class Peer {
  public:
    using Sink = std::function<void(std::string_view piece)>;

    Peer() = default;
    Peer(const Peer &) = delete;
    Peer &operator=(const Peer &) = delete;
    virtual ~Peer() = default;

    // Of the library, and of what it stands on.
    virtual std::string version() const = 0;

    // From the TCP connection to the end of authentication, the host key checked, compression
    // asked for; and back. Any number of times.
    virtual void connect() = 0;
    virtual void disconnect() = 0;

    // Runs a command to its end, with that input, and holds its output in memory until then.
    // Answers the size of its standard output.
    virtual std::size_t run(const std::string &command, std::string_view input) = 0;
    // Gives its standard output away as it comes.
    virtual void stream(const std::string &command, const Sink &sink) = 0;
    // The same in two steps, for much input: has a file's content in memory, as the library wants
    // it; runs a command with that.
    virtual void load(const std::string &path) = 0;
    virtual void runLoaded(const std::string &command) = 0;
    // Takes its input from a file.
    virtual void feed(const std::string &command, int descriptor) = 0;
    // Runs `true` as root through sudo, which asks for this password.
    virtual void sudoTrue(const std::string &password) = 0;
};

using PeerMaker = std::unique_ptr<Peer> (*)(const LogIn &logIn);

// Does what the command line says, PORT USER KEYFILE MEASURE [ARGUMENT]..., and prints what came of
// it as one line of JSON. Answers the exit status.
int measure(int count, char **words, PeerMaker make);
