// What a call to the session came to, ready to be shown.
#pragma once

#include <SSHSession/SSHCommand.h>
#include <SSHSession/SSHError.h>
#include <SSHSession/SSHFacts.h>

#include <QString>

#include <optional>

struct Problem {
    QString description;
    QString suggestion; // what is wrong and what to do, as far as it can be told
    QString reason;     // many lines for a failed authentication
    QString origin;     // domain and code
};

struct CommandOutcome {
    QString summary;
    std::optional<Problem> problem;
};

// Of a failed call, as it is known after it.
Problem problemOf(const SSHFacts &facts);

// Of an execution that has succeeded, though the command may have failed in a way that is known;
// and of one that failed.
CommandOutcome outcomeOf(const SSHCommand &command, const SSHFacts &facts, double seconds);
CommandOutcome failureOf(const SSHFacts &facts, double seconds);

// `error` is null when the server ended the connection in good order.
Problem serverLeft(const SSHErrorRef &error);

// How long something took, as in "0.31 s"; and has been taking so far, as in "2 min 5 s".
QString durationText(double seconds);
QString elapsedText(double seconds);

QString sizeText(std::size_t bytes);
