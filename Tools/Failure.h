// What ends the program without a word from the session: one line for the user.
#pragma once

#include <stdexcept>

class Failure : public std::runtime_error {
    using std::runtime_error::runtime_error;
};
