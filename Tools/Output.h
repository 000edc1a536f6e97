// Writing that notices when nothing arrives.
#pragma once

#include <string_view>

// Opens what the program's caller has closed, so that no connection ever takes the place of a
// standard stream. Using such a stream still fails.
void reserveStandardStreams();

// Throws Failure unless all of it is written.
void writeOutput(std::string_view bytes);
void writeErrorOutput(std::string_view bytes);

// Ends standard output. Some file systems only now say that they have no room; throws Failure then.
void finishOutput();

// One message to the user on standard error, as well as it can be done: as it is, or behind the
// program's name. Control characters are masked, because texts may come from a server.
void tellLine(std::string_view text) noexcept;
void tell(std::string_view text) noexcept;
