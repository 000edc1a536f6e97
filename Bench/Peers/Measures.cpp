// What is measured, the same for every library.
#include "Bench/Peers/Peer.h"

#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>
#include <thread>
#include <vector>

using Json = nlohmann::json;
using Arguments = std::vector<std::string>;

namespace {

// Of the machine's clock that other programs read too.
double seconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double processorSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto inSeconds = [](const timeval &time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return inSeconds(usage.ru_utime) + inSeconds(usage.ru_stime);
}

long peakKilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;)
        if (word == "VmHWM:") {
            long value = 0;
            status >> value;
            return value;
        }
    throw std::runtime_error("the system does not tell the peak of resident memory");
}

// Whatever a library does behind a command's back has come to its end.
void settle() {
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
}

void require(bool condition, const char *what) {
    if (!condition)
        throw std::runtime_error(what);
}

template <typename Work>
Json latencies(const std::string &count, Work work) {
    std::vector<double> milliseconds;
    for (int left = std::stoi(count); left > 0; --left)
        milliseconds.push_back(work());
    return {{"ms", milliseconds}};
}

template <typename Work>
double millisecondsOf(Work work) {
    const double begin = seconds();
    work();
    return (seconds() - begin) * 1e3;
}

// On a session that has run a command before.
template <typename Work>
Json warmLatencies(Peer &peer, const std::string &count, Work work) {
    peer.connect();
    peer.run("true", {});
    Json result = latencies(count, [&] { return millisecondsOf(work); });
    peer.disconnect();
    return result;
}

Json connecting(Peer &peer, const Arguments &arguments) {
    return latencies(arguments.at(0), [&] {
        const double time = millisecondsOf([&] { peer.connect(); });
        peer.disconnect();
        return time;
    });
}

Json shortCommand(Peer &peer, const Arguments &arguments) {
    return warmLatencies(peer, arguments.at(0), [&] { peer.run("true", {}); });
}

Json shortInput(Peer &peer, const Arguments &arguments) {
    return warmLatencies(peer, arguments.at(0), [&] {
        require(peer.run("cat", "input") == 5, "the input did not come back");
    });
}

Json throughSudo(Peer &peer, const Arguments &arguments) {
    std::string password;
    std::getline(std::ifstream(arguments.at(1)), password);
    return warmLatencies(peer, arguments.at(0), [&] { peer.sudoTrue(password); });
}

// Speed, and the memory that it took over an idle session's.
template <typename Work>
Json transfer(Peer &peer, std::size_t size, Work work) {
    peer.connect();
    peer.run("true", {});
    const long idle = peakKilobytes();
    const double begin = seconds();
    work();
    Json result = {{"bytes", size}, {"seconds", seconds() - begin}};
    result["extra_kb"] = peakKilobytes() - idle;
    peer.disconnect();
    return result;
}

Json held(Peer &peer, const Arguments &arguments) {
    const std::size_t size = std::stoull(arguments.at(0));
    return transfer(peer, size, [&] {
        require(peer.run("cat " + arguments.at(1), {}) == size, "output is missing");
    });
}

Json streamed(Peer &peer, const Arguments &arguments) {
    const std::size_t size = std::stoull(arguments.at(0));
    return transfer(peer, size, [&] {
        std::size_t arrived = 0;
        peer.stream("cat " + arguments.at(1),
                    [&](std::string_view piece) { arrived += piece.size(); });
        require(arrived == size, "output is missing");
    });
}

// The server counts what arrives.
std::string counting(const std::string &size) {
    return "test \"$(wc -c)\" -eq " + size;
}

// Reading the file is no part of the time, having it in memory is a part of the memory.
Json heldInput(Peer &peer, const Arguments &arguments) {
    peer.connect();
    peer.run("true", {});
    const long idle = peakKilobytes();
    peer.load(arguments.at(1));
    const double begin = seconds();
    peer.runLoaded(counting(arguments.at(0)));
    Json result = {{"bytes", std::stoull(arguments.at(0))}, {"seconds", seconds() - begin}};
    result["extra_kb"] = peakKilobytes() - idle;
    peer.disconnect();
    return result;
}

Json fedInput(Peer &peer, const Arguments &arguments) {
    const int file = ::open(arguments.at(1).c_str(), O_RDONLY | O_CLOEXEC);
    require(file >= 0, "there is no input");
    Json result = transfer(peer, std::stoull(arguments.at(0)),
                           [&] { peer.feed(counting(arguments.at(0)), file); });
    ::close(file);
    return result;
}

Json firstByte(Peer &peer, const Arguments &arguments) {
    std::vector<std::pair<double, double>> times; // of the call, and of the first byte
    peer.connect();
    peer.run("true", {});
    for (int left = std::stoi(arguments.at(0)); left > 0; --left) {
        settle();
        const double begin = seconds();
        double first = 0;
        peer.stream("echo pear", [&](std::string_view) { first = seconds(); });
        require(first > begin, "output is missing");
        times.emplace_back(begin, first);
    }
    peer.disconnect();
    return {{"spans", times}};
}

Json processorTime(Peer &peer, const Arguments &arguments) {
    const int count = std::stoi(arguments.at(0));
    peer.connect();
    peer.run("true", {});
    const double before = processorSeconds();
    Json result =
        latencies(arguments.at(0), [&] { return millisecondsOf([&] { peer.run("true", {}); }); });
    result["processor_ms"] = (processorSeconds() - before) * 1e3 / count;
    peer.disconnect();
    return result;
}

// When each step began and ended; who stands in between counts the round trips.
Json spans(Peer &peer, const Arguments &arguments) {
    std::vector<std::pair<double, double>> commands;
    const double begin = seconds();
    peer.connect();
    const double connected = seconds();
    settle();
    peer.run("true", {});
    for (int left = std::stoi(arguments.at(0)); left > 0; --left) {
        settle();
        const double start = seconds();
        peer.run("true", {});
        commands.emplace_back(start, seconds());
    }
    peer.disconnect();
    return {{"connect", {begin, connected}}, {"commands", commands}};
}

Json version(Peer &peer, const Arguments & /*none*/) {
    return {{"version", peer.version()}};
}

using Measure = Json (*)(Peer &, const Arguments &);
const std::map<std::string, Measure> measures = {
    {"connect", connecting},      {"true", shortCommand}, {"cat", shortInput},
    {"sudo", throughSudo},        {"held", held},         {"streamed", streamed},
    {"heldinput", heldInput},     {"fedinput", fedInput}, {"firstbyte", firstByte},
    {"processor", processorTime}, {"spans", spans},       {"version", version},
};

} // namespace

int measure(int count, char **words, PeerMaker make) {
    try {
        const Arguments all(words + 1, words + count);
        const LogIn logIn = {static_cast<unsigned short>(std::stoi(all.at(0))), all.at(1),
                             all.at(2), std::string(std::getenv("HOME")) + "/.ssh/known_hosts"};
        const std::unique_ptr<Peer> peer = make(logIn);
        std::cout << measures.at(all.at(3))(*peer, Arguments(all.begin() + 4, all.end())) << '\n';
        return 0;
    } catch (const std::exception &failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
