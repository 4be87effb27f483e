// Rebuilds what a disk may hold after a loss of power from the log of its writes (qemu's blklogwrites, which is the
// format of Linux's dm-log-writes).
//
//   power_cut_images LOG count                    the number of crash images that end with a flush
//   power_cut_images LOG make DISK SEED flush N   writes onto DISK, a copy of the disk before the log, everything up
//                                                 to the Nth flush (from 0)
//   power_cut_images LOG make DISK SEED random N  ... up to a write chosen by SEED and N; of the writes since the last
//                                                 flush some are missing and some are torn
//
// "make" prints the number of the last tree that had been reported as saved by then. Only points behind the first such
// report are chosen.
#include <fcntl.h>

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "power_cut_tree.h"

namespace {

constexpr uint64_t kMagic = 0x6a736677736872;
constexpr uint64_t kFlush = 1;
constexpr uint64_t kSector = 512;  // bytes; the log is recorded with this size
constexpr uint64_t kSuperBlockEnd = 4096 / kSector;

struct SuperBlock {
    uint64_t magic;
    uint64_t version;
    uint64_t entries;
    uint32_t sector_size;
};

struct EntryHeader {
    uint64_t sector;
    uint64_t sectors;
    uint64_t flags;
    uint64_t data_length;
};

struct Entry {
    EntryHeader header;
    uint64_t data;  // offset in the log

    bool flushes() const { return header.flags == kFlush; }
};

class Log {
public:
    explicit Log(const std::string& path) : file_(path, std::ios::binary) {
        SuperBlock super{};
        read(0, &super, sizeof super);
        if (super.magic != kMagic || super.sector_size != kSector)
            throw std::runtime_error(path + " is no log of writes");
        uint64_t offset = kSector;
        for (uint64_t number = 0; number < super.entries; ++number) {
            Entry entry{};
            read(offset, &entry.header, sizeof entry.header);
            // The machine's disk has no discards and no writes around its cache.
            if (entry.header.flags != 0 && !entry.flushes()) throw std::runtime_error("an entry of unknown kind");
            entry.data = offset + kSector;
            offset = entry.data + entry.header.sectors * kSector;
            entries_.push_back(entry);
            note_report(entry);
        }
        if (first_report_ == entries_.size()) throw std::runtime_error("nothing was reported as saved");
    }

    const std::vector<Entry>& entries() const { return entries_; }
    size_t first_report() const { return first_report_; }
    /// The last tree that was reported by the entry with this number.
    long reported(size_t entry) const { return reports_[entry]; }

    std::vector<size_t> flushes() const {
        std::vector<size_t> found;
        for (size_t number = first_report_; number < entries_.size(); ++number)
            if (entries_[number].flushes()) found.push_back(number);
        return found;
    }

    std::string data(const Entry& entry) {
        std::string bytes(static_cast<size_t>(entry.header.sectors * kSector), '\0');
        read(entry.data, bytes.data(), bytes.size());
        return bytes;
    }

private:
    void read(uint64_t offset, void* bytes, size_t length) {
        file_.seekg(static_cast<std::streamoff>(offset));
        if (!file_.read(static_cast<char*>(bytes), static_cast<std::streamsize>(length)))
            throw std::runtime_error("the log of writes ends early");
    }

    void note_report(const Entry& entry) {
        long report = reports_.empty() ? 0 : reports_.back();
        if (entry.header.sectors * kSector == kPowerCutMarkerSize) {
            const std::string bytes = data(entry);
            if (bytes.starts_with(kPowerCutMarker)) report = std::stol(bytes.substr(strlen(kPowerCutMarker)));
        }
        if (report == 0) first_report_ = entries_.size();
        reports_.push_back(report);
    }

    std::ifstream file_;
    std::vector<Entry> entries_;
    std::vector<long> reports_;  // by entry
    size_t first_report_ = 0;
};

class Disk {
public:
    explicit Disk(const std::string& path) : file_(open(path.c_str(), O_WRONLY | O_CLOEXEC)) {
        if (file_ < 0) throw std::runtime_error("cannot open " + path);
    }
    ~Disk() { close(file_); }
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;

    /// The first sectors of what the entry writes.
    void apply(Log& log, const Entry& entry, uint64_t sectors) {
        const std::string bytes = log.data(entry);
        const auto length = static_cast<size_t>(sectors * kSector);
        if (pwrite(file_, bytes.data(), length, static_cast<off_t>(entry.header.sector * kSector)) !=
            static_cast<ssize_t>(length))
            throw std::runtime_error("cannot write the image");
    }

private:
    int file_;
};

/// @param end entries from here on were never made
void apply_all(Log& log, Disk& disk, size_t end) {
    for (size_t number = 0; number < end; ++number) {
        const Entry& entry = log.entries()[number];
        disk.apply(log, entry, entry.header.sectors);
    }
}

/// A file system that is small enough to have one superblock cannot be mounted, nor repaired, when that is torn. No
/// service can help that, so the block is whole, as it is on flash that writes 4096 bytes at once.
uint64_t torn_sectors(const EntryHeader& header, uint64_t random) {
    const uint64_t sectors = header.sectors == 0 ? 0 : random % header.sectors;
    return header.sector + sectors < kSuperBlockEnd ? 0 : sectors;
}

/// What is flushed is there. The rest is at the mercy of the disk: of ten writes about five are there, four are missing
/// and one is torn.
void make_random(Log& log, Disk& disk, size_t end, std::mt19937_64& random) {
    size_t flushed = end;
    while (flushed > 0 && !log.entries()[flushed - 1].flushes()) --flushed;
    apply_all(log, disk, flushed);
    for (size_t number = flushed; number < end; ++number) {
        const Entry& entry = log.entries()[number];
        const uint64_t fate = random() % 10;
        if (fate < 5) disk.apply(log, entry, entry.header.sectors);
        if (fate == 5) disk.apply(log, entry, torn_sectors(entry.header, random()));
    }
}

void make(Log& log, const std::string& path, uint64_t seed, const std::string& kind, size_t number) {
    Disk disk(path);
    if (kind == "flush") {
        const size_t flush = log.flushes().at(number);
        apply_all(log, disk, flush + 1);
        std::cout << log.reported(flush) << "\n";
        return;
    }
    std::seed_seq mixed{seed, uint64_t{number}};
    std::mt19937_64 random(mixed);
    const size_t choices = log.entries().size() - log.first_report();
    const size_t last = log.first_report() + static_cast<size_t>(random() % choices);
    make_random(log, disk, last + 1, random);
    std::cout << log.reported(last) << "\n";
}

int run(const std::vector<std::string>& words) {
    if (words.size() == 2 && words[1] == "count") {
        std::cout << Log(words[0]).flushes().size() << "\n";
        return EXIT_SUCCESS;
    }
    if (words.size() == 6 && words[1] == "make" && (words[4] == "flush" || words[4] == "random")) {
        Log log(words[0]);
        make(log, words[2], std::stoull(words[3]), words[4], std::stoul(words[5]));
        return EXIT_SUCCESS;
    }
    std::cerr << "usage: power_cut_images LOG count | LOG make DISK SEED flush|random N\n";
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return run(std::vector<std::string>(argv + 1, argv + argc));
    } catch (const std::exception& error) {
        std::cerr << "power_cut_images: " << error.what() << "\n";
        return EXIT_FAILURE;
    }
}
