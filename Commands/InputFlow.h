// A command's input that comes from a descriptor, or from a function of the host's, while it runs.
#pragma once

#include <SSHSession/SSHCommandFlow.h>
#include <SSHSession/SSHError.h>

#include <cstddef>
#include <string_view>
#include <vector>

class SSHCommand;

namespace SSHEngine {

class Connection;

// Whether a command's input is none that is held in memory.
bool flowsIn(const SSHCommand &command);

// Session queue only.
class InputFlow {
  public:
    // With an empty `source`, `descriptor` is read.
    InputFlow(Connection &connection, int descriptor, SSHInputSource source);
    ~InputFlow(); // wipes what was read
    InputFlow(const InputFlow &) = delete;
    InputFlow &operator=(const InputFlow &) = delete;

    // Makes `piece` what there is to be read now, empty when there is nothing yet, or when the
    // input has ended. Valid until the next call. Fails when it cannot be read, and when the host
    // ends the run; then the connection has been shut down.
    bool read(std::string_view *piece, SSHErrorRef *error);

    bool hasEnded() const { return mHasEnded; }

    // What becomes readable when `read` would find something; -1 where it always does.
    int descriptor() const { return mSource ? -1 : mDescriptor; }

  private:
    bool readSource(std::string_view *piece);
    bool readDescriptor(std::string_view *piece, SSHErrorRef *error);

    Connection &mConnection;
    const int mDescriptor;
    const SSHInputSource mSource;
    // The library puts 32,700 bytes into a packet at most.
    std::vector<char> mBytes = std::vector<char>(std::size_t{2} * 32'700);
    bool mHasEnded = false;
};

} // namespace SSHEngine
