// What the options name as sources, read to the end before anything goes over the network.
#pragma once

#include "Options.h"
#include "Secret.h"

#include <SSHSession/SSHCommand.h>

#include <string>

struct Inputs {
    Secret password;
    Secret adminPassword;
    SSHDataRef standardInput;
};

// `user` is the remote user, for the prompts. Throws Failure when a source cannot be read.
Inputs readInputs(const Options &options, const std::string &user);
