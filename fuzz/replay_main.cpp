// Runs a fuzzer's entry once over every file given, and every file in the directories given: the committed corpus as
// an ordinary test, with any compiler.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

namespace fs = std::filesystem;

std::set<fs::path> files_below(const fs::path& path) {
    if (!fs::is_directory(path)) return {path};
    std::set<fs::path> files;
    for (const auto& entry : fs::recursive_directory_iterator(path))
        if (entry.is_regular_file()) files.insert(entry.path());
    return files;
}

/// Named before it runs, so that the last line of a crash tells the file.
bool replay(const fs::path& path) {
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    if (!file) {
        std::fprintf(stderr, "%s cannot be read\n", path.c_str());
        return false;
    }
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        for (const fs::path& path : files_below(argv[i])) {
            if (!replay(path)) return 1;
            ++replayed;
        }
    }
    std::printf("%zu files\n", replayed);
    return replayed == 0 ? 1 : 0;
}
