// Compressing and expanding whole files.
#include "qo_utilities_zlib.h"

#include <stdio.h>
#include <zlib.h>

#include <memory>

namespace {

constexpr size_t kChunk = 4096;  // bytes

struct FileClose {
    void operator()(FILE* file) const { fclose(file); }
};
struct GzipClose {
    void operator()(gzFile file) const { gzclose(file); }
};
using File = std::unique_ptr<FILE, FileClose>;
using GzipFile = std::unique_ptr<gzFile_s, GzipClose>;

int copy_to_gzip(FILE* source, gzFile destination) {
    char chunk[kChunk];
    for (;;) {
        const size_t length = fread(chunk, 1, sizeof chunk, source);
        if (length == 0) return ferror(source) != 0 ? -1 : 0;
        const int accepted = gzwrite(destination, chunk, static_cast<unsigned>(length));
        if (accepted < static_cast<int>(length)) return -1;
    }
}

int copy_from_gzip(gzFile source, FILE* destination) {
    char chunk[kChunk];
    for (;;) {
        const int length = gzread(source, chunk, sizeof chunk);
        if (length <= 0) return 0;
        if (fwrite(chunk, 1, static_cast<size_t>(length), destination) < static_cast<size_t>(length)) return -1;
    }
}

}  // namespace

int qo_zlibCompress(const std::string& source, const std::string& destination) {
    const File in(fopen(source.c_str(), "rb"));
    if (in == nullptr) return -1;
    GzipFile out(gzopen(destination.c_str(), "wb"));
    if (out == nullptr) return -1;
    const int result = copy_to_gzip(in.get(), out.get());
    // A full disk often shows only now, when the last block is written: the archive is then worth nothing.
    return gzclose(out.release()) == Z_OK ? result : -1;
}

int qo_zlibDecompress(const std::string& source, const std::string& destination) {
    const GzipFile in(gzopen(source.c_str(), "rb"));
    if (in == nullptr) return -1;
    File out(fopen(destination.c_str(), "wb"));
    if (out == nullptr) return -1;
    const int result = copy_from_gzip(in.get(), out.get());
    return fclose(out.release()) == 0 ? result : -1;
}
