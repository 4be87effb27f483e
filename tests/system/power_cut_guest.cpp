// The first process of the virtual machine of the power-cut campaign. Runs the service on the disk and, while other
// components publish and other files are written, saves one tree after the other and reports each on the console:
//   SAVED 17     the service has handled the save request of tree 17 and its file holds it
//   DONE         as many as asked for
//   FAILED why   the machine then ends
//
//   power_cut_guest SAVES     0: until the power is cut
#include <fcntl.h>
#include <mqueue.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "power_cut_tree.h"
#include "qo_pushpull_api.h"

namespace {

constexpr char kModules[] = "/modules";  // in the order in which they are to be loaded
constexpr char kDisk[] = "/dev/vda";
constexpr char kDiskQueue[] = "/sys/block/vda/queue/";
constexpr char kSavedFile[] = "/kivo/data/saved_tree.json";
constexpr long kServiceMessages = 64;
constexpr long kServiceMessageSize = 262144;  // bytes
constexpr int32_t kQueueMessages = 64;
constexpr int32_t kMessageSize = 8192;  // bytes
constexpr std::chrono::seconds kPatience{30};
constexpr QoPushpullApiTimings kTimings{std::chrono::milliseconds(20), std::chrono::seconds(5),
                                        std::chrono::milliseconds(20)};

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what + ": " + strerror(errno)); }

void mount_at(const char* source, const char* target, const char* type) {
    std::filesystem::create_directories(target);
    if (mount(source, target, type, 0, nullptr) != 0) fail(std::string("mount ") + target);
}

/// The driver of the disk is no part of the kernel's file.
void load_modules() {
    std::vector<std::filesystem::path> modules;
    for (const auto& file : std::filesystem::directory_iterator(kModules)) modules.push_back(file.path());
    std::sort(modules.begin(), modules.end());
    for (const auto& module : modules) {
        const int file = open(module.c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0 || syscall(SYS_finit_module, file, "", 0) != 0) fail(module.string());
        close(file);
    }
}

std::string line_of(const std::string& path) {
    std::string line;
    std::ifstream file(path);
    std::getline(file, line);
    return line;
}

/// Everything that the kernel wants to be on the disk must be followed by a flush: that is all that the log of writes
/// shows. A disk that is told to write a block around its cache would leave no trace of that.
void check_disk() {
    if (line_of(std::string(kDiskQueue) + "write_cache") != "write back") throw std::runtime_error("no flushes");
    if (line_of(std::string(kDiskQueue) + "fua") != "0") throw std::runtime_error("writes around the disk's cache");
}

void make_file_systems() {
    mount_at("proc", "/proc", "proc");
    mount_at("sysfs", "/sys", "sysfs");
    mount_at("devtmpfs", "/dev", "devtmpfs");
    mount_at("tmpfs", "/var/volatile", "tmpfs");
    load_modules();
    for (int attempt = 0; access(kDisk, F_OK) != 0 && attempt < 3000; ++attempt)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    check_disk();
    mount_at(kDisk, "/kivo", "ext4");
    for (const char* directory : {"/kivo/data", "/kivo/others", "/kivo/noise", "/tmp"})
        std::filesystem::create_directories(directory);
}

pid_t service = -1;

/// For a failure: whether the service runs, and where it waits.
std::string service_state() {
    int status = 0;
    if (waitpid(service, &status, WNOHANG) == service) return ", it ended with status " + std::to_string(status);
    const std::string process = "/proc/" + std::to_string(service);
    std::string found = ", it runs:";
    for (const auto& thread : std::filesystem::directory_iterator(process + "/task")) {
        std::string call;
        std::ifstream file(thread.path() / "syscall");
        std::getline(file, call);
        found += " [" + call + "]";
    }
    return found;
}

/// A starting service discards what it finds in its queue, so nothing may be sent before.
void wait_until_ready(int socket) {
    const timeval patience{kPatience.count(), 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    char text[256];
    if (recv(socket, text, sizeof text, 0) <= 0) throw std::runtime_error("the service is not ready" + service_state());
    close(socket);
}

void start_service() {
    // The service makes its queue with 64 messages of 262144 bytes; the limit is the one of its systemd unit.
    const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
    if (setrlimit(RLIMIT_MSGQUEUE, &unlimited) != 0) fail("setrlimit");
    const int ready = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, "/tmp/ready"};
    if (ready < 0 || bind(ready, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) fail("ready");
    setenv("NOTIFY_SOCKET", address.sun_path, 1);
    const pid_t child = fork();
    if (child < 0) fail("fork");
    service = child;
    if (child > 0) {
        wait_until_ready(ready);
        return;
    }
    execl("/bin/qo_pushpull", "qo_pushpull", nullptr);
    _exit(1);
}

/// The machine is there for the queue as a board has it.
void check_service_queue() {
    mq_attr attributes{};
    const mqd_t queue = mq_open("/pushpull", O_RDONLY | O_CLOEXEC);
    if (queue == -1 || mq_getattr(queue, &attributes) != 0) fail("the service's queue");
    mq_close(queue);
    if (attributes.mq_maxmsg != kServiceMessages || attributes.mq_msgsize != kServiceMessageSize)
        throw std::runtime_error("the service's queue has not its full size");
}

/// A component that publishes and can wait until its requests are handled.
class Component {
public:
    Component(eQO_CMP_IDs_ id, std::string queue_name)
        : id_(id), queue_name_(std::move(queue_name)), api_("", kTimings) {
        connect();
        queue_.reset(api_.create_receive_queue(queue_name_, kQueueMessages, kMessageSize));
        if (queue_ == nullptr) fail("the queue " + queue_name_);
        mq_attr attributes{};
        attributes.mq_maxmsg = kQueueMessages;
        attributes.mq_msgsize = kMessageSize;
        check(api_.comp_register(id_, queue_name_, &attributes));
    }

    void publish(const std::string& json) { check(api_.publish(id_, json)); }
    void save() { check(api_.flush(id_)); }

    /// Requests are handled in order: with the answer all earlier ones are done.
    std::string get(const std::string& pointer) {
        const std::string tag = "fence" + std::to_string(++fences_);
        const std::string prefix = "sender_id:" + tag + ";";
        check(api_.get(id_, pointer, tag, false));
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (std::chrono::steady_clock::now() < deadline) {
            if (queue_->timed_receive(std::chrono::milliseconds(100)) <= 0) continue;
            std::string text = queue_->get_queue_buffer();
            if (text.starts_with(prefix)) return text;
        }
        throw std::runtime_error(queue_name_ + ": the service does not answer" + service_state());
    }

private:
    void connect() {
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        while (api_.init("") != 0) {
            if (std::chrono::steady_clock::now() > deadline)
                throw std::runtime_error(queue_name_ + ": the service does not start" + service_state());
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    static void check(int32_t result) {
        if (result != 0) throw std::runtime_error("a request could not be sent");
    }

    eQO_CMP_IDs_ id_;
    std::string queue_name_;
    QoPushpullApi api_;
    std::unique_ptr<QoPushpullReceiveQueue> queue_;
    int fences_ = 0;
};

/// Another component's values, persistent ones too: the service's own timer saves between the saves by request.
[[noreturn]] void publish_without_end() {
    Component component(QO_CMPID_HVAC_SYSCON_PUB, "/load");
    for (long value = 0;; ++value) {
        component.publish(R"({"system":{"status":{"systemTemperature":)" + std::to_string(value % 100) + "}}}");
        if (value % 10 == 0) component.get("/usb");
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

/// Files that nobody flushes keep the file system's journal and the disk's cache busy.
[[noreturn]] void write_without_end() {
    constexpr size_t kFileSize = 65536;  // bytes
    constexpr int kFiles = 16;
    for (int round = 0;; ++round) {
        const std::string name = "/kivo/noise/" + std::to_string(round % kFiles);
        std::ofstream(name + ".new") << std::string(kFileSize, static_cast<char>('A' + round % 26));
        rename((name + ".new").c_str(), name.c_str());
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
    }
}

std::string text_of(const char* path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/// Past the file system, around the page cache, and without a flush: that would do the service's work for it.
class Marker {
public:
    Marker() : disk_(open(kDisk, O_WRONLY | O_DIRECT | O_CLOEXEC)) {
        const off_t size = lseek(disk_, 0, SEEK_END);
        if (disk_ < 0 || size <= 0) fail("the disk");
        place_ = size - static_cast<off_t>(kPowerCutMarkerSize);
    }
    ~Marker() { close(disk_); }
    Marker(const Marker&) = delete;
    Marker& operator=(const Marker&) = delete;

    void write(long number) {
        memset(block_, 0, sizeof block_);
        snprintf(block_, sizeof block_, "%s%ld", kPowerCutMarker, number);
        if (pwrite(disk_, block_, sizeof block_, place_) != static_cast<ssize_t>(sizeof block_)) fail("marker");
    }

private:
    int disk_;
    off_t place_ = 0;
    alignas(kPowerCutMarkerSize) char block_[kPowerCutMarkerSize] = {};
};

void save_trees(long saves) {
    constexpr int kLongestPause = 60;  // milliseconds
    Component component(QO_CMPID_DEMO, "/driver");
    check_service_queue();
    Marker marker;
    std::minstd_rand random(std::random_device{}());
    const long first = std::max(0L, power_cut_number(component.get("/version"))) + 1;
    for (long number = first; saves == 0 || number < first + saves; ++number) {
        component.publish(power_cut_tree(number));
        component.save();
        component.get("/usb");
        if (power_cut_number(text_of(kSavedFile)) != number)
            throw std::runtime_error("the saved file is another tree's");
        marker.write(number);
        printf("SAVED %ld\n", number);
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % kLongestPause));
    }
    printf("DONE\n");
}

void report_failure_of(void (*work)()) {
    try {
        work();
    } catch (const std::exception& error) {
        printf("FAILED %s\n", error.what());
    }
}

}  // namespace

int main(int argc, char** argv) {
    setvbuf(stdout, nullptr, _IOLBF, 0);
    try {
        make_file_systems();
        start_service();
        std::thread(report_failure_of, publish_without_end).detach();
        std::thread(report_failure_of, write_without_end).detach();
        save_trees(argc > 1 ? std::stol(argv[1]) : 0);
    } catch (const std::exception& error) {
        printf("FAILED %s\n", error.what());
    }
    // The end of the first process would be a panic; the host ends the machine.
    while (true) pause();
}
