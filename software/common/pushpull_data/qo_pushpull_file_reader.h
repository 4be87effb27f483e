/// A file that is read from its beginning to its end, and why that was not possible.
#ifndef QO_PUSHPULL_FILE_READER_H
#define QO_PUSHPULL_FILE_READER_H

#include <sys/types.h>

#include <cstddef>
#include <string>

#include "qo_pushpull_descriptor.h"

/// One thread. Whoever asks what is in a file has to look at error() when he is through: a text that ends early
/// because the disk failed says nothing about what the file holds.
class QoFileReader {
public:
    /// Opens the file, without waiting for anybody.
    explicit QoFileReader(std::string path);

    const std::string& path() const { return path_; }
    /// Whether there is nothing to read: no such file, or a directory, a FIFO or a socket.
    bool absent() const { return absent_; }
    /// Why it could not be opened or read whole, as an errno; 0 while nothing has failed. A file that ends before its
    /// size is a failure of the disk too: EIO.
    int error() const { return error_; }
    /// The next bytes, at most `size`. @return how many; 0 at the end and after a failure.
    size_t read(char* buffer, size_t size);
    /// Reads on to the end, to learn whether that is possible.
    void skip_rest();

private:
    std::string path_;
    QoDescriptor file_;
    off_t left_ = 0;  // bytes that a regular file still must have
    bool absent_ = false;
    int error_ = 0;
};

#endif
