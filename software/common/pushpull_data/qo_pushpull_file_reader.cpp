// Reading a file whole, or telling why not.
#include "qo_pushpull_file_reader.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

namespace {

bool means_absent(int error) { return error == ENOENT || error == ENOTDIR || error == ENXIO; }

}  // namespace

// Opening a FIFO waits for a writer, if it is allowed to.
QoFileReader::QoFileReader(std::string path)
    : path_(std::move(path)), file_(open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {
    struct stat status {};
    if (!file_ || fstat(file_.get(), &status) != 0) {
        absent_ = means_absent(errno);
        error_ = absent_ ? 0 : errno;
        return;
    }
    absent_ = S_ISDIR(status.st_mode) || S_ISFIFO(status.st_mode);
    if (S_ISREG(status.st_mode)) left_ = status.st_size;
}

size_t QoFileReader::read(char* buffer, size_t size) {
    if (absent_ || error_ != 0) return 0;
    ssize_t length = -1;
    do {
        length = ::read(file_.get(), buffer, size);
    } while (length < 0 && errno == EINTR);
    if (length < 0) {
        error_ = errno;
        return 0;
    }
    left_ -= length;
    if (length == 0 && left_ > 0) error_ = EIO;
    return static_cast<size_t>(length);
}

void QoFileReader::skip_rest() {
    char ignored[4096];
    while (read(ignored, sizeof ignored) > 0) continue;
}
