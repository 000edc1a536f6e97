// What the options name as sources. Passwords are read before anything goes over the network; the
// command's input is open by then.
#pragma once

#include "Options.h"

#include <SSHSession/ByteBuffer.h>
#include <SSHSession/Secret.h>

#include <cstddef>
#include <memory>
#include <string>

// An open descriptor to be read, closed in the end unless it is standard input.
class Source {
  public:
    // "-" is standard input. Throws Failure when it cannot be opened, or is a directory.
    explicit Source(const std::string &name);
    Source(const Source &) = delete;
    Source &operator=(const Source &) = delete;
    ~Source();

    int descriptor() const { return mDescriptor; }
    // All that is left of it. Throws Failure when it cannot be read.
    SSHPlatform::ByteBufferRef content() const;

  private:
    bool isStandardInput() const { return mName == "-"; }
    std::size_t readSome(std::string &piece) const;
    [[noreturn]] void fail() const;

    const std::string mName;
    const int mDescriptor;
};

struct Inputs {
    SSHPlatform::Secret password;
    SSHPlatform::Secret adminPassword;
    std::unique_ptr<const Source> standardInput; // null: the command has none
};

// `user` is the remote user, for the prompts. Throws Failure when a source cannot be read.
Inputs readInputs(const Options &options, const std::string &user);
