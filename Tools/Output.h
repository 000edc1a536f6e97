// Writing that notices when nothing arrives.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string_view>

// Opens what the program's caller has closed, so that no connection ever takes the place of a
// standard stream. Using such a stream still fails.
void reserveStandardStreams();

// Throws Failure unless all of it is written.
void writeOutput(std::string_view bytes);
void writeErrorOutput(std::string_view bytes);

// The same for an errno value with which writing has ended, 0 for none.
void requireOutput(int number);
void requireErrorOutput(int number);

// Whether it is a regular file, which always has room or fails.
bool isFile(int descriptor);

// Whether a line can be written to the stream without waiting, or fails at once.
bool hasRoom(int descriptor);

// Writes what a stream has room for now or within a moment, as much as takes no longer than that.
// Answers how much, or a negative errno value.
ssize_t writeSome(int descriptor, std::string_view bytes);

// Ends standard output. Some file systems only now say that they have no room; throws Failure then.
void finishOutput();

// Messages to the user on standard error, as well as it can be done: one line behind the program's
// name, or a text of any length as it is, but for line ends at its end. Control characters are
// masked, because texts may come from a server.
void tell(std::string_view line) noexcept;
void tellText(std::string_view text) noexcept;

// How wide the terminal is that the stream leads to; 80 where it does not tell.
std::size_t columns(int descriptor);

// One line at the end of standard error, which the next one and whatever is told take the place of.
// For terminals. Any thread.
void showProgress(std::string_view line) noexcept;
void hideProgress() noexcept;
