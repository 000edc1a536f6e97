// What one running command consists of, between the library's channel and the record.
#pragma once

#include <SSHSession/ByteBuffer.h>

#include <libssh2.h>

#include <memory>

struct ChannelRun {
    LIBSSH2_CHANNEL *channel = nullptr; // freed after success, else with the whole session
    bool hasInput = false;              // whether the record has any, as found at the start
    SSHPlatform::ByteBuffer input;      // still to be sent to the command's standard input
    std::shared_ptr<SSHPlatform::ByteBuffer> output = std::make_shared<SSHPlatform::ByteBuffer>();
    std::shared_ptr<SSHPlatform::ByteBuffer> errorOutput =
        std::make_shared<SSHPlatform::ByteBuffer>();
    // Whether a pump step is to wait for the server first. Not when the end of the channel has been
    // met before the first step: then nothing would end the wait before its time.
    bool mayBeSilent = true;
    bool keepReading = true;
    bool keepWriting = true;
};
