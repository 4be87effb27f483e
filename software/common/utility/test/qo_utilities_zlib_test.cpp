// Compressing and expanding files, and the files that cannot be.
#include "qo_utilities_zlib.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <zlib.h>

#include "scratch_directory.h"

namespace {

namespace fs = std::filesystem;

class Zlib : public testing::Test {
protected:
    std::string path(const char* name) const { return scratch_.path() + name; }
    void write(const char* name, const std::string& content) const { std::ofstream(path(name)) << content; }
    std::string read(const char* name) const {
        std::ostringstream content;
        content << std::ifstream(path(name)).rdbuf();
        return content.str();
    }
    // What an independent reader finds in an archive.
    std::string unzipped(const char* name) const {
        std::string content(1000000, '\0');
        const gzFile archive = gzopen(path(name).c_str(), "rb");
        const int length = gzread(archive, content.data(), static_cast<unsigned>(content.size()));
        EXPECT_EQ(gzclose(archive), Z_OK);
        content.resize(static_cast<size_t>(std::max(length, 0)));
        return content;
    }

private:
    QoScratchDirectory scratch_;
};

std::string rows(size_t size) {
    std::string text;
    for (unsigned row = 0; text.size() < size; ++row) text += std::to_string(row * 2654435761U) + ",";
    text.resize(size);
    return text;
}

TEST_F(Zlib, CompressOfAMissingSourceReturnsMinus1AndCreatesNoArchive) {
    EXPECT_EQ(qo_zlibCompress(path("missing"), path("archive.gz")), -1);
    EXPECT_FALSE(fs::exists(path("archive.gz")));
}

TEST_F(Zlib, CompressOfAnEmptyFileCreatesAValidEmptyGzipFile) {
    write("empty", "");
    EXPECT_EQ(qo_zlibCompress(path("empty"), path("archive.gz")), 0);
    EXPECT_EQ(read("archive.gz").substr(0, 2), "\x1f\x8b");
    EXPECT_EQ(unzipped("archive.gz"), "");
}

TEST_F(Zlib, CompressAndDecompressKeepEveryByteAroundTheChunkSize) {
    for (const size_t size : {1U, 4095U, 4096U, 4097U, 8192U, 200000U}) {
        write("source", rows(size));
        ASSERT_EQ(qo_zlibCompress(path("source"), path("archive.gz")), 0) << size;
        EXPECT_EQ(unzipped("archive.gz"), rows(size)) << size;
        ASSERT_EQ(qo_zlibDecompress(path("archive.gz"), path("copy")), 0) << size;
        EXPECT_EQ(read("copy"), rows(size)) << size;
        EXPECT_EQ(read("source"), rows(size)) << size;
    }
}

TEST_F(Zlib, CompressReplacesAnOlderArchive) {
    write("archive.gz", rows(50000));
    write("source", "new");
    EXPECT_EQ(qo_zlibCompress(path("source"), path("archive.gz")), 0);
    EXPECT_EQ(unzipped("archive.gz"), "new");
}

TEST_F(Zlib, CompressIntoAMissingDirectoryReturnsMinus1) {
    write("source", "text");
    EXPECT_EQ(qo_zlibCompress(path("source"), path("missing/archive.gz")), -1);
}

TEST_F(Zlib, CompressOfADirectoryReturnsMinus1) {
    fs::create_directory(path("directory"));
    EXPECT_EQ(qo_zlibCompress(path("directory"), path("archive.gz")), -1);
}

TEST_F(Zlib, CompressOntoAFullDiskReturnsMinus1EvenWhenItShowsAtTheEndOnly) {
    write("short", "text");
    EXPECT_EQ(qo_zlibCompress(path("short"), "/dev/full"), -1);
    write("long", rows(2000000));
    EXPECT_EQ(qo_zlibCompress(path("long"), "/dev/full"), -1);
}

TEST_F(Zlib, DecompressOfAMissingSourceReturnsMinus1AndCreatesNoFile) {
    EXPECT_EQ(qo_zlibDecompress(path("missing"), path("copy")), -1);
    EXPECT_FALSE(fs::exists(path("copy")));
}

TEST_F(Zlib, DecompressIntoAMissingDirectoryReturnsMinus1) {
    write("source", "text");
    ASSERT_EQ(qo_zlibCompress(path("source"), path("archive.gz")), 0);
    EXPECT_EQ(qo_zlibDecompress(path("archive.gz"), path("missing/copy")), -1);
}

TEST_F(Zlib, DecompressOntoAFullDiskReturnsMinus1EvenWhenItShowsAtTheEndOnly) {
    write("source", "text");
    ASSERT_EQ(qo_zlibCompress(path("source"), path("archive.gz")), 0);
    EXPECT_EQ(qo_zlibDecompress(path("archive.gz"), "/dev/full"), -1);
    write("source", rows(100000));
    ASSERT_EQ(qo_zlibCompress(path("source"), path("archive.gz")), 0);
    EXPECT_EQ(qo_zlibDecompress(path("archive.gz"), "/dev/full"), -1);
}

TEST_F(Zlib, DecompressOfADamagedArchiveStopsWith0AtTheReadError) {
    write("source", rows(100000));
    ASSERT_EQ(qo_zlibCompress(path("source"), path("archive.gz")), 0);
    fs::resize_file(path("archive.gz"), fs::file_size(path("archive.gz")) / 2);
    EXPECT_EQ(qo_zlibDecompress(path("archive.gz"), path("copy")), 0);
    EXPECT_EQ(read("copy"), rows(100000).substr(0, read("copy").size()));
    EXPECT_LT(read("copy").size(), 100000U);
}

TEST_F(Zlib, NoDescriptorIsLeftOpen) {
    write("source", "text");
    const int before = dup(0);
    close(before);
    static_cast<void>(qo_zlibCompress(path("source"), path("archive.gz")));
    static_cast<void>(qo_zlibCompress(path("source"), path("missing/archive.gz")));
    static_cast<void>(qo_zlibDecompress(path("archive.gz"), path("copy")));
    static_cast<void>(qo_zlibDecompress(path("archive.gz"), path("missing/copy")));
    const int after = dup(0);
    close(after);
    EXPECT_EQ(after, before);
}

}  // namespace
