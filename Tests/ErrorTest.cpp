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

TEST_F(ErrorTest, WhatFollowsANullTextIsLeftOut) {
    using Engine = SSHSession_libssh2;
    EXPECT_EQ(Engine::_errorWithDescription("what", std::nullopt, 1)->userInfo().size(), 1U);
    EXPECT_TRUE(Engine::_errorWithDescription(std::nullopt, "why", 1)->userInfo().empty());
    EXPECT_EQ(summary(Engine::_errorFromFunction(nullptr, "libssh2_x", -13)), // no live session
              "libssh2ErrorDomain -13 | An error occurred in libssh2_x. (-13) | The socket was "
              "disconnected. | The socket was disconnected.");
}
