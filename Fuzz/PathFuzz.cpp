// Any text can be a path. A path in standard form names the same file, and has no "." and, where it
// is absolute, no ".." left; the last component has no slash but the root's; taking an extension
// away takes nothing but the end.
#include "Fuzz/Support/Property.h"

#include "Platform/Path.h"
#include "Tests/Support/TemporaryDirectory.h"

#include <filesystem>
#include <string>

namespace fs = std::filesystem;
using namespace SSHPlatform;

namespace {

// A home with a file, a directory in a directory, and links to both and to nothing.
const TemporaryDirectory &home() {
    static const TemporaryDirectory directory;
    static const bool isFilled = [] {
        directory.write("a/b/file", "");
        fs::create_directory_symlink("a/b", directory.path("link"));
        fs::create_symlink("../link/file", directory.path("a/f"));
        fs::create_symlink("none", directory.path("a/n"));
        fs::create_symlink("loop", directory.path("loop"));
        ::setenv("HOME", directory.path().c_str(), 1);
        return true;
    }();
    static_cast<void>(isFilled);
    return directory;
}

void standardize(const std::string &path) {
    const std::string standard = standardizedPath(path);
    for (const fs::path &component : fs::path(standard)) {
        hold((component != "." || standard == ".") && !component.empty(),
             "no component says nothing");
        hold(component != ".." || !standard.starts_with('/'), "no step back is left");
    }
    std::error_code failure;
    if (fs::exists(path, failure) && path.find('\0') == std::string::npos)
        hold(fs::equivalent(path, standard, failure), "it is the same file");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string input(textOf(data, size));
    const std::string below = home().path() + "/" + input;
    standardize(input.starts_with('~') ? "~/" + input.substr(1) : input);
    standardize(below);
    std::error_code failure;
    hold(fileExists(below) || !fs::is_regular_file(below, failure), "a file that is there exists");
    const std::string last = lastPathComponent(input);
    hold(last == "/" || last.find('/') == std::string::npos, "the last component has no slash");
    hold(input.find(last) != std::string::npos, "the last component is one of the path");
    hold(input.starts_with(deletingPathExtension(input)), "the rest of the name stays");
    hold(appendingPathComponent(home().path(), last).ends_with(last), "a name is put behind");
    hold(input.starts_with('~') || expandingTilde(input) == input, "a tilde stands in front");
    expandingTilde(input.substr(0, 64));
    return 0;
}
