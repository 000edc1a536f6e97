#include <SSHSession/SSHDoctor.h>

#include <SSHSession/Mutex.h>

#include "Doctor/Examination.h"
#include "Doctor/Steps.h"
#include "Doctor/Visit.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <utility>
#include <vector>

using SSHEngine::Examination;
using SSHEngine::Patient;
using SSHEngine::TimeBudget;

namespace {

// An agent that answers nothing may take two more, which nothing ends.
constexpr std::chrono::seconds longestExamination(27);

struct Step {
    const char *name;
    void (*examine)(Examination &);
    unsigned needs; // of Examination::Reached, all of these
};

constexpr unsigned canLogIn = Examination::KnowsMethods | Examination::IsTrusted;

constexpr std::array steps = {
    Step{"key files", SSHEngine::examineKeyFiles, 0},
    Step{"agent", SSHEngine::examineAgent, 0},
    Step{"known hosts", SSHEngine::examineKnownHosts, 0},
    Step{"look-up", SSHEngine::examineLookUp, 0},
    Step{"connect", SSHEngine::examineConnect, Examination::HasAddress},
    Step{"first words", SSHEngine::examineFirstWords, Examination::HasAnswer},
    Step{"algorithms", SSHEngine::examineAlgorithms, Examination::SpeaksSSH},
    Step{"host key", SSHEngine::examineHostKey, Examination::HasAlgorithms},
    Step{"keepalive", SSHEngine::examineKeepAlive, Examination::ShakesHands},
    Step{"methods", SSHEngine::examineMethods, Examination::ShakesHands},
    Step{"keys", SSHEngine::examineKeys, canLogIn},
    Step{"log-in", SSHEngine::examineLogIn, canLogIn},
    Step{"shell", SSHEngine::examineShell, Examination::IsIn},
    Step{"sudo", SSHEngine::examineSudo, Examination::IsIn},
};

bool isWanted(const Step &step, const Patient &patient) {
    return step.examine != SSHEngine::examineSudo || patient.adminPassword;
}

const char *reasonToStop(const TimeBudget &budget) {
    if (budget.isCancelled())
        return "it was cancelled";
    return budget.isOver() ? "there is no time left" : "they need what is missing above";
}

void examineAll(Examination &examination) {
    std::vector<const char *> leftOut;
    for (const Step &step : steps) {
        examination.step = step.name;
        if (!isWanted(step, examination.patient))
            continue;
        if (examination.budget.isOver() || (examination.reached & step.needs) != step.needs)
            leftOut.push_back(step.name);
        else
            step.examine(examination);
        if (std::exchange(examination.isCutShort, false))
            leftOut.push_back(step.name);
    }
    examination.step = "rest";
    if (!leftOut.empty())
        examination.note(fmt::format("Not examined, because {}: {}.",
                                     reasonToStop(examination.budget), fmt::join(leftOut, ", ")));
}

} // namespace

struct SSHDoctor::Parts {
    const Patient patient;
    SSHPlatform::Mutex mutex = {};
    std::shared_ptr<TimeBudget> budget SSHSESSION_GUARDED_BY(mutex) = nullptr; // of the last one
};

SSHDoctor::SSHDoctor(std::optional<std::string> host, std::uint16_t port,
                     std::optional<std::string> user, SSHPlatform::Secret password,
                     std::optional<std::string> keyFilePath, const SSHSessionOptions &options,
                     SSHPlatform::Secret adminPassword) noexcept
    : mParts(new Parts{.patient = {.host = std::move(host),
                                   .port = port,
                                   .user = std::move(user).value_or(""),
                                   .password = std::move(password),
                                   .keyFilePath = std::move(keyFilePath),
                                   .options = options,
                                   .adminPassword = std::move(adminPassword)}}) {}

SSHDoctor::~SSHDoctor() = default;

void SSHDoctor::examine(const std::function<void(const SSHDoctorLine &)> &tell) noexcept {
    const auto budget = std::make_shared<TimeBudget>(longestExamination);
    {
        const SSHPlatform::MutexLock lock(mParts->mutex);
        mParts->budget = budget;
    }
    Examination examination(mParts->patient, *budget, tell);
    examineAll(examination);
}

void SSHDoctor::cancel() noexcept {
    const SSHPlatform::MutexLock lock(mParts->mutex);
    if (mParts->budget)
        mParts->budget->cancel();
}
