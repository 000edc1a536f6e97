// The yardstick: the same connection and command on bare libssh2, blocking, with nothing around it.
#pragma once

#include <libssh2.h>

#include <string>

class BareConnection {
  public:
    // Authenticates the current user with the private key at `keyPath`. Throws when that fails.
    BareConnection(unsigned short port, const std::string &user, const std::string &keyPath);
    BareConnection(const BareConnection &) = delete;
    BareConnection &operator=(const BareConnection &) = delete;
    ~BareConnection();

    // Runs a command to its end and answers its exit status.
    int run(const std::string &command);

  private:
    int mSocket = -1;
    LIBSSH2_SESSION *mSession = nullptr;
};
