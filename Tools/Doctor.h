// The examination in place of a run (--doctor): its lines, for people or as JSON.
#pragma once

#include "Inputs.h"
#include "Options.h"

#include <SSHSession/SSHSessionOptions.h>

#include <string>

// Answers the exit status: 0 when nothing has failed. Throws Failure when the lines cannot be
// written.
int runDoctor(const Options &options, const std::string &user, const Inputs &inputs,
              const SSHSessionOptions &sessionOptions);
