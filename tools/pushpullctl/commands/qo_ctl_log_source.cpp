// Reading a file that grows, a pipe, and what journalctl prints.
#include "qo_ctl_log_source.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "qo_ctl_output.h"
#include "qo_pushpull_descriptor.h"

namespace {

using std::chrono::milliseconds;

constexpr size_t kLongestLine = 4194304;  // bytes; a longer one is cut
constexpr size_t kPiece = 65536;          // bytes read at a time
constexpr milliseconds kLookAtFile{100};

constexpr char kNoJournal[] =
    "; give the file that the system log is written to (--file /var/log/syslog), or - for standard input";

/// Lines out of pieces of text.
class Lines {
public:
    using Read = std::function<std::optional<QoCtlLogLine>(std::string_view)>;
    explicit Lines(Read read) : read_(std::move(read)) {}

    void add(std::string_view piece, std::deque<QoCtlLogLine>& lines) {
        for (size_t end = 0; (end = piece.find('\n')) != std::string_view::npos; piece.remove_prefix(end + 1)) {
            keep(piece.substr(0, end));
            end_line(lines);
        }
        keep(piece);
    }
    void end_line(std::deque<QoCtlLogLine>& lines) {
        if (std::optional<QoCtlLogLine> line = read_(begun_)) lines.push_back(*std::move(line));
        begun_.clear();
    }
    bool has_begun() const { return !begun_.empty(); }

private:
    void keep(std::string_view text) { begun_ += text.substr(0, kLongestLine - std::min(kLongestLine, begun_.size())); }

    Read read_;
    std::string begun_;
};

/// One piece of what the descriptor has. @return as read()
ssize_t read_piece(int descriptor, Lines& splitter, std::deque<QoCtlLogLine>& lines) {
    std::array<char, kPiece> piece{};
    const ssize_t length = read(descriptor, piece.data(), piece.size());
    if (length > 0) splitter.add({piece.data(), static_cast<size_t>(length)}, lines);
    if (length == 0 && splitter.has_begun()) splitter.end_line(lines);
    return length;
}

class Pipe : public QoCtlLogSource {
public:
    Pipe(int descriptor, Lines::Read read) : descriptor_(descriptor), lines_(std::move(read)) {}
    std::string name() const override { return "standard input"; }
    State read(std::deque<QoCtlLogLine>& lines, milliseconds patience) override {
        pollfd input{descriptor_.get(), POLLIN, 0};
        if (poll(&input, 1, static_cast<int>(patience.count())) <= 0) return State::quiet;
        return read_piece(descriptor_.get(), lines_, lines) > 0 ? State::lines : State::ended;
    }

protected:
    QoDescriptor descriptor_;

private:
    Lines lines_;
};

/// Follows the name of a file, whatever file has it.
class File : public QoCtlLogSource {
public:
    File(std::string path, QoCtlLogEnd end)
        : path_(std::move(path)), followed_(end == QoCtlLogEnd::followed), lines_(qo_ctl_read_log_line) {}
    /// @return false with errno
    bool open_at_end() {
        if (!open_file()) return false;
        if (followed_) lseek(file_.get(), 0, SEEK_END);
        return true;
    }
    std::string name() const override { return path_; }
    State read(std::deque<QoCtlLogLine>& lines, milliseconds patience) override {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (true) {
            if (const State state = read_what_is_there(lines); state != State::quiet) return state;
            if (!followed_) return State::ended;
            if (std::chrono::steady_clock::now() >= deadline) return State::quiet;
            poll(nullptr, 0, static_cast<int>(std::min(patience, kLookAtFile).count()));
        }
    }

private:
    bool open_file() {
        file_ = QoDescriptor(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
        return static_cast<bool>(file_);
    }
    State read_what_is_there(std::deque<QoCtlLogLine>& lines) {
        // A line that is not ended yet stays begun: the rest of it is being written.
        std::array<char, kPiece> piece{};
        const ssize_t length = !file_ ? 0 : ::read(file_.get(), piece.data(), piece.size());
        if (length > 0) {
            lines_.add({piece.data(), static_cast<size_t>(length)}, lines);
            return State::lines;
        }
        if (length < 0) {
            qo_ctl_say(path_ + ": " + std::strerror(errno));
            return State::ended;
        }
        if (!followed_ && lines_.has_begun()) lines_.end_line(lines);
        return followed_ && is_another() && open_file() ? State::lines : State::quiet;
    }
    /// Whether the name belongs to another file than the one that is open, or that was cut.
    bool is_another() const {
        struct stat named {};
        if (stat(path_.c_str(), &named) != 0) return false;
        struct stat open_one {};
        if (!file_ || fstat(file_.get(), &open_one) != 0) return true;
        return named.st_ino != open_one.st_ino || named.st_dev != open_one.st_dev ||
               open_one.st_size < lseek(file_.get(), 0, SEEK_CUR);
    }

    const std::string path_;
    const bool followed_;
    QoDescriptor file_;
    Lines lines_;
};

/// The journal, by way of the program that reads it.
class Journal : public Pipe {
public:
    Journal(int descriptor, pid_t process) : Pipe(descriptor, qo_ctl_read_journal_line), process_(process) {}
    ~Journal() override {
        kill(process_, SIGTERM);
        waitpid(process_, nullptr, 0);
    }
    std::string name() const override { return "the journal"; }
    State read(std::deque<QoCtlLogLine>& lines, milliseconds patience) override {
        const State state = Pipe::read(lines, patience);
        if (state == State::ended) qo_ctl_say(std::string("journalctl has ended") + kNoJournal);
        return state;
    }

private:
    const pid_t process_;
};

/// @return 0 or an errno
int start_journalctl(int output, QoCtlLogEnd end, pid_t& process) {
    std::vector<std::string> words = {"journalctl", "--all", "--quiet", "--output=json",
                                      std::string("--identifier=") + QO_CTL_LOG_IDENT};
    if (end == QoCtlLogEnd::followed) words.insert(words.end(), {"--follow", "--lines=0"});
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    // Ctrl-C is for us, who end it; and it has to be able to end by SIGTERM and SIGPIPE.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t usual;
    sigemptyset(&usual);
    posix_spawnattr_setsigmask(&attributes, &usual);
    for (const int number : {SIGTERM, SIGPIPE}) sigaddset(&usual, number);
    posix_spawnattr_setsigdefault(&attributes, &usual);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    const int error = posix_spawnp(&process, "journalctl", &files, &attributes, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
    return error;
}

std::unique_ptr<QoCtlLogSource> open_journal(QoCtlLogEnd end) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        qo_ctl_say(std::string("journalctl: ") + std::strerror(errno));
        return nullptr;
    }
    const QoDescriptor reading(ends[0]);
    const QoDescriptor writing(ends[1]);
    pid_t process = -1;
    if (const int error = start_journalctl(writing.get(), end, process); error != 0) {
        qo_ctl_say(std::string("journalctl: ") + std::strerror(error) + kNoJournal);
        return nullptr;
    }
    return std::make_unique<Journal>(fcntl(reading.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1), process);
}

}  // namespace

std::unique_ptr<QoCtlLogSource> qo_ctl_open_log(const std::string& file, QoCtlLogEnd end) {
    if (file.empty()) return open_journal(end);
    if (file == "-") return std::make_unique<Pipe>(STDIN_FILENO, qo_ctl_read_log_line);
    auto opened = std::make_unique<File>(file, end);
    if (opened->open_at_end()) return opened;
    qo_ctl_say(file + ": " + std::strerror(errno));
    return nullptr;
}
