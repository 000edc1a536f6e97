#include "Tests/Support/ScriptedServer.h"

#include <fmt/format.h>

namespace {

struct Case {
    std::string script;
    std::optional<std::string> secret;
    Lines received;
    int code = 0; // 0: accepted
};

class PasswordTest : public ScriptedServerTest {
  protected:
    // `reason` takes the code.
    void check(bool (SSHSession_libssh2::*stage)(SSHEngine::Connection &, SSHErrorRef *),
               const std::string &reason, const Case &each) {
        SCOPED_TRACE(each.script + ", password " + each.secret.value_or("(null)"));
        const auto session = sessionAs(each.script, each.secret);
        const auto connection = session->handshaken();
        error = std::make_shared<SSHError>("left over", 1, SSHError::UserInfo());
        const bool accepted = (session.get()->*stage)(*connection, &error);
        EXPECT_EQ(accepted, libssh2_userauth_authenticated(connection->session()) != 0);
        if (accepted)
            error = nullptr;
        const std::string description =
            fmt::format("Dravella could not make an SSH connection to {}@127.0.0.1.", each.script);
        EXPECT_EQ(summary(error),
                  each.code == 0
                      ? "no error"
                      : fmt::format("libssh2ErrorDomain {} | {} | {} | -", each.code, description,
                                    fmt::format(fmt::runtime(reason), each.code)));
        Lines expected = each.received;
        expected.insert(expected.begin(), "keepalive"); // once, right after the handshake
        EXPECT_EQ(scripted.received(expected.size()), expected);
        session->stop();
    }
};

const std::string nonASCII = "p\u00e4\u20ac \"$'";
const std::string withZero("cut\0off", 7);

} // namespace

TEST_F(PasswordTest, PasswordMethod) {
    for (const Case &each :
         std::vector<Case>{{"password", "sesame", {"password b'sesame'"}},
                           {"password", "wrong", {"password b'wrong'"}, -18},
                           {"password", std::nullopt, {}}, // nothing to try, and no error either
                           {"password", "", {"password b''"}, -18},
                           {"password", nonASCII, {R"(password b'p\xc3\xa4\xe2\x82\xac "$\'')"}},
                           {"password", withZero, {"password b'cut'"}},
                           {"hostbased", "sesame", {}, -18},
                           {"password expired", "sesame", {"password b'sesame'"}, -15}})
        check(&SSHSession_libssh2::_authenticateWithPassword,
              "SSH could not authenticate using the ssh user password. ({})", each);
}

TEST_F(PasswordTest, KeyboardInteractiveMethod) {
    const Lines sesame = {"answers [b'sesame']"};
    for (Case each :
         std::vector<Case>{{"1", "sesame", sesame},
                           {"1", "wrong", {"answers [b'wrong']"}, -18},
                           {"1", std::nullopt, {"answers [b'']"}, -18},
                           {"1", "", {"answers [b'']"}, -18},
                           {"1", nonASCII, {R"(answers [b'p\xc3\xa4\xe2\x82\xac "$\''])"}},
                           {"1", withZero, {R"(answers [b'cut\x00off'])"}},
                           {"", "sesame", {}}, // accepted without a question
                           {"0", "sesame", {"answers []"}},
                           {"0 1 1", "sesame", {"answers []", sesame[0], sesame[0]}},
                           {"2", "sesame", {"answers [b'', b'']"}, -18},
                           {"1 2", "sesame", {sesame[0], "answers [b'', b'']"}, -18},
                           // The library's word for every answer that does not come.
                           {"disconnect 2", "sesame", {}, -18}}) {
        each.script = "keyboard-interactive " + each.script;
        check(&SSHSession_libssh2::_authenticateWithKeyboard,
              "SSH could not authenticate using keyboard-interactive. Authentication failed.\n",
              each);
    }
    EXPECT_TRUE(user->shown.empty()); // nobody is ever asked
    EXPECT_EQ(notices, Lines{"2 | - | -"});
}
