// SPDX-License-Identifier: BSD-3-Clause

// Examines, step by step, why a session with these parameters does not work, or shows that it does:
//
//   SSHDoctor doctor("db.example.com", 22, "ada", password, {}, SSHSessionOptions::recommended());
//   doctor.examine([](const SSHDoctorLine &line) { show(line.step, line.text, line.advice); });
//
// It looks at key files, agent and known hosts on this computer, then at the name, each address,
// what the server says in the clear, its host key, whether it bears a keepalive before the log-in,
// how it lets users in, which keys it would take, then logs in, runs `true` and, with an
// administrator's password, sudo. It goes on after a failure where that tells more, and stops where
// it cannot.
//
// It does only what can be undone by doing nothing: it asks the user nothing, whatever presenter is
// installed, writes no file, and sends each secret once at most, to a server whose host key is on
// record for the very connection. Where the key is unknown, changed or revoked, nobody logs in. The
// pass phrase of a key file is never needed: what such a key would do is told as far as it can be.
#pragma once

#include <SSHSession/SSHSessionExport.h>
#include <SSHSession/SSHSessionOptions.h>
#include <SSHSession/Secret.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

// Printable, and without any secret: made to be shown to others.
struct SSHDoctorLine {
    // How a step went.
    enum class Verdict {
        Ok,
        Note, // worth knowing; a session may work all the same
        Fail, // a session with these parameters cannot work as it is
    };
    Verdict verdict = Verdict::Ok;
    std::string step;   // such as "key files"
    std::string text;   // a sentence or two
    std::string advice; // of a failure: one next step to try
};

class SSHSESSION_EXPORT SSHDoctor {
  public:
    // The parameters of SSHSession::sessionWithHost, and the password for sudo, if that is to be
    // examined. A null user counts as an empty one.
    SSHDoctor(std::optional<std::string> host, std::uint16_t port, std::optional<std::string> user,
              SSHPlatform::Secret password, std::optional<std::string> keyFilePath,
              const SSHSessionOptions &options = {},
              SSHPlatform::Secret adminPassword = SSHPlatform::Secret::none()) noexcept;
    ~SSHDoctor();
    SSHDoctor(const SSHDoctor &) = delete;
    SSHDoctor &operator=(const SSHDoctor &) = delete;

    // Blocks, for 30 s at most. `tell` is called on this thread with each line as it is found, in
    // the order of the steps. One examination at a time; any thread, the main thread included,
    // whose loop need not run.
    void examine(const std::function<void(const SSHDoctorLine &)> &tell) noexcept;

    // Ends the examination that is under way, within moments; a line says what was not examined.
    // One that begins later is not affected. Any thread, also from inside `tell`.
    void cancel() noexcept;

  private:
    struct Parts;
    const std::unique_ptr<Parts> mParts;
};
