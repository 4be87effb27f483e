/// A new version of a file that takes the former one's place in one step.
#ifndef QO_PUSHPULL_FILE_REPLACEMENT_H
#define QO_PUSHPULL_FILE_REPLACEMENT_H

#include <sys/types.h>

#include <string>
#include <string_view>

#include "qo_pushpull_descriptor.h"

/// A new version of a file, written under a name of its own in the same directory and put in place only when it
/// is whole and on the disk: at every instant, a loss of power included, the path holds the former version or the
/// new one. Steps in order: open, append and overwrite, flush, keep_former if wanted, put_in_place. After a step that
/// failed (errno tells why) the path and what else lies in the directory are as they were, and the destructor removes
/// the rest.
///
/// Any number of replacements of one path may be under way, in any process: each has names of its own, and a lock on
/// what is under them tells remove_strays that its process lives. Nothing waits for a lock.
/// Whatever is made here is for its owner to write, for its group to read, and for nobody else. One thread.
class QoFileReplacement {
public:
    /// Touches nothing yet.
    explicit QoFileReplacement(std::string path);
    ~QoFileReplacement();
    QoFileReplacement(const QoFileReplacement&) = delete;
    QoFileReplacement& operator=(const QoFileReplacement&) = delete;

    /// Creates the new version.
    bool open();
    /// Writes more text behind what was written so far.
    bool append(std::string_view text);
    /// Replaces bytes that were written.
    bool overwrite(off_t at, std::string_view text);
    /// Takes back all that was written.
    bool restart();
    /// Waits until all that was written is on the disk.
    bool flush();

    enum class Former { none, kept, lost };
    /// Gives the former version a second name, so that it outlives put_in_place, and takes from others the right to
    /// read it. None when there is no file at the path; lost when there is one but no second name could be had.
    Former keep_former();
    /// The second name; the file under it is the caller's to move, and removed with this object otherwise.
    const std::string& former_name() const { return former_name_; }
    /// Renames the new version to the path and flushes the directory. False also when only the flush failed: the
    /// path then holds the new version, but a loss of power may bring the former one back.
    bool put_in_place();

    /// Removes what a process that died in between left beside the path. Errors are ignored.
    static void remove_strays(const std::string& path);
    /// Takes from everybody but owner and group the right to read a file, if there is one. Errors are ignored.
    static void close_to_others(const std::string& path);

private:
    Former copy_former();

    std::string path_;
    std::string new_name_;     // "" before open
    std::string former_name_;  // "" before keep_former
    QoDescriptor new_file_;
    QoDescriptor former_file_;  // keeps the lock
};

#endif
