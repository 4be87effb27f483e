// Looking at the message queues of the system.
#include "qo_ctl_queue_list.h"

#include <dirent.h>
#include <fcntl.h>
#include <mqueue.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <numeric>
#include <sstream>
#include <utility>

#include "qo_ctl_service_queue.h"

namespace {

constexpr std::string_view kUsualDirectory = "/dev/mqueue";

struct CloseDirectory {
    void operator()(DIR* directory) const { closedir(directory); }
};

}  // namespace

std::optional<std::string> qo_ctl_queue_directory(std::string_view mounts) {
    std::optional<std::string> found;
    std::istringstream lines{std::string(mounts)};
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        std::string device;
        std::string directory;
        std::string type;
        fields >> device >> directory >> type;
        if (type == "mqueue" && (!found || directory == kUsualDirectory)) found = directory;
    }
    return found;
}

std::optional<std::vector<std::string>> qo_ctl_queue_names(const std::string& directory) {
    const std::unique_ptr<DIR, CloseDirectory> opened(opendir(directory.c_str()));
    if (!opened) return std::nullopt;
    std::vector<std::string> names;
    while (const dirent* entry = readdir(opened.get()))
        if (entry->d_name[0] != '.') names.push_back(std::string("/") + entry->d_name);
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<QoCtlQueue> qo_ctl_look_at_queue(const std::string& name) {
    const QoCtlDescriptor descriptor(mq_open(name.c_str(), O_RDONLY | O_NONBLOCK));
    mq_attr attributes{};
    struct stat status {};
    if (descriptor.get() == -1 || mq_getattr(descriptor.get(), &attributes) != 0 ||
        fstat(descriptor.get(), &status) != 0)
        return std::nullopt;
    return QoCtlQueue{.name = name,
                      .messages = attributes.mq_curmsgs,
                      .max_messages = attributes.mq_maxmsg,
                      .message_size = attributes.mq_msgsize,
                      .device = status.st_dev,
                      .inode = status.st_ino};
}

void QoCtlFullTimes::note(std::vector<QoCtlQueue>& queues, long now) {
    std::map<std::string, long> still_full;
    for (QoCtlQueue& queue : queues) {
        queue.full_for = 0;
        if (queue.messages < queue.max_messages) continue;
        const auto before = full_since_.find(queue.name);
        const long since = before == full_since_.end() ? now : before->second;
        still_full.emplace(queue.name, since);
        queue.full_for = now - since;
    }
    full_since_ = std::move(still_full);
}

size_t qo_ctl_keep_fullest(std::vector<QoCtlQueue>& queues, const std::string& service, size_t most) {
    if (queues.size() <= most) return 0;
    std::vector<size_t> places(queues.size());
    std::iota(places.begin(), places.end(), size_t{0});
    std::stable_sort(places.begin(), places.end(), [&](size_t a, size_t b) {
        const QoCtlQueue& first = queues[a];
        const QoCtlQueue& second = queues[b];
        if (first.name == service || second.name == service) return second.name != service;
        if (first.full_for != second.full_for) return first.full_for > second.full_for;
        return static_cast<int64_t>(first.messages) * second.max_messages >
               static_cast<int64_t>(second.messages) * first.max_messages;
    });
    places.resize(most);
    std::sort(places.begin(), places.end());
    std::vector<QoCtlQueue> kept;
    kept.reserve(most);
    for (const size_t place : places) kept.push_back(std::move(queues[place]));
    const size_t left_out = queues.size() - most;
    queues = std::move(kept);
    return left_out;
}

std::string qo_ctl_fill_bar(long messages, long max_messages, size_t width) {
    size_t filled = 0;
    if (messages >= max_messages) {
        filled = width;
    } else if (messages > 0) {
        const auto share = static_cast<uint64_t>(messages) * width / static_cast<uint64_t>(max_messages);
        filled = std::clamp<size_t>(static_cast<size_t>(share), 1, width - 1);
    }
    return "[" + std::string(filled, '#') + std::string(width - filled, '.') + "]";
}
