// Finding queues among the descriptors of all processes.
#include "qo_ctl_queue_readers.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>

#include "qo_ctl_service_queue.h"

namespace {

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

/// The names in a directory that are numbers. @return false with errno when it cannot be read
bool read_numbers(const std::string& directory, std::vector<int>& numbers) {
    const std::unique_ptr<DIR, CloseDirectory> opened(opendir(directory.c_str()));
    if (!opened) return false;
    while (const dirent* entry = readdir(opened.get())) {
        const char* const end = entry->d_name + std::strlen(entry->d_name);
        int number = 0;
        if (std::from_chars(entry->d_name, end, number).ptr == end) numbers.push_back(number);
    }
    return true;
}

/// A queue's link is its name, so most descriptors need no second look.
bool may_be_queue(const std::string& link) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(link.c_str(), target.data(), target.size());
    return length > 0 && target[0] == '/' && std::count(target.begin(), target.begin() + length, '/') == 1;
}

QoCtlDescriptorInfo look_at_descriptor(const std::string& process, int descriptor) {
    std::ifstream file(process + "/fdinfo/" + std::to_string(descriptor));
    std::ostringstream text;
    text << file.rdbuf();
    return qo_ctl_read_descriptor_info(text.str());
}

struct Holder {
    size_t queue;  // its place
    pid_t process;
    bool locks;
};

class Search {
public:
    explicit Search(std::vector<QoCtlQueue>& queues) : queues_(queues) {}

    /// @return false when its descriptors may not be looked at
    bool look_into(pid_t process) {
        const std::string directory = std::string(QO_CTL_PROC) + "/" + std::to_string(process);
        std::vector<int> descriptors;
        if (!read_numbers(directory + "/fd", descriptors)) return errno != EACCES && errno != EPERM;
        for (const int descriptor : descriptors) look_at(directory, process, descriptor);
        return true;
    }

    void tell_queues() {
        for (size_t i = 0; i < queues_.size(); ++i) {
            queues_[i].readers.clear();
            const bool locked = std::any_of(holders_.begin(), holders_.end(),
                                            [i](const Holder& holder) { return holder.queue == i && holder.locks; });
            for (const Holder& holder : holders_)
                if (holder.queue == i && (locked ? holder.locks : !is_service(holder.process)))
                    add_reader(queues_[i], holder.process);
        }
    }

private:
    void look_at(const std::string& directory, pid_t process, int descriptor) {
        const std::string link = directory + "/fd/" + std::to_string(descriptor);
        struct stat status {};
        if (!may_be_queue(link) || stat(link.c_str(), &status) != 0) return;
        const auto queue = std::find_if(queues_.begin(), queues_.end(), [&](const QoCtlQueue& candidate) {
            return candidate.device == status.st_dev && candidate.inode == status.st_ino;
        });
        if (queue == queues_.end()) return;
        const QoCtlDescriptorInfo info = look_at_descriptor(directory, descriptor);
        if (info.reads) holders_.push_back({static_cast<size_t>(queue - queues_.begin()), process, info.locks});
    }

    bool is_service(pid_t process) const {
        return std::any_of(
            holders_.begin(), holders_.end(),
            [&](const Holder& holder) {
                return holder.process == process && holder.locks &&
                       qo_ctl_may_be_service_queue(queues_[holder.queue].name);
            });
    }

    static void add_reader(QoCtlQueue& queue, pid_t id) {
        // A process may hold it more than once.
        const auto same = [id](const QoCtlProcess& reader) { return reader.id == id; };
        if (std::any_of(queue.readers.begin(), queue.readers.end(), same)) return;
        if (std::optional<QoCtlProcess> process = qo_ctl_look_at_process(id)) queue.readers.push_back(*process);
    }

    std::vector<QoCtlQueue>& queues_;
    std::vector<Holder> holders_;
};

}  // namespace

QoCtlDescriptorInfo qo_ctl_read_descriptor_info(std::string_view text) {
    QoCtlDescriptorInfo info;
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string title;
        words >> title;
        int flags = 0;
        if (title == "flags:" && words >> std::oct >> flags) info.reads = (flags & O_ACCMODE) != O_WRONLY;
        if (title == "lock:") info.locks = info.locks || line.find("FLOCK") != std::string::npos;
    }
    return info;
}

std::vector<QoCtlProcess> qo_ctl_find_readers(std::vector<QoCtlQueue>& queues) {
    Search search(queues);
    std::vector<QoCtlProcess> closed;
    std::vector<int> processes;
    read_numbers(QO_CTL_PROC, processes);
    for (const pid_t id : processes) {
        if (id == getpid() || search.look_into(id)) continue;
        std::optional<QoCtlProcess> process = qo_ctl_look_at_process(id);
        if (process && !process->of_kernel) closed.push_back(*std::move(process));
    }
    search.tell_queues();
    return closed;
}
