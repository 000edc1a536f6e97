// Where secrets are left behind, looked for in all memory that the process can write to. The tests
// know their own in disguise only: a letter from n to z stands for one from a to m.
#include "Tests/Support/ScriptedServer.h"

#include <SSHSession/Secret.h>

#include <fmt/format.h>

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>

using SSHPlatform::Secret;

namespace {

constexpr int disguise = 'n' - 'a';

std::string newSecret(std::size_t length) {
    std::string disguised(length, 'n');
    std::random_device random;
    for (char &letter : disguised)
        letter = static_cast<char>(letter + static_cast<char>(random() % 13));
    return disguised;
}

Secret revealed(const std::string &disguised) {
    std::optional<std::string> text(disguised);
    for (char &letter : *text)
        letter = static_cast<char>(letter - disguise);
    return Secret::takenFrom(text);
}

std::array<char, 1 << 20> piece; // of the memory, and no place to look at

// What a sanitizer's shadow memory takes no process has, and no text is there.
constexpr std::size_t largest = std::size_t(1) << 36;

// The mappings that hold the secret, one for each time.
Lines placesOf(const std::string &disguised) {
    Lines places;
    const int memory = ::open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::size_t begin = 0;
        std::size_t end = 0;
        char mayWrite = '-';
        std::sscanf(line.c_str(), "%zx-%zx %*c%c", &begin, &end, &mayWrite);
        if (mayWrite != 'w' || end - begin > largest)
            continue;
        for (; begin < end; begin += piece.size() - disguised.size() + 1) {
            const ssize_t size = ::pread(memory, piece.data(), std::min(piece.size(), end - begin),
                                         static_cast<off_t>(begin));
            const char *const behind = piece.data() + std::max<ssize_t>(size, 0);
            for (const char *at = piece.data();
                 (at = static_cast<const char *>(std::memchr(
                      at, disguised[0] - disguise, static_cast<std::size_t>(behind - at))));
                 ++at) {
                const auto address = begin + static_cast<std::size_t>(at - piece.data());
                if (behind - at >= static_cast<ssize_t>(disguised.size()) &&
                    address - reinterpret_cast<std::size_t>(piece.data()) >= piece.size() &&
                    std::equal(disguised.begin(), disguised.end(), at,
                               [](char hidden, char plain) { return hidden - disguise == plain; }))
                    places.push_back(fmt::format("{:x} in {}", address, line));
            }
        }
    }
    ::close(memory);
    return places;
}

// Types a pass phrase into what hosts get that have no user interface files of their own.
struct Typist final : SSHPlatform::AlertPresenter {
    SSHPlatform::AlertAnswer runModal(const SSHPlatform::Alert &alert) noexcept override {
        alert.plainTextField()->setStringValue(*revealed(disguised).text());
        EXPECT_EQ(placesOf(disguised).size(), 1);
        ++questions;
        return SSHPlatform::AlertAnswer::FirstButton;
    }
    std::string disguised;
    int questions = 0;
};

const auto none = Lines();
const auto once = testing::SizeIs(1); // by its owner, and nobody else

// Short texts lie inside of their strings.
constexpr std::array<std::size_t, 2> lengths = {12, 100};

} // namespace

using SecretsTest = ScriptedServerTest;

TEST_F(SecretsTest, OfPasswordsAndInputNothingIsLeft) {
    for (const std::size_t length : lengths)
        for (const std::string method : {"password", "keyboard-interactive 1"}) {
            SCOPED_TRACE(method + ", length " + std::to_string(length));
            const std::string password = newSecret(length);
            const std::string admin = newSecret(length);
            const std::string input = newSecret(length);
            std::optional<std::string> text = revealed(password).text();
            auto session =
                method == "password"
                    ? SSHSession::sessionWithHost("127.0.0.1", scripted.port(), method, text, {})
                    : SSHSession::sessionWithHost("127.0.0.1", scripted.port(), method,
                                                  revealed(password), {});
            SSHPlatform::wipe(*text);
            ASSERT_TRUE(session->start(&error)) << summary(error);
            EXPECT_THAT(placesOf(password), once);
            auto command = makeCommand("prompt; read; success; read; status 3; eof; close");
            command->setAdminPassword(revealed(admin).view());
            command->setStdinData(revealed(input).view());
            ASSERT_TRUE(session->execute(command, &error)) << summary(error);
            EXPECT_EQ(command->exitStatus(), 3);
            session->stop();
            for (const std::string &each : {password, admin, input})
                EXPECT_THAT(placesOf(each), once);
            command.reset();
            session.reset();
            for (const std::string &each : {password, admin, input})
                EXPECT_EQ(placesOf(each), none);
        }
}

TEST_F(SecretsTest, OfAPassPhraseNothingIsLeft) {
    const auto typist = std::make_shared<Typist>();
    SSHPlatform::install(nullptr, typist);
    const std::string key = home.directory.path(".ssh/id_rsa");
    for (const std::size_t length : lengths)
        for (const std::string format : {"PEM", "RFC4716"}) {
            SCOPED_TRACE(format + ", length " + std::to_string(length));
            typist->disguised = newSecret(length);
            makeKey(key, "rsa");
            require({"sh", "-c", "ssh-keygen -q -p -m $0 -P '' -N $(echo $1 | tr n-z a-m) -f $2",
                     format, typist->disguised, key});
            auto session = sessionAs("publickey");
            EXPECT_TRUE(session->start(&error)) << summary(error);
            EXPECT_EQ(placesOf(typist->disguised), none);
            session->stop();
            session.reset();
            EXPECT_EQ(placesOf(typist->disguised), none);
            std::filesystem::remove(key);
        }
    EXPECT_EQ(typist->questions, 4);
}
