#ifndef QO_PUSHPULL_FILE_REPLACEMENT_H
#define QO_PUSHPULL_FILE_REPLACEMENT_H

#include <string>
#include <string_view>

/// A new version of a file, written under a name of its own in the same directory and put in place only when it
/// is whole and on the disk: at every instant, a loss of power included, the path holds the former version or the
/// new one. Steps in order: open, write, keep_former if wanted, put_in_place. After a step that failed (errno tells
/// why) the path and what else lies in the directory are as they were, and the destructor removes the rest.
/// One thread; two replacements of one path by one process may not overlap.
class QoFileReplacement {
public:
    /// Touches nothing yet.
    explicit QoFileReplacement(std::string path);
    ~QoFileReplacement();
    QoFileReplacement(const QoFileReplacement&) = delete;
    QoFileReplacement& operator=(const QoFileReplacement&) = delete;

    /// Creates the new version, with the mode that the umask leaves of 0666.
    bool open();
    /// Writes the whole text and flushes it to the disk.
    bool write(std::string_view text);
    /// Gives the former version, which must exist, a second name, so that it outlives put_in_place.
    bool keep_former();
    /// The second name; the file under it is the caller's to move, and removed with this object otherwise.
    const std::string& former_name() const { return former_name_; }
    /// Renames the new version to the path and flushes the directory. False also when only the flush failed: the
    /// path then holds the new version, but a loss of power may bring the former one back.
    bool put_in_place();

    /// Removes what a process that died in between left beside the path. Errors are ignored.
    static void remove_strays(const std::string& path);

private:
    bool copy_former();

    std::string path_;
    std::string new_name_;
    std::string former_name_;
    int descriptor_;
};

#endif
