#include "Commands/CommandNotes.h"

#include "Commands/ChannelPump.h"

#include <SSHSession/SSHCommand.h>

#include <algorithm>
#include <chrono>
#include <string_view>

namespace SSHEngine {

namespace {

constexpr std::size_t mostBytes = 1024; // of an output

using Clock = std::chrono::steady_clock;

} // namespace

CommandNotes::CommandNotes(Notes &notes, const SSHCommand &command) : mNotes(notes) {
    const bool isAdministrators = command.adminPassword() != nullptr;
    const bool isFlow = flowsIn(command);
    const SSHDataRef data = command.stdinData();
    const std::size_t inputSize = data && !isFlow ? data->size() : 0;
    mNotes.note([&](SSHFacts &facts) {
        facts.command = SSHCommandFacts();
        facts.command.hasAdminPassword = facts.command.waitsForSudo = isAdministrators;
        facts.command.hasInput = isFlow || inputSize > 0;
        facts.command.inputSize = inputSize;
        facts.command.isRunning = true;
        facts.command.lastActivity = Clock::now();
    });
}

CommandNotes::~CommandNotes() {
    mNotes.note([](SSHFacts &facts) { facts.command.isRunning = false; });
}

void CommandNotes::hasStarted() {
    mNotes.note([](SSHFacts &facts) {
        facts.command.hasStarted = true;
        facts.command.lastActivity = Clock::now();
    });
}

// What it says of itself is no output of the command's.
void CommandNotes::sudoHasAccepted(const ChannelPump &pump) {
    const std::size_t outputSize = pump.output->size();
    const std::string_view begin = pump.output->view().substr(0, mostBytes);
    mIsBeginOver = begin.size() == mostBytes;
    mNotes.note([&](SSHFacts &facts) {
        facts.command.waitsForSudo = false;
        facts.command.outputBytes = outputSize + pump.errorOutput->size();
        facts.command.outputBegin = begin;
    });
}

void CommandNotes::hasMoved(const ChannelPump &pump, std::size_t inputBytes) {
    const bool hasArrived = pump.arrived() != mArrived;
    if (!hasArrived && inputBytes == mInputBytes)
        return;
    mArrived = pump.arrived();
    mInputBytes = inputBytes;
    const std::string_view begin =
        mIsBeginOver ? std::string_view() : pump.output->view().substr(0, mostBytes);
    const std::string_view errors = pump.errorOutput->view();
    mNotes.note([&](SSHFacts &facts) {
        SSHCommandFacts &command = facts.command;
        command.lastActivity = Clock::now();
        command.inputBytes = inputBytes;
        if (!mIsBeginOver)
            command.outputBegin = begin;
        if (hasArrived && !errors.empty())
            command.errorEnd = errors.substr(errors.size() - std::min(errors.size(), mostBytes));
    });
    mIsBeginOver = begin.size() == mostBytes || mIsBeginOver;
}

void CommandNotes::hasEnded(int status, const std::string &signal) {
    mNotes.note([&](SSHFacts &facts) {
        facts.command.hasEnded = true;
        facts.command.exitStatus = status;
        facts.command.exitSignal = signal;
    });
}

} // namespace SSHEngine
