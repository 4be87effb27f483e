#include "qo_pushpull_file_replacement.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

namespace {

namespace fs = std::filesystem;

// The process id follows, so that a second process on the same directory never writes into the same file.
constexpr char kNewExtension[] = ".new.";
constexpr char kFormerExtension[] = ".former.";
constexpr mode_t kFileMode = 0666;    // before the umask
constexpr size_t kCopyChunk = 16384;  // bytes

/// Keeps errno over the calls that clean up.
class KeptErrno {
public:
    KeptErrno() : value_(errno) {}
    ~KeptErrno() { errno = value_; }
    KeptErrno(const KeptErrno&) = delete;
    KeptErrno& operator=(const KeptErrno&) = delete;

private:
    int value_;
};

class Descriptor {
public:
    explicit Descriptor(int value) : value_(value) {}
    ~Descriptor() {
        const KeptErrno kept;
        if (value_ >= 0) {
            close(value_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return value_; }

private:
    int value_;
};

bool write_all(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(written < 0 ? 0 : static_cast<size_t>(written));
    }
    return true;
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
    const Descriptor descriptor(
        ::open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // A file system that cannot flush a directory says EINVAL; it has nothing to flush then.
    return descriptor.get() >= 0 && (fsync(descriptor.get()) == 0 || errno == EINVAL);
}

bool is_stray_of(std::string_view file_name, const std::string& base_name) {
    for (const char* extension : {kNewExtension, kFormerExtension}) {
        const std::string prefix = base_name + extension;
        if (file_name.starts_with(prefix)) {
            return file_name.find_first_not_of("0123456789", prefix.size()) == std::string_view::npos;
        }
    }
    return false;
}

}  // namespace

QoFileReplacement::QoFileReplacement(std::string path)
    : path_(std::move(path)),
      new_name_(path_ + kNewExtension + std::to_string(getpid())),
      former_name_(path_ + kFormerExtension + std::to_string(getpid())),
      descriptor_(-1) {}

QoFileReplacement::~QoFileReplacement() {
    if (descriptor_ >= 0) {
        const KeptErrno kept;
        close(descriptor_);
        unlink(new_name_.c_str());
        unlink(former_name_.c_str());
    }
}

bool QoFileReplacement::open() {
    // Only a process that died and had our id can have left these.
    unlink(new_name_.c_str());
    unlink(former_name_.c_str());
    descriptor_ = ::open(new_name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
    return descriptor_ >= 0;
}

bool QoFileReplacement::write(std::string_view text) { return write_all(descriptor_, text) && fsync(descriptor_) == 0; }

bool QoFileReplacement::keep_former() {
    // Not every file system has hard links, and a file of another owner may not be linked.
    return link(path_.c_str(), former_name_.c_str()) == 0 || copy_former();
}

// Not by std::filesystem, which on a 32-bit board cannot copy a file that was changed after January 2038.
bool QoFileReplacement::copy_former() {
    const Descriptor former(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (former.get() < 0 || fstat(former.get(), &status) != 0) {
        return false;
    }
    const mode_t mode = status.st_mode & kFileMode;
    const Descriptor copy(::open(former_name_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
    return copy.get() >= 0 && copy_all(former.get(), copy.get()) && fsync(copy.get()) == 0;
}

bool QoFileReplacement::put_in_place() {
    return rename(new_name_.c_str(), path_.c_str()) == 0 && flush_directory_of(path_);
}

void QoFileReplacement::remove_strays(const std::string& path) {
    const fs::path file(path);
    std::vector<fs::path> strays;
    std::error_code error;
    for (fs::directory_iterator entry(file.parent_path(), error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        if (is_stray_of(entry->path().filename().native(), file.filename().native())) {
            strays.push_back(entry->path());
        }
    }
    for (const fs::path& stray : strays) {
        fs::remove(stray, error);
    }
}
