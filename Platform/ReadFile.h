// Reads a file that may be anything.
#pragma once

#include <cstddef>
#include <string>

namespace SSHPlatform {

// Answers 0, or errno's number of what failed: EINVAL for what is not a regular file, such as a
// pipe, which is not waited for; EFBIG for a file with more bytes than `limit`. After a failure
// `content` is empty. Any thread.
int readFile(const std::string &path, std::size_t limit, std::string &content);

} // namespace SSHPlatform
