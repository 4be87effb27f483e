// The rotated log file of the statistics.
#include "qo_util_log_file_manager.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <string_view>
#include <utility>
#include <vector>

#include "qo_pushpull_conventions.h"
#include "qo_pushpull_directory.h"
#include "qo_utilities_zlib.h"

namespace {

constexpr time_t kArchiveLifeS = 604800;  // seconds that an archive is kept: seven days
constexpr size_t kArchiveTimeSize = 24;   // bytes of the time in an archive's name, NUL included

/// The files in a folder whose names end like this, with their paths, sorted; not the hidden ones.
std::vector<std::string> files_that_end_with(const std::string& folder, const std::string& ending) {
    std::vector<std::string> paths;
    QoDirectory directory(folder);
    while (const char* name = directory.next())
        if (*name != '.' && std::string_view(name).ends_with(ending)) paths.push_back(folder + "/" + name);
    std::sort(paths.begin(), paths.end());
    return paths;
}

tm utc(time_t time) {
    tm broken_down{};
    gmtime_r(&time, &broken_down);
    return broken_down;
}

bool is_regular_file(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

time_t qo_wall_clock() { return time(nullptr); }

QoUtilLogFileManager::QoUtilLogFileManager(eArchiveType_t archive_time, QoWallClock clock)
    : _logEnabled(false), _currentLogCreationTime(0), _archiveTime(archive_time), clock_(std::move(clock)) {
    _currentLogCreationTime = currentHour();
}

void QoUtilLogFileManager::setLogName(const std::string& path, const std::string& file) {
    _logPathName = path;
    _logFileName = file;
}

void QoUtilLogFileManager::setLogFileHeader(const std::string& text) {
    const std::lock_guard guard(_logArchiveMutex);
    _logHeader = text;
}

void QoUtilLogFileManager::enableLogging() {
    if (_logPathName.empty() || _logFileName.empty()) {
        syslog(LOG_WARNING, "LOG: invalid param (%s:%s)", _logPathName.c_str(), _logFileName.c_str());
        return;
    }
    _logEnabled = true;
    if (!exists(_logPathName)) makeDirectory();
}

void QoUtilLogFileManager::disableLogging() { _logEnabled = false; }

QoUtilLogFileManager& QoUtilLogFileManager::operator<<(std::string& text) { return *this << std::string_view(text); }

QoUtilLogFileManager& QoUtilLogFileManager::operator<<(const std::string& text) {
    return *this << std::string_view(text);
}

QoUtilLogFileManager& QoUtilLogFileManager::operator<<(const char* text) { return *this << std::string_view(text); }

QoUtilLogFileManager& QoUtilLogFileManager::operator<<(std::string_view text) {
    if (!_logEnabled) return *this;
    const std::lock_guard guard(_logArchiveMutex);
    try {
        write(text);
    } catch (const std::exception& error) {
        syslog(LOG_ERR, "LOG: %s@%d: Exception %s", static_cast<const char*>(__func__), __LINE__, error.what());
    }
    return *this;
}

void QoUtilLogFileManager::write(std::string_view text) {
    if (!currentLogFileValid()) createNewLogFile();
    if (!_currentLog.is_open()) {
        syslog(LOG_DEBUG, "LOG: file '%s' is not open", _logFileName.c_str());
        return;
    }
    if (header_due_ && !append(_logHeader)) return;
    header_due_ = false;
    append(text);
}

// True when all of it stands at the end of the file; then, and only then, anything of it does.
bool QoUtilLogFileManager::append(std::string_view text) {
    struct stat status {};
    if (!cut_back() || stat(current_log().c_str(), &status) != 0) return false;
    // A disk that was full when the last record came may have room again.
    _currentLog.clear();
    _currentLog << text << std::flush;
    if (_currentLog) return true;
    whole_end_ = status.st_size;
    cut_back();
    return false;
}

// Takes what was written of a record that did not fit out of the file again.
bool QoUtilLogFileManager::cut_back() {
    if (whole_end_ && truncate(current_log().c_str(), *whole_end_) == 0) whole_end_.reset();
    return !whole_end_;
}

bool QoUtilLogFileManager::is_in_its_place() const {
    struct stat status {};
    if (stat(current_log().c_str(), &status) != 0) return errno != ENOENT && errno != ENOTDIR;
    return status.st_dev == device_ && status.st_ino == inode_;
}

std::string QoUtilLogFileManager::current_log() const { return _logPathName + "/" + _logFileName; }

bool QoUtilLogFileManager::currentLogFileValid() const {
    if (!_currentLog.is_open() || !is_in_its_place()) return false;
    switch (_archiveTime) {
        case ArchivePerHour:
            return _currentLogCreationTime == currentHour();
        case ArchivePerDay:
            return _currentLogCreationTime == currentDay();
    }
    return false;
}

void QoUtilLogFileManager::createNewLogFile() {
    archiveLogFile(current_log());
    if (_currentLog.is_open()) _currentLog.close();
    _currentLog.clear();
    if (!exists(_logPathName)) makeDirectory();
    const std::string path = current_log();
    // Emptied where it could not be archived. Then each record goes to the end, wherever that is by then.
    _currentLog.open(path, std::ios::out | std::ios::trunc);
    if (_currentLog.is_open()) _currentLog.close();
    // Without a buffer: a record is one write, and one that a full disk refused does not come back with a later one.
    _currentLog.rdbuf()->pubsetbuf(nullptr, 0);
    _currentLog.open(path, std::ios::out | std::ios::app);
    _currentLogCreationTime = _archiveTime == ArchivePerDay ? currentDay() : currentHour();
    whole_end_.reset();
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
        device_ = status.st_dev;
        inode_ = status.st_ino;
    }
    header_due_ = !_logHeader.empty();
    if (_currentLog.is_open() && header_due_) header_due_ = !append(_logHeader);
}

void QoUtilLogFileManager::archiveLogFile(const std::string& path) {
    syslog(LOG_DEBUG, "LOG: archiving log file '%s'", path.c_str());
    if (!is_regular_file(path)) {
        syslog(LOG_DEBUG, "LOG: file doesn't exist '%s'", path.c_str());
        return;
    }
    if (_currentLog.is_open()) _currentLog.close();
    sync();
    char time_text[kArchiveTimeSize];
    snprintf(time_text, sizeof time_text, "%0*lld", QO_ARCHIVE_TIME_DIGITS, static_cast<long long>(clock_()));
    const std::string archive = _logPathName + "/" + time_text + qo_archive_ending(_logFileName);
    // A failed compression does not stop the rotation: the disk may be full, and the log would fill it further.
    [[maybe_unused]] const int compressed = qo_zlibCompress(path, archive);
    syslog(LOG_INFO, "LOG: archived '%s'", archive.c_str());
    if (remove(path.c_str()) != 0) {
        // Deliberate: the line names the archive, by which logs are searched, not the log that could not be removed.
        // Test: RefusingLogDisk.AReadOnlyOneDropsRecordsWithAllItsMessages
        syslog(LOG_WARNING, "LOG: remove archive failed: '%s'", archive.c_str());
    }
    removeOldArchives();
}

void QoUtilLogFileManager::removeOldArchives() {
    const std::string pattern = _logPathName + "/*" + qo_archive_ending(_logFileName);
    syslog(LOG_DEBUG, "LOG: removeOldArchives '%s'", pattern.c_str());
    const time_t oldest = clock_() - kArchiveLifeS;
    for (const std::string& archive : files_that_end_with(_logPathName, qo_archive_ending(_logFileName))) {
        struct stat status {};
        if (stat(archive.c_str(), &status) != 0 || status.st_mtime >= oldest) continue;
        syslog(LOG_INFO, "LOG: removing log archive '%s'", archive.c_str());
        if (remove(archive.c_str()) != 0) syslog(LOG_WARNING, "LOG: remove archive failed: '%s'", archive.c_str());
    }
}

int32_t QoUtilLogFileManager::currentHour() const { return utc(clock_()).tm_hour; }

int32_t QoUtilLogFileManager::currentDay() const { return utc(clock_()).tm_mday; }

bool QoUtilLogFileManager::exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

void QoUtilLogFileManager::makeDirectory() const {
    // Of a failure the records tell, which then find no file to go to.
    [[maybe_unused]] const int result = system(("mkdir " + _logPathName).c_str());
}
