#include "Platform/Path.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

namespace SSHPlatform {

namespace fs = std::filesystem;

namespace {

// `user` empty: the current one.
std::string homeFromUserDatabase(const std::string &user) {
    std::vector<char> storage(16384);
    passwd entry{};
    passwd *found = nullptr;
    if (user.empty())
        ::getpwuid_r(::getuid(), &entry, storage.data(), storage.size(), &found);
    else
        ::getpwnam_r(user.c_str(), &entry, storage.data(), storage.size(), &found);
    return found && found->pw_dir ? found->pw_dir : "";
}

fs::path parentOf(const fs::path &directory) {
    std::error_code failure;
    const fs::path real = fs::canonical(directory, failure);
    return (failure ? directory : real).parent_path();
}

} // namespace

std::string homeDirectory() {
    const char *home = std::getenv("HOME");
    return home && *home ? home : homeFromUserDatabase("");
}

std::string expandingTilde(const std::string &path) {
    if (!path.starts_with('~'))
        return path;
    const std::string::size_type slash = path.find('/');
    const std::string user = path.substr(1, slash == std::string::npos ? slash : slash - 1);
    const std::string home = user.empty() ? homeDirectory() : homeFromUserDatabase(user);
    if (home.empty())
        return path;
    return slash == std::string::npos ? home : home + path.substr(slash);
}

std::string appendingPathComponent(const std::string &directory, const std::string &name) {
    return (fs::path(directory) / name).string();
}

std::string lastPathComponent(const std::string &path) {
    const std::string::size_type last = path.find_last_not_of('/');
    if (last == std::string::npos)
        return path.empty() ? "" : "/";
    const std::string trimmed = path.substr(0, last + 1);
    return trimmed.substr(trimmed.rfind('/') + 1);
}

std::string deletingPathExtension(const std::string &path) {
    return fs::path(path).replace_extension().string();
}

std::string standardizedPath(const std::string &path) {
    fs::path result;
    for (const fs::path &component : fs::path(expandingTilde(path))) {
        if (component.empty() || component == ".")
            continue;
        if (component == ".." && result.is_absolute())
            result = parentOf(result);
        else
            result /= component;
    }
    return result.empty() && !path.empty() ? "." : result.string();
}

bool fileExists(const std::string &path) {
    std::error_code failure;
    return fs::exists(path, failure);
}

} // namespace SSHPlatform
