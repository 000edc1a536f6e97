// A directory that is gone, with all that is in it, when the object is.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        std::string pattern = std::filesystem::temp_directory_path() / "sshsession-XXXXXX";
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error("mkdtemp " + pattern);
        mPath = pattern;
    }
    TemporaryDirectory(const TemporaryDirectory &) = delete;
    TemporaryDirectory &operator=(const TemporaryDirectory &) = delete;
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }

    std::string path(const std::string &name = "") const {
        return name.empty() ? mPath : mPath / name;
    }

    // Writes a file, making its directory, and answers its path.
    std::string write(const std::string &name, const std::string &content,
                      std::filesystem::perms permissions = std::filesystem::perms(0600)) const {
        const std::filesystem::path file = path(name);
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << content;
        std::filesystem::permissions(file, permissions);
        return file;
    }

  private:
    std::filesystem::path mPath;
};

inline std::string contentOf(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
