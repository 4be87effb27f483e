// The script that signals the service to restart the device.
#include "qo_pushpull_restart_script.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <utility>

namespace {

// Where others may write, the sticky bit alone keeps them from renaming what is not theirs.
bool only_its_owner_can_replace_files(const struct stat& folder) {
    const bool ours = folder.st_uid == 0 || folder.st_uid == geteuid();
    return ours && ((folder.st_mode & (S_IWGRP | S_IWOTH)) == 0 || (folder.st_mode & S_ISVTX) != 0);
}

bool is_same_file(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool is_private_file(const struct stat& file) {
    return S_ISREG(file.st_mode) && file.st_uid == geteuid() && file.st_nlink == 1 &&
           (file.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

QoRestartScript::QoRestartScript(std::string path)
    : path_(std::move(path)),
      name_(path_.substr(path_.rfind('/') + 1)),
      folder_(open(path_.substr(0, path_.rfind('/') + 1).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    if (!folder_) doubt("has no folder", errno);
}

bool QoRestartScript::write(std::string_view text) {
    if (!folder_) return false;
    if (unlinkat(folder_.get(), name_.c_str(), 0) != 0 && errno != ENOENT) return doubt("cannot be replaced", errno);
    const QoDescriptor file(
        openat(folder_.get(), name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRWXU));
    if (!file) return doubt("cannot be made", errno);
    if (fchmod(file.get(), S_IRWXU) != 0 || !write_whole(file.get(), text)) return doubt("cannot be written", errno);
    // A file that is open for writing cannot be run.
    script_ = QoDescriptor(openat(folder_.get(), name_.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat made {};
    struct stat found {};
    if (!script_ || fstat(file.get(), &made) != 0 || fstat(script_.get(), &found) != 0)
        return doubt("cannot be looked at", errno);
    size_ = text.size();
    return is_same_file(made, found) || doubt("was replaced", 0);
}

bool QoRestartScript::write_whole(int file, std::string_view text) const {
    while (!text.empty()) {
        const ssize_t written = ::write(file, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

bool QoRestartScript::is_ours() const {
    struct stat folder {};
    struct stat made {};
    struct stat found {};
    if (fstat(folder_.get(), &folder) != 0 || fstat(script_.get(), &made) != 0 || lstat(path_.c_str(), &found) != 0)
        return doubt("cannot be looked at", errno);
    if (!only_its_owner_can_replace_files(folder)) return doubt("lies where others can replace it", 0);
    if (!is_same_file(made, found) || !is_private_file(found)) return doubt("was replaced", 0);
    return found.st_size == static_cast<off_t>(size_) || doubt("was changed", 0);
}

// Always false, for its caller to return.
bool QoRestartScript::doubt(const char* what, int error) const {
    syslog(LOG_CRIT, "QoPushPullQueueMonitor: Restart script %s %s (error %d)", path_.c_str(), what, error);
    return false;
}
