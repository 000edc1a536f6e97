#include "Identity/HostKeyCheck.h"
#include "Session/DisconnectError.h"
#include "Tests/Support/SessionTest.h"

using ErrorTest = SessionTest;

TEST_F(ErrorTest, SentencesForLibraryCodes) {
    const std::map<int, std::string> cases = {
        {-1, "The socket is invalid."},
        {-3, "Unable to send banner to remote host."},
        {-5, "Encryption key exchange with the remote host failed."},
        {-7, "Unable to send data on socket."},
        {-9, "The socket timed out."},
        {-13, "The socket was disconnected."},
        {-14, "An invalid SSH protocol response was received on the socket."},
        {-37, "Marked for non-blocking I/O but the call would block."},
    };
    for (int code = -60; code <= 2; ++code) {
        const auto known = cases.find(code);
        EXPECT_EQ(SSHSession_libssh2::_stringForErrorCode(code),
                  known != cases.end() ? known->second : "Error " + std::to_string(code) + ".");
    }
}

TEST_F(ErrorTest, Builders) {
    const auto session = makeSession(22);
    EXPECT_EQ(summary(session->_errorWithDescription("what", "why", -9)),
              "libssh2ErrorDomain -9 | what | why | -");
    EXPECT_EQ(session->_errorWithDescription("what", std::nullopt, 1)->userInfo().size(), 1U);
    EXPECT_TRUE(session->_errorWithDescription(std::nullopt, "why", 1)->userInfo().empty());
    EXPECT_EQ(summary(session->_errorFromFunction("libssh2_channel_exec", -13)),
              "libssh2ErrorDomain -13 | An error occurred in libssh2_channel_exec. (-13) | "
              "The socket was disconnected. | The socket was disconnected.");
    // On a live session the library's own words follow.
    const auto live = connected();
    libssh2_session_set_last_error(live->_session().get(), -13, "Unable to send channel request");
    EXPECT_EQ(live->_errorFromFunction("libssh2_channel_exec", -13)->localizedFailureReason(),
              "The socket was disconnected. Unable to send channel request");
}

TEST(DisconnectError, CarriesWhatTheServerSent) {
    EXPECT_EQ(disconnectError(11, "bye", "en"), nullptr);
    EXPECT_EQ(summary(disconnectError(2, "bye", "")), "libssh2 2 | bye | - | -");
    EXPECT_EQ(disconnectError(2, "bye", "")->userInfo().size(), 1U);
    EXPECT_TRUE(disconnectError(7, "", "")->userInfo().empty());
    EXPECT_EQ(disconnectError(2, "", "de")->userInfo().at("language"), "de");
    EXPECT_EQ(disconnectError(2, "a\xff", "")->localizedDescription(), "a\uFFFD");
}

TEST(HostKeyCheck, KeyBitsStopAtECDSA256) {
    const std::vector<std::pair<int, int>> cases = {{0, 0},        {1, 0x80000}, {2, 0xC0000},
                                                    {3, 0x100000}, {4, 0},       {5, 0},
                                                    {6, 0},        {-1, 0},      {INT32_MIN, 0}};
    for (const auto &[type, bits] : cases)
        EXPECT_EQ(knownHostKeyBits(type), bits) << type;
}
