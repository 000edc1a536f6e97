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

    // To be called in the end. Throws Failure when a stream did not take everything, except for
    // want of a reader.
    void finish();

    // Whether whoever reads the outputs has gone away.
    bool hasLostReader() const;

  private:
    struct Target {
        Target(int number, bool isRaw);

        bool flush();

        const int descriptor;
        const bool isTerminal;
        const bool isFiltered;
        TerminalText text;
        // What is to be written, and for how much of a piece it stands.
        SSHPlatform::ByteBuffer pending;
        std::size_t pieceSize = 0;
        int failure = 0; // errno
    };

    std::array<Target, 2> mTargets;
};
