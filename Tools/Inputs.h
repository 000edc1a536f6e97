// What the options name as sources, read to the end before anything goes over the network.
#pragma once

#include "Options.h"

#include <SSHSession/SSHCommand.h>
#include <SSHSession/Secret.h>

#include <string>

struct Inputs {
    SSHPlatform::Secret password;
    SSHPlatform::Secret adminPassword;
    SSHDataRef standardInput;
};

// `user` is the remote user, for the prompts. Throws Failure when a source cannot be read.
Inputs readInputs(const Options &options, const std::string &user);
