// A directory that is gone, with all that is in it, when the object is.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

class TemporaryDirectory {
  public:
    TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory &) = delete;
    TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
    ~TemporaryDirectory();

    std::string path(std::string_view name = "") const;

    // Writes a file, making its directory, and answers its path.
    std::string
    write(std::string_view name, std::string_view content,
          std::filesystem::perms permissions = std::filesystem::perms::owner_read |
                                               std::filesystem::perms::owner_write) const;

  private:
    std::filesystem::path mPath;
};

std::string contentOf(const std::string &path);
