// Changes a file as a whole or not at all, while others may read and change it.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace SSHPlatform {

// Makes a file's new content of its present one, which is empty when there is no file. Answers
// nothing when the file is to stay as it is.
using FileChange = std::function<std::optional<std::string>(const std::string &content)>;

// Puts what `change` answers in the place of what the file holds. Whoever reads the file finds the
// old content or the new one, also when the disk is full or this process is killed, and after
// every failure the old one. (What a killed process may leave behind is a file beside it, of its
// name with seven characters more.) Symbolic links stay, and what they lead to is changed; mode and
// owner of the file stay; one that was not there gets the mode 0600.
//
// Calls for files of the same directory, in this process and in others, take turns. Changes by
// those who do not use this function are not overwritten either, unless they come in the instant
// between the last look and the change: `change` is called again with what the file holds then.
// Any thread; waits for others for five seconds at most.
//
// A character device such as /dev/null keeps nothing: it is left alone, which is a success.
//
// Answers 0, or errno's number of what failed: also for a file that cannot be read, that its mode
// protects from writing, or that is not a regular one, and for a directory that is missing or
// cannot be written to. EAGAIN and EBUSY: others were at the directory or the file for all of the
// five seconds.
int changeFile(const std::string &path, const FileChange &change);

} // namespace SSHPlatform
