// Hands a command's outputs through as they come.
#pragma once

#include "TerminalText.h"

#include <SSHSession/ByteBuffer.h>
#include <SSHSession/SSHCommandFlow.h>

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

class Handover {
  public:
    // Byte for byte; but unless `isRaw`, no control character reaches a terminal.
    explicit Handover(bool isRaw);

    // For SSHCommand::setOutputSink. Nothing once a stream takes no more.
    std::optional<std::size_t> take(SSHCommandStream stream, std::string_view piece);

    // To be called in the end. Throws Failure when a stream did not take everything.
    void finish();

    // Whether whoever reads the outputs has gone away.
    bool hasLostReader() const;

  private:
    struct Target {
        Target(int number, bool isRaw);

        Target(const Target &) = delete;
        Target &operator=(const Target &) = delete;
        ~Target();
        bool flush();

        const bool isTerminal;
        const int ownDescriptor; // of the terminal, which never blocks; -1 for none
        const int descriptor;
        const bool isFiltered;
        TerminalText text;
        // What is to be written, and for how much of a piece it stands.
        SSHPlatform::ByteBuffer pending;
        std::size_t pieceSize = 0;
        int failure = 0; // errno
    };

    std::array<Target, 2> mTargets;
};
