/// A directory of a test's own, with everything in it removed at the end. Header only.
#ifndef QO_TEST_SCRATCH_DIRECTORY_H
#define QO_TEST_SCRATCH_DIRECTORY_H

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

class QoScratchDirectory {
public:
    QoScratchDirectory() {
        std::string name = (std::filesystem::temp_directory_path() / "qo_test_XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no scratch directory " + name);
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

private:
    std::string path_;
};

#endif
