#include "Platform/AtomicFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

namespace SSHPlatform {

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds patience(5);
constexpr mode_t modeBits = 0777;

[[noreturn]] void fail(int number) {
    throw std::system_error(number, std::generic_category());
}

// What the call answers, once no signal interrupts it.
template <typename Call>
auto checked(Call call) {
    while (true) {
        const auto result = call();
        if (result >= 0)
            return result;
        if (errno != EINTR)
            fail(errno);
    }
}

class Descriptor {
  public:
    Descriptor(const fs::path &path, int flags)
        : mNumber(checked([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | flags); })) {}
    // A new file, which only its owner can read; its name takes the place of the pattern.
    explicit Descriptor(std::string &pattern) : mNumber(::mkostemp(pattern.data(), O_CLOEXEC)) {
        if (mNumber < 0)
            fail(errno);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() {
        if (mNumber >= 0)
            ::close(mNumber);
    }

    void close() {
        // Interrupted or not, it is closed.
        if (::close(std::exchange(mNumber, -1)) != 0 && errno != EINTR)
            fail(errno);
    }
    int number() const noexcept { return mNumber; }

    struct stat status() const {
        struct stat result {};
        checked([&] { return ::fstat(mNumber, &result); });
        return result;
    }

  private:
    int mNumber;
};

// The file that a path stands for, whether or not it is there.
fs::path followingLinks(fs::path path) {
    constexpr int mostLinks = 40; // as the system itself
    for (int links = 0; fs::is_symlink(fs::symlink_status(path)); ++links) {
        if (links == mostLinks)
            fail(ELOOP);
        path = path.parent_path() / fs::read_symlink(path);
    }
    return path;
}

// The lock is on the directory, since the file is another one after each change, and a file made
// for locking would stay behind. Two descriptors exclude each other within a process as well.
class DirectoryLock {
  public:
    DirectoryLock(const fs::path &directory, Clock::time_point deadline)
        : mDirectory(directory, O_DIRECTORY) {
        while (::flock(mDirectory.number(), LOCK_EX | LOCK_NB) != 0)
            if (errno != EINTR && (errno != EWOULDBLOCK || Clock::now() >= deadline))
                fail(errno);
            else
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    DirectoryLock(const DirectoryLock &) = delete;
    DirectoryLock &operator=(const DirectoryLock &) = delete;
    // A process forked meanwhile would hold the lock on.
    ~DirectoryLock() { ::flock(mDirectory.number(), LOCK_UN); }

    // So that a renamed file is found under its name after a power failure. Where this fails, the
    // file has been changed all the same.
    void sync() const { ::fsync(mDirectory.number()); }

  private:
    const Descriptor mDirectory;
};

struct File {
    bool exists = false;
    mode_t mode = S_IRUSR | S_IWUSR;
    uid_t owner = 0;
    gid_t group = 0;
    std::string content;

    bool operator==(const File &) const = default;
};

std::string readAll(const Descriptor &file) {
    std::string content;
    std::array<char, 65536> buffer{};
    while (true) {
        const ssize_t count =
            checked([&] { return ::read(file.number(), buffer.data(), buffer.size()); });
        if (count == 0)
            return content;
        content.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

File read(const fs::path &path) {
    const fs::file_status kind = fs::status(path);
    if (!fs::exists(kind))
        return {};
    if (!fs::is_regular_file(kind))
        fail(EINVAL);
    const Descriptor file(path, 0);
    // Its directory alone decides whether it can be replaced.
    checked([&] { return ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS); });
    const struct stat status = file.status();
    return {true, status.st_mode & modeBits, status.st_uid, status.st_gid, readAll(file)};
}

// A file beside another one, whose place it may take; else it goes with its object.
class Replacement {
  public:
    explicit Replacement(fs::path target) : mTarget(std::move(target)) {}
    Replacement(const Replacement &) = delete;
    Replacement &operator=(const Replacement &) = delete;
    ~Replacement() {
        if (!mPath.empty())
            ::unlink(mPath.c_str());
    }

    // The owner comes before the mode, which may let others read.
    void become(const File &other) {
        const struct stat status = mFile.status();
        if (other.exists && (status.st_uid != other.owner || status.st_gid != other.group))
            checked([&] { return ::fchown(mFile.number(), other.owner, other.group); });
        if ((mFile.status().st_mode & modeBits) != other.mode)
            checked([&] { return ::fchmod(mFile.number(), other.mode); });
    }

    void write(std::string_view content) {
        while (!content.empty())
            content.remove_prefix(static_cast<std::size_t>(
                checked([&] { return ::write(mFile.number(), content.data(), content.size()); })));
        checked([&] { return ::fsync(mFile.number()); });
        mFile.close();
    }

    void takePlace() {
        fs::rename(mPath, mTarget);
        mPath.clear();
    }

  private:
    const fs::path mTarget;
    std::string mPath = mTarget.string() + ".XXXXXX";
    Descriptor mFile{mPath};
};

void replace(const fs::path &file, const FileChange &change) {
    const Clock::time_point deadline = Clock::now() + patience;
    const DirectoryLock directory(file.parent_path(), deadline);
    while (true) {
        const File before = read(file);
        const std::optional<std::string> content = change(before.content);
        if (!content)
            return;
        Replacement replacement(file);
        replacement.become(before);
        replacement.write(*content);
        if (read(file) == before) {
            replacement.takePlace();
            return directory.sync();
        }
        if (Clock::now() >= deadline)
            fail(EBUSY);
    }
}

} // namespace

int changeFile(const std::string &path, const FileChange &change) {
    try {
        const fs::path file = followingLinks(fs::absolute(path));
        if (!fs::is_character_file(file))
            replace(file, change);
        return 0;
    } catch (const std::system_error &failure) {
        return failure.code().value();
    }
}

} // namespace SSHPlatform
