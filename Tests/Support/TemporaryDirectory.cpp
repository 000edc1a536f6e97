#include "Tests/Support/TemporaryDirectory.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

TemporaryDirectory::TemporaryDirectory() {
    std::string pattern = (fs::temp_directory_path() / "sshsession-XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
        throw std::runtime_error("mkdtemp " + pattern);
    mPath = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(mPath, ignored);
}

std::string TemporaryDirectory::path(std::string_view name) const {
    return (name.empty() ? mPath : mPath / name).string();
}

std::string TemporaryDirectory::write(std::string_view name, std::string_view content,
                                      fs::perms permissions) const {
    const fs::path file = path(name);
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
    fs::permissions(file, permissions);
    return file.string();
}

std::string contentOf(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
