/// The names in a directory. Not by std::filesystem, whose iterator ends the process when it gets no memory, nor by
/// glob(), which frees twice then.
#ifndef QO_PUSHPULL_DIRECTORY_H
#define QO_PUSHPULL_DIRECTORY_H

#include <dirent.h>

#include <string>

/// One thread at a time.
class QoDirectory {
public:
    /// A directory that cannot be read has no names. @param path "" for the current one
    explicit QoDirectory(const std::string& path) : directory_(opendir(path.empty() ? "." : path.c_str())) {}
    ~QoDirectory() {
        if (directory_ != nullptr) closedir(directory_);
    }
    QoDirectory(const QoDirectory&) = delete;
    QoDirectory& operator=(const QoDirectory&) = delete;

    /// @return the next name, in no order, "." and ".." included; valid until the next call. Null after the last one.
    const char* next() {
        const dirent* entry = directory_ == nullptr ? nullptr : readdir(directory_);
        return entry == nullptr ? nullptr : static_cast<const char*>(entry->d_name);
    }

private:
    DIR* directory_;  // null: it cannot be read
};

#endif
