/// A log file of text records that starts anew each hour or day, with the finished files as compressed archives
/// beside it.
#ifndef QO_UTIL_LOG_FILE_MANAGER_H
#define QO_UTIL_LOG_FILE_MANAGER_H

#include <sys/types.h>
#include <time.h>

#include <atomic>
#include <cstdint>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

/// When a new file is started.
enum eArchiveType_t : int32_t {
    ArchivePerHour = 0,
    ArchivePerDay = 1,
};

/// The current time in Unix seconds.
using QoWallClock = std::function<time_t()>;
/// The system's clock.
time_t qo_wall_clock();

/// Writes records to one file in one directory. A file begins with the header, is rotated only when a record is
/// written, and is archived as "<10-digit Unix time>_<file name>.gz"; archives older than seven days are deleted
/// at each rotation. The first record of a run archives what an earlier run left. A file or directory that was removed
/// comes back with the next record. Failures are logged and otherwise ignored: a record that cannot be written whole is
/// dropped and leaves no part of itself in the file; the next one is tried again.
/// Any thread may write; naming, header and enabling belong to one thread before the first record or between two.
class QoUtilLogFileManager {
public:
    explicit QoUtilLogFileManager(eArchiveType_t archive_time = ArchivePerDay, QoWallClock clock = qo_wall_clock);
    /// Closes the file; does not archive it.
    ~QoUtilLogFileManager() = default;
    QoUtilLogFileManager(const QoUtilLogFileManager&) = delete;
    QoUtilLogFileManager& operator=(const QoUtilLogFileManager&) = delete;

    /// `path` is the directory without a slash at its end, `file` the name of the log in it.
    void setLogName(const std::string& path, const std::string& file);
    /// What every file begins with from the next one on; "" for nothing.
    void setLogFileHeader(const std::string& text);
    /// Lets records be written from now on, and makes the directory where nothing has that name; its parent has to
    /// be there. Without a path or a file name it logs a warning and leaves logging off.
    void enableLogging();
    /// Drops records from now on, without a message.
    void disableLogging();

    /// Writes one record, to a new file when the hour or day has changed. Never throws.
    QoUtilLogFileManager& operator<<(std::string& text);
    QoUtilLogFileManager& operator<<(const std::string& text);
    QoUtilLogFileManager& operator<<(std::string_view text);
    QoUtilLogFileManager& operator<<(const char* text);

private:
    void archiveLogFile(const std::string& path);
    void removeOldArchives();
    void createNewLogFile();
    bool currentLogFileValid() const;
    int32_t currentHour() const;
    int32_t currentDay() const;
    static bool exists(const std::string& path);
    void makeDirectory() const;
    void write(std::string_view text);
    bool append(std::string_view text);
    bool cut_back();
    bool is_in_its_place() const;
    std::string current_log() const;

    std::atomic<bool> _logEnabled;
    std::string _logHeader;
    std::ofstream _currentLog;
    int32_t _currentLogCreationTime;  // UTC hour (0 to 23) or day of the month (1 to 31) of the current file
    std::string _logPathName;
    std::string _logFileName;
    std::mutex _logArchiveMutex;  // held while a record is written, with the rotation that it may bring
    eArchiveType_t _archiveTime;
    QoWallClock clock_;
    dev_t device_ = 0;  // of the current file, with its number there
    ino_t inode_ = 0;
    bool header_due_ = false;         // in the current file
    std::optional<off_t> whole_end_;  // of the last whole record, while part of another may stand behind it
};

#endif
