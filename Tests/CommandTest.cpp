#include "Tests/Support/Relay.h"
#include "Tests/Support/SessionTest.h"
#include "Tests/Support/Wrapped.h"

#include <algorithm>
#include <random>
#include <tuple>

using namespace std::string_literals;
using CommandTest = SessionTest;

TEST_F(CommandTest, CollectsOutputStatusAndSignal) {
    const auto session = connected();
    for (const auto &[text, result] : std::vector<std::pair<const char *, std::string>>{
             {"", "0 (null) |  | "},
             {"printf out; printf err >&2; exit 3", "3 (null) | out | err"},
             {"echo \"quo'ted\" '$HOME' é", "0 (null) | quo'ted $HOME é\n | "},
             {"printf 'a\\000b'", "0 (null) | a\0b | "s},
             {"printf before; kill -KILL $$", "0 KILL | before | "}})
        EXPECT_EQ(resultOf(*session, text), result) << text;
    EXPECT_EQ(wrapped().plainPauses, 0) << "a command paused instead of waiting for the server";

    // What a command leaves behind would show only in a session of thousands.
    const std::size_t before = heapSize(); // 0 under the sanitizers
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(resultOf(*session, "true"), "0 (null) |  | ");
    EXPECT_LE(heapSize(), before + 100 * 64);
}

// More than the link takes is left when a command ends: nobody will take it. The window alone needs
// longer than the command.
TEST_F(CommandTest, OnALinkThatTakesAPacketOnlyInPieces) {
    const Relay relay(
        server().port(),
        {.bytesPerSecond = 4'000'000, .delay = std::chrono::milliseconds(5), .bufferSize = 4096});
    const auto session = makeSession(relay.port(), std::nullopt, key());
    ASSERT_TRUE(session->start(&error)) << summary(error);
    std::string bytes(4 << 20, '\0');
    std::generate(bytes.begin(), bytes.end(), std::mt19937(7));
    for (const auto &[text, size, result] :
         std::vector<std::tuple<const char *, std::size_t, std::string>>{
             {"sleep 0.3; exit 4", bytes.size(), "4 (null) |  | "},
             {"wc -c", 200'000, "0 (null) | 200000\n | "},
             {"head -c 5; exit 4", bytes.size(), "4 (null) | " + bytes.substr(0, 5) + " | "},
             {"tee /dev/stderr", bytes.size(), "0 (null) | " + bytes + " | " + bytes}}) {
        EXPECT_TRUE(resultOf(*session, text, std::nullopt, bytes.substr(0, size)) == result)
            << text;
        session->keepAlive();
    }
}
