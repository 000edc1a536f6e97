// Hands what came of a session to the user, in one of two forms, and answers the exit status.
#pragma once

#include "StageClock.h"

#include <SSHSession/SSHCommand.h>
#include <SSHSession/SSHFacts.h>
#include <SSHSession/SSHFinding.h>

#include <vector>

// With an error among the facts, the command has outputs only when the connection ended before it
// did.
struct Outcome {
    const SSHCommand &command;
    SSHFacts facts;
    std::vector<SSHFinding> findings;
};

// Of a command whose outputs have been handed through.
int reportPlainly(const Outcome &outcome);
// Throws Failure when it cannot be written.
int reportAsJson(const Outcome &outcome, const StageClock::Timings &timings);
