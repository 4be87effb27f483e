// Replacing a file in one step, so that a loss of power leaves the old one or the new one.
#include "qo_pushpull_file_replacement.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <utility>
#include <vector>

#include "qo_pushpull_directory.h"
#include "qo_pushpull_life.h"

namespace {

namespace fs = std::filesystem;

// A number follows, that of the process if it is free: in another PID namespace there may be the same.
constexpr char kNewExtension[] = ".new.";
constexpr char kFormerExtension[] = ".former.";
constexpr mode_t kFileMode = 0640;
constexpr size_t kCopyChunk = 16384;  // bytes
constexpr int kClaimAttempts = 16;    // names that are tried, one number after the other

bool write_all(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno != EINTR) return false;
        text.remove_prefix(written < 0 ? 0 : static_cast<size_t>(written));
        qo_report_life();
    }
    return true;
}

bool flush_file(int descriptor) {
    const bool flushed = fsync(descriptor) == 0;
    qo_report_life();
    return flushed;
}

bool copy_all(int from, int to) {
    char chunk[kCopyChunk];
    for (;;) {
        const ssize_t length = read(from, chunk, sizeof chunk);
        if (length == 0) return true;
        if (length < 0 && errno != EINTR) return false;
        if (length > 0 && !write_all(to, {chunk, static_cast<size_t>(length)})) return false;
    }
}

bool flush_directory_of(const std::string& path) {
    const fs::path directory = fs::path(path).parent_path();
    const QoDescriptor descriptor(
        ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A file system that cannot flush a directory says EINVAL; it has nothing to flush then.
    return descriptor && (flush_file(descriptor.get()) || errno == EINVAL);
}

// ---- names that tell whether their process lives ----
// Who has a file under such a name holds a shared lock on it. Who wants to remove one needs the exclusive lock, and
// looks whether the name still is that file's when it has it.

int open_to_lock(const std::string& name) {
    return ::open(name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
}

bool is_file_under(const std::string& name, int descriptor) {
    struct stat named {};
    struct stat opened {};
    return lstat(name.c_str(), &named) == 0 && fstat(descriptor, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

/// False when the file is just being removed as a stray. A file system without locks does not stop anything.
bool protect(const std::string& name, int descriptor) {
    if (flock(descriptor, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK) return false;
    return is_file_under(name, descriptor);
}

/// Removes the name of a file, unless it is that of another by now.
void unlink_if_under(const std::string& name, const QoDescriptor& file) {
    if (!name.empty() && (!file || is_file_under(name, file.get()))) unlink(name.c_str());
}

/// Removes the file if nobody who lives holds it.
void remove_stray(const std::string& name) {
    const QoDescriptor file(open_to_lock(name));
    if (file && flock(file.get(), LOCK_EX | LOCK_NB) == 0 && is_file_under(name, file.get())) unlink(name.c_str());
}

/// Tries one name after the other until `make` has made a file there; a stray is no obstacle.
/// @param make makes the file and gives its descriptor, which may be none when it cannot be had; tells by false and
///        errno that it made none
/// @return the name; "" when there is none, errno tells why.
std::string claim(const std::string& prefix, const std::function<bool(const std::string&, QoDescriptor&)>& make,
                  QoDescriptor& file) {
    long number = getpid();
    for (int attempt = 0; attempt < kClaimAttempts; ++attempt) {
        std::string name = prefix + std::to_string(number);
        if (make(name, file)) {
            if (!file || protect(name, file.get())) return name;
            // Another name, because who takes this one for a stray may be about to remove it.
            unlink_if_under(name, file);
            ++number;
            continue;
        }
        if (errno != EEXIST) return "";
        remove_stray(name);
        struct stat status {};
        if (lstat(name.c_str(), &status) == 0) ++number;
    }
    errno = EEXIST;
    return "";
}

bool is_stray_of(std::string_view file_name, const std::string& base_name) {
    for (const char* extension : {kNewExtension, kFormerExtension}) {
        const std::string prefix = base_name + extension;
        if (file_name.starts_with(prefix))
            return file_name.find_first_not_of("0123456789", prefix.size()) == std::string_view::npos;
    }
    return false;
}

bool make_new_file(const std::string& name, mode_t mode, QoDescriptor& file) {
    file = QoDescriptor(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    // Another thread may change the umask at any moment. A file system without modes refuses, and has nothing to set.
    [[maybe_unused]] const int ignored = file ? fchmod(file.get(), mode) : 0;
    return static_cast<bool>(file);
}

}  // namespace

QoFileReplacement::QoFileReplacement(std::string path) : path_(std::move(path)) {}

QoFileReplacement::~QoFileReplacement() {
    const QoKeptErrno kept;
    unlink_if_under(new_name_, new_file_);
    unlink_if_under(former_name_, former_file_);
}

bool QoFileReplacement::open() {
    const auto make = [](const std::string& name, QoDescriptor& file) { return make_new_file(name, kFileMode, file); };
    new_name_ = claim(path_ + kNewExtension, make, new_file_);
    return !new_name_.empty();
}

bool QoFileReplacement::append(std::string_view text) { return write_all(new_file_.get(), text); }

bool QoFileReplacement::overwrite(off_t at, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = pwrite(new_file_.get(), text.data(), text.size(), at);
        if (written < 0 && errno != EINTR) return false;
        const ssize_t done = written < 0 ? 0 : written;
        text.remove_prefix(static_cast<size_t>(done));
        at += done;
    }
    return true;
}

bool QoFileReplacement::restart() {
    return lseek(new_file_.get(), 0, SEEK_SET) == 0 && ftruncate(new_file_.get(), 0) == 0;
}

bool QoFileReplacement::flush() { return flush_file(new_file_.get()); }

QoFileReplacement::Former QoFileReplacement::keep_former() {
    close_to_others(path_);
    const auto make = [this](const std::string& name, QoDescriptor& file) {
        if (link(path_.c_str(), name.c_str()) != 0) return false;
        // One that cannot be opened is kept all the same.
        file = QoDescriptor(open_to_lock(name));
        return true;
    };
    former_name_ = claim(path_ + kFormerExtension, make, former_file_);
    if (!former_name_.empty()) return Former::kept;
    // Not every file system has hard links, and a file of another owner may not be linked.
    return errno == ENOENT ? Former::none : copy_former();
}

// Not by std::filesystem, which on a 32-bit board cannot copy a file that was changed after January 2038.
QoFileReplacement::Former QoFileReplacement::copy_former() {
    const QoDescriptor former(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!former || fstat(former.get(), &status) != 0) return errno == ENOENT ? Former::none : Former::lost;
    if (!S_ISREG(status.st_mode)) return Former::none;
    const mode_t mode = status.st_mode & kFileMode;
    const auto make = [mode](const std::string& name, QoDescriptor& file) { return make_new_file(name, mode, file); };
    former_name_ = claim(path_ + kFormerExtension, make, former_file_);
    const bool copied =
        !former_name_.empty() && copy_all(former.get(), former_file_.get()) && flush_file(former_file_.get());
    return copied ? Former::kept : Former::lost;
}

bool QoFileReplacement::put_in_place() {
    if (rename(new_name_.c_str(), path_.c_str()) != 0) return false;
    new_name_.clear();
    return flush_directory_of(path_);
}

void QoFileReplacement::remove_strays(const std::string& path) {
    const fs::path file(path);
    const std::string base_name = file.filename();
    QoDirectory directory(file.parent_path());
    std::vector<std::string> strays;
    while (const char* name = directory.next())
        if (is_stray_of(name, base_name)) strays.push_back(file.parent_path() / name);
    for (const std::string& stray : strays) remove_stray(stray);
}

void QoFileReplacement::close_to_others(const std::string& path) {
    struct stat status {};
    constexpr mode_t kPermissions = 07777;
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    const mode_t mode = status.st_mode & kPermissions;
    if ((mode & kFileMode) != mode) {
        // A file system without modes has nothing to take away.
        [[maybe_unused]] const int ignored = chmod(path.c_str(), mode & kFileMode);
    }
}
