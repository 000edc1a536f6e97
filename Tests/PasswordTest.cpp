#include "Tests/Support/ScriptedServer.h"

#include <fmt/format.h>

namespace {

class PasswordTest : public ScriptedServerTest {
  protected:
    using Stage = bool (SSHSession_libssh2::*)(SSHErrorRef *);
    static constexpr Stage password = &SSHSession_libssh2::_authenticateWithPassword;
    static constexpr Stage keyboard = &SSHSession_libssh2::_authenticateWithKeyboard;

    struct Case {
        Stage stage;
        std::string script;
        std::optional<std::string> secret;
        Lines received;
        int code = 0;            // 0: accepted
        std::string reason = {}; // empty: no error
    };

    void check(const Case &each) {
        SCOPED_TRACE(each.script + ", password " + each.secret.value_or("(null)"));
        const auto session = sessionAs(each.script, each.secret);
        ASSERT_TRUE(session->_createSocket(&error) && session->_startSession(&error));
        const bool nothingToTry = each.stage == password && !each.secret;
        error = nothingToTry ? session->_connectionError("left over", 1) : nullptr;
        EXPECT_EQ((session.get()->*each.stage)(&error), each.code == 0 && !nothingToTry);
        EXPECT_EQ(summary(error),
                  each.reason.empty()
                      ? "no error"
                      : fmt::format("libssh2ErrorDomain {} | Dravella could not make an SSH "
                                    "connection to {}@127.0.0.1. | {} | -",
                                    each.code, each.script, each.reason));
        Lines expected = each.received;
        expected.insert(expected.begin(), "keepalive"); // once, right after the handshake
        Lines lines;
        EXPECT_TRUE(eventually([&] {
            for (const std::string &line : scripted.received())
                lines.push_back(line);
            return lines.size() >= expected.size();
        }));
        EXPECT_EQ(lines, expected);
        session->stop();
    }
};

const std::string nonASCII = "p\u00e4\u20ac \"$'";
const std::string withZero("cut\0off", 7);

} // namespace

TEST_F(PasswordTest, PasswordMethod) {
    const std::string failed = "SSH could not authenticate using the ssh user password. ";
    for (const Case &each : std::vector<Case>{
             {password, "password", "sesame", {"password b'sesame'"}},
             {password, "password", "wrong", {"password b'wrong'"}, -18, failed + "(-18)"},
             {password, "password", std::nullopt, {}},
             {password, "password", "", {"password b''"}, -18, failed + "(-18)"},
             {password, "password", nonASCII, {R"(password b'p\xc3\xa4\xe2\x82\xac "$\'')"}},
             {password, "password", withZero, {"password b'cut'"}},
             {password, "hostbased", "sesame", {}, -18, failed + "(-18)"},
             {password,
              "password expired",
              "sesame",
              {"password b'sesame'"},
              -15,
              failed + "(-15)"}})
        check(each);
}

TEST_F(PasswordTest, KeyboardInteractiveMethod) {
    const std::string refused =
        "SSH could not authenticate using keyboard-interactive. Authentication failed.\n";
    const auto rounds = [](const char *prompts) {
        return std::string("keyboard-interactive ") + prompts;
    };
    for (const Case &each : std::vector<Case>{
             {keyboard, rounds("1"), "sesame", {"answers [b'sesame']"}},
             {keyboard, rounds("1"), "wrong", {"answers [b'wrong']"}, -18, refused},
             {keyboard, rounds("1"), std::nullopt, {"answers [b'']"}, -18, refused},
             {keyboard, rounds("1"), "", {"answers [b'']"}, -18, refused},
             {keyboard, rounds("1"), nonASCII, {R"(answers [b'p\xc3\xa4\xe2\x82\xac "$\''])"}},
             {keyboard, rounds("1"), withZero, {R"(answers [b'cut\x00off'])"}},
             {keyboard, rounds(""), "sesame", {}}, // accepted without a question
             {keyboard, rounds("0"), "sesame", {"answers []"}},
             {keyboard,
              rounds("0 1 1"),
              "sesame",
              {"answers []", "answers [b'sesame']", "answers [b'sesame']"}},
             {keyboard, rounds("2"), "sesame", {"answers [b'', b'']"}, -18, refused},
             {keyboard,
              rounds("1 2"),
              "sesame",
              {"answers [b'sesame']", "answers [b'', b'']"},
              -18,
              refused},
             {keyboard, "hostbased", "sesame", {}, -18, refused},
             {keyboard,
              "keyboard-interactive disconnect 2",
              "sesame",
              {},
              -18, // the library's word for every answer that does not come
              refused}})
        check(each);
    EXPECT_TRUE(user->shown.empty()); // nobody is ever asked
    EXPECT_EQ(notices, Lines{"2 | - | -"});
}
