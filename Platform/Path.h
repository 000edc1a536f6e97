// File paths as text, after the manner of the desktop: nothing here opens a file, and only
// `fileExists` and `standardizedPath` look at the file system.
#pragma once

#include <string>

namespace SSHPlatform {

// The user's home directory: HOME, else the user database; empty when neither knows.
std::string homeDirectory();

// A leading "~" or "~/" replaced by the home directory, "~name" by that user's. Other paths, and a
// home that is not known, leave the path as it is.
std::string expandingTilde(const std::string &path);

std::string appendingPathComponent(const std::string &directory, const std::string &name);

// The part after the last slash, trailing slashes left out; "/" for the root.
std::string lastPathComponent(const std::string &path);

// "server.pem" becomes "server". A name that only begins with a dot has no extension.
std::string deletingPathExtension(const std::string &path);

// Tilde expanded, empty and "." components dropped, unless there is nothing else. In an absolute
// path ".." is resolved too, through the real parent where the directory before it exists, so that
// the result names the same file.
std::string standardizedPath(const std::string &path);

// Whether anything, a directory included, can be found at the path.
bool fileExists(const std::string &path);

} // namespace SSHPlatform
