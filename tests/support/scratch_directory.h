/// A directory of a test's own, with everything in it removed at the end. Header only.
#ifndef QO_TEST_SCRATCH_DIRECTORY_H
#define QO_TEST_SCRATCH_DIRECTORY_H

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

class QoScratchDirectory {
public:
    QoScratchDirectory() {
        // Not by std::filesystem, which on a 32-bit board cannot look at a folder that was changed after January 2038.
        const char* folder = getenv("TMPDIR");
        std::string name = std::string(folder != nullptr ? folder : "/tmp") + "/qo_test_XXXXXX";
        if (mkdtemp(name.data()) == nullptr) {
            perror(name.c_str());
            abort();
        }
        path_ = name + "/";
    }
    ~QoScratchDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    QoScratchDirectory(const QoScratchDirectory&) = delete;
    QoScratchDirectory& operator=(const QoScratchDirectory&) = delete;

    /// Ends in "/".
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + name; }

    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(file(name), std::ios::binary) << content;
        return file(name);
    }
    /// Empty when there is no such file.
    std::string read(const std::string& name) const {
        std::ostringstream content;
        content << std::ifstream(file(name), std::ios::binary).rdbuf();
        return content.str();
    }
    bool has(const std::string& name) const { return std::filesystem::exists(file(name)); }

    /// Makes it a file of 2040, a time that 32 bits cannot count. False on a disk that cannot either.
    bool date_in_2040(const std::string& name) const {
        const timespec in_2040{kIn2040, 0};
        const timespec times[2] = {in_2040, in_2040};
        struct stat status {};
        return utimensat(AT_FDCWD, file(name).c_str(), times, 0) == 0 && stat(file(name).c_str(), &status) == 0 &&
               status.st_mtime == kIn2040;
    }

private:
    static constexpr time_t kIn2040 = 2221560000;  // 2040-05-25 12:00:00 UTC

    std::string path_;
};

#endif
