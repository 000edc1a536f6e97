#include "Tests/Support/ScriptedServer.h"

using PasswordTest = ScriptedServerTest;

TEST_F(PasswordTest, OneAttemptAndNobodyIsAsked) {
    struct Case {
        std::string script;
        std::optional<std::string> secret;
        Lines received;
        int code = 0; // 0: accepted, or nothing to try
    };
    const std::string odd("p\u00e4\u20ac \"$'\0off", 14);
    const std::string sesame = "answers [b'sesame']";
    const std::string keyboard = "keyboard-interactive ";
    for (Case each : std::vector<Case>{
             {"password", std::nullopt, {}},
             {"password", "", {"password b''"}, -18},
             {"password", odd, {R"(password b'p\xc3\xa4\xe2\x82\xac "$\'')"}},
             {"password expired", "sesame", {"password b'sesame'"}, -15},
             {keyboard + "1", std::nullopt, {"answers [b'']"}, -18},
             {keyboard + "1", odd, {R"(answers [b'p\xc3\xa4\xe2\x82\xac "$\'\x00off'])"}},
             {keyboard, "sesame", {}}, // accepted without a question
             {keyboard + "0 1 1", "sesame", {"answers []", sesame, sesame}},
             {keyboard + "1 2", "sesame", {sesame, "answers [b'', b'']"}, -18},
             // The library's word for every answer that does not come.
             {keyboard + "disconnect 2", "sesame", {}, -18}}) {
        SCOPED_TRACE(each.script + ", password " + each.secret.value_or("(null)"));
        const auto session = sessionAs(each.script, each.secret);
        const auto connection = session->handshaken();
        error = std::make_shared<SSHError>("left over", 1, SSHError::UserInfo());
        const bool accepted = each.script.starts_with(keyboard)
                                  ? session->_authenticateWithKeyboard(*connection, &error)
                                  : session->_authenticateWithPassword(*connection, &error);
        EXPECT_EQ(accepted, libssh2_userauth_authenticated(connection->session()) != 0);
        EXPECT_EQ(accepted || !error ? 0 : error->code(), each.code);
        each.received.insert(each.received.begin(), "keepalive"); // once, right after the handshake
        EXPECT_EQ(scripted.received(each.received.size()), each.received);
        session->stop();
    }
    EXPECT_TRUE(user->shown.empty());
    EXPECT_EQ(notices, Lines{"2 | - | -"});
}
