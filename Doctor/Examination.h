// One examination: what is examined, what its steps have found so far, and whom they tell.
#pragma once

#include "Doctor/TimeBudget.h"
#include "Session/Addresses.h"

#include <SSHSession/SSHDoctor.h>
#include <SSHSession/SSHFacts.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace SSHEngine {

class Visit;

// For the look-up, and for connecting and the first words, unless the session has less patience.
constexpr std::chrono::seconds longestWait(6);

struct Patient {
    std::optional<std::string> host;
    std::uint16_t port = 0;
    std::string user;
    SSHPlatform::Secret password = SSHPlatform::Secret::none();
    std::optional<std::string> keyFilePath = std::nullopt;
    SSHSessionOptions options = {};
    SSHPlatform::Secret adminPassword = SSHPlatform::Secret::none();
};

// A socket that is closed in the end.
class OwnSocket {
  public:
    explicit OwnSocket(int descriptor = -1) : mDescriptor(descriptor) {}
    ~OwnSocket();
    OwnSocket(OwnSocket &&other) noexcept : mDescriptor(other.release()) {}
    OwnSocket &operator=(OwnSocket &&other) noexcept;
    OwnSocket(const OwnSocket &) = delete;
    OwnSocket &operator=(const OwnSocket &) = delete;

    int get() const { return mDescriptor; }
    int release();

  private:
    int mDescriptor;
};

class Examination {
  public:
    using Tell = std::function<void(const SSHDoctorLine &)>;
    Examination(const Patient &examined, const TimeBudget &time, const Tell &tell);

    // What a step needs of those before it.
    enum Reached : unsigned {
        HasAddress = 1,
        HasAnswer = 2,     // `socket`
        SpeaksSSH = 4,     // of version 2
        HasAlgorithms = 8, // in common
        ShakesHands = 16,
        IsTrusted = 32,
        KnowsMethods = 64,
        IsIn = 128,
    };
    unsigned reached = 0;

    // Lines of the step that is under way. Texts are made printable here.
    void ok(const std::string &text);
    void note(const std::string &text);
    void fail(const std::string &text, const std::string &advice);
    // A failure in the words of the first finding from these facts.
    void failBy(const SSHFacts &found);
    // For what a normal run would have asked the user.
    void noteUnasked(const SSHFacts &found);
    // A failure, from what is known so far and this end of this stage.
    void failBy(SSHErrorCause cause, SSHSessionStage stage);

    const Patient &patient;
    const TimeBudget &budget;
    const char *step = "";

    // What is known so far, with this examination's time limits for connecting and for the first
    // words; what a later connection sees stands in its own.
    SSHFacts facts;
    std::vector<Address> addresses; // in the order in which the session tries them
    std::optional<Address> address; // that answers
    OwnSocket socket;               // connected to it; of the first words
    bool isCutShort = false;        // the step that is under way, by `cancel`
    bool isHelloOver = false;       // of which no more is awaited, with or without algorithms
    std::shared_ptr<Visit> visit;   // of the step before, where it leaves one

  private:
    void line(SSHDoctorLine::Verdict verdict, const std::string &text, const std::string &advice);

    const Tell &mTell;
    std::map<std::string, std::string> mReasons; // of failures, and the step that told each
};

// The facts of a session that ended in this way.
SSHFacts ended(SSHFacts facts, SSHErrorCause cause, SSHSessionStage stage);

// Of the server's or a file's, made to stand within a sentence: one line, cut where it is long.
std::string inQuotes(std::string_view text);

// "12 ms", "1.5 s"
std::string spelled(std::chrono::milliseconds time);

} // namespace SSHEngine
