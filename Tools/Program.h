// The whole program: from the words of its command line to its exit status.
#pragma once

#include <string>
#include <vector>

int runProgram(const std::vector<std::string> &arguments) noexcept;
