/// qo_isolated PROGRAM [ARGUMENT...]
///
/// Runs a test program where its message queues, files, log lines and signals meet nobody else's:
///   - IPC, mount and PID namespaces of its own (inside a user namespace when we lack CAP_SYS_ADMIN)
///   - empty /kivo and /var/volatile, a /dev without a log socket, /dev/mqueue; nothing is created on the machine
///   - a real user id of its own, with the capabilities of the caller: the kernel counts the memory of message
///     queues per real user id over all namespaces, so parallel tests would starve each other
/// The program's exit status or deadly signal becomes ours, and it dies when we are killed. What the machine
/// forbids is left out and said on stderr. With --gtest_list_tests the program is run as it is.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/capability.h>
#include <mqueue.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

namespace fs = std::filesystem;

constexpr uid_t kFirstOwnUid = 200000;  // the process id is added
constexpr uid_t kProcessIds = 4194304;  // the kernel gives none above
constexpr uid_t kUidRanges = 500;       // of that many, below the largest user id
constexpr int kCannotRun = 126;         // exit status, as a shell gives it
constexpr int kForwardedSignals[] = {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2};

// What the first process of the namespaces tells the launcher.
struct Report {
    enum Kind : int32_t { kNotIsolated, kEnded } kind;
    int32_t wait_status;  // of the program, as waitpid() gives it
};

void say(const std::string& text) { fprintf(stderr, "qo_isolated: %s\n", text.c_str()); }

[[noreturn]] void fail(const std::string& what) { throw std::system_error(errno, std::generic_category(), what); }

[[noreturn]] void exec_program(char** command) {
    execvp(command[0], command);
    say(std::string("cannot run ").append(command[0]).append(": ").append(strerror(errno)));
    _exit(kCannotRun);
}

bool is_listing(char** command) {
    for (char** argument = command; *argument != nullptr; ++argument)
        if (strcmp(*argument, "--gtest_list_tests") == 0) return true;
    return false;
}

// ---- capabilities and user id ----

struct Capabilities {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};

    Capabilities() {
        if (syscall(SYS_capget, &header, data) != 0) fail("capget");
    }
    bool has(unsigned capability) const { return (data[capability / 32].effective >> (capability % 32) & 1) != 0; }
    bool permits(unsigned capability) const { return (data[capability / 32].permitted >> (capability % 32) & 1) != 0; }
};

// Makes all permitted capabilities effective, and inheritable for raise_ambient().
void raise_effective() {
    Capabilities mine;
    for (__user_cap_data_struct& word : mine.data) word.effective = word.inheritable = word.permitted;
    if (syscall(SYS_capset, &mine.header, mine.data) != 0) fail("capset");
}

// Lets the capabilities survive execve() of a user who is not root.
void raise_ambient() {
    raise_effective();
    const Capabilities mine;
    for (unsigned capability = 0; capability <= CAP_LAST_CAP; ++capability)
        if (mine.permits(capability)) prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, capability, 0, 0);
}

// Process ids repeat in other PID namespaces, such as those of two containers on one machine: each has a range.
uid_t range_of_our_pid_namespace() {
    struct stat our_namespace {};
    if (stat("/proc/self/ns/pid", &our_namespace) != 0) return 0;
    return static_cast<uid_t>(our_namespace.st_ino % kUidRanges) * kProcessIds;
}

// Takes a real user id that no other process has, and keeps the capabilities.
bool take_own_uid() {
    if (!Capabilities().has(CAP_SETUID)) return false;
    const uid_t own = kFirstOwnUid + static_cast<uid_t>(getpid());
    const uid_t apart = own + range_of_our_pid_namespace();
    prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0);
    // A user namespace may have too few user ids for ranges.
    if (setresuid(apart, apart, apart) != 0 && setresuid(own, own, own) != 0) return false;
    raise_effective();
    prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);  // /proc/self stays ours
    return true;
}

// The lock of all who share a queue quota; held until this process ends.
void wait_for_shared_quota() {
    const std::string path = "/tmp/qo_isolated." + std::to_string(getuid()) + ".lock";
    const int lock = open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600);
    if (lock < 0 || flock(lock, LOCK_EX) != 0) say("cannot lock " + path + ": " + strerror(errno));
}

// ---- the file system of the namespaces ----

void mount_or_fail(const char* source, const fs::path& target, const char* type, unsigned long flags,
                   const char* options) {
    if (mount(source, target.c_str(), type, flags, options) != 0) fail("mount " + target.string());
}

void bind_or_fail(const fs::path& source, const fs::path& target) {
    mount_or_fail(source.c_str(), target, nullptr, MS_BIND | MS_REC, nullptr);
}

void make_directory(const fs::path& path, mode_t mode) {
    if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST) fail("mkdir " + path.string());
    if (chmod(path.c_str(), mode) != 0) fail("chmod " + path.string());
}

void show_link(const fs::path& source, const fs::path& target) {
    char where[PATH_MAX] = {};
    if (readlink(source.c_str(), where, sizeof where - 1) < 0 || symlink(where, target.c_str()) != 0)
        fail("link " + target.string());
}

// Shows `source` at `target`, which lies on our own tmpfs. On a 32-bit board std::filesystem cannot look at files that
// were changed after January 2038, and the emulated one is there.
void show(const fs::path& source, const fs::path& target) {
    struct stat status {};
    if (lstat(source.c_str(), &status) != 0) fail("lstat " + source.string());
    if (S_ISLNK(status.st_mode)) {
        show_link(source, target);
        return;
    }
    if (S_ISDIR(status.st_mode))
        make_directory(target, 0755);
    else
        std::ofstream(target).close();
    bind_or_fail(source, target);
}

void show_all_but(const fs::path& folder, const fs::path& target, std::initializer_list<const char*> left_out) {
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        const fs::path name = entry.path().filename();
        if (std::find(left_out.begin(), left_out.end(), name) == left_out.end()) show(entry.path(), target / name);
    }
}

void make_dev(const fs::path& dev) {
    make_directory(dev, 0777);  // a test binds /dev/log here
    for (const char* node : {"null", "zero", "full", "random", "urandom", "tty", "pts"})
        if (fs::exists(fs::path("/dev") / node)) show(fs::path("/dev") / node, dev / node);
    fs::create_symlink("pts/ptmx", dev / "ptmx");
    fs::create_symlink("/proc/self/fd", dev / "fd");
    fs::create_symlink("/proc/self/fd/0", dev / "stdin");
    fs::create_symlink("/proc/self/fd/1", dev / "stdout");
    fs::create_symlink("/proc/self/fd/2", dev / "stderr");
    make_directory(dev / "shm", 01777);
    make_directory(dev / "mqueue", 01777);
    mount_or_fail("mqueue", dev / "mqueue", "mqueue", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
}

void make_proc(const fs::path& proc) {
    make_directory(proc, 0555);
    if (mount("proc", proc.c_str(), "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0) return;
    say(std::string("/proc shows the processes of the whole machine: ") + strerror(errno));
    bind_or_fail("/proc", proc);
}

void make_scratch(const fs::path& target, std::initializer_list<const char*> folders) {
    make_directory(target, 0755);
    mount_or_fail("tmpfs", target, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0777");
    for (const char* folder : folders) make_directory(target / folder, 0777);
}

void make_root(const fs::path& root) {
    mount_or_fail("tmpfs", root, "tmpfs", MS_NOSUID, "mode=0755");
    mount_or_fail("none", root, nullptr, MS_UNBINDABLE, nullptr);  // not shown again inside itself
    show_all_but("/", root, {"proc", "dev", "var", "kivo"});
    make_directory(root / "var", 0755);
    show_all_but("/var", root / "var", {"volatile"});
    make_dev(root / "dev");
    make_proc(root / "proc");
    make_scratch(root / "kivo", {"data", "data/logs", "others"});
    make_scratch(root / "var/volatile", {});
    make_directory(root / "var/volatile/tmp", 01777);  // as on the device: for everyone
}

void enter_root(const fs::path& root) {
    const fs::path working_directory = fs::current_path();
    if (chdir(root.c_str()) != 0) fail("chdir " + root.string());
    if (syscall(SYS_pivot_root, ".", ".") == 0) {
        if (umount2(".", MNT_DETACH) != 0) fail("umount of the machine's root");
    } else if (chroot(".") != 0) {  // the machine's root is an initramfs, which cannot be pivoted
        fail("chroot");
    }
    if (chdir("/") != 0 || chdir(working_directory.c_str()) != 0) fail("chdir " + working_directory.string());
    rmdir(root.c_str());
}

void write_text(const std::string& path, const std::string& text) {
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    const ssize_t written = file < 0 ? -1 : write(file, text.data(), text.size());
    const int error = errno;
    if (file >= 0) close(file);
    errno = error;
    if (written != static_cast<ssize_t>(text.size())) fail("writing " + path);
}

// The limits belong to user 0 of the namespaces, whatever the capabilities.
void set_queue_limits() {
    const uid_t own = geteuid();
    prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0);
    if (own != 0 && seteuid(0) != 0) fail("user 0 of the namespaces");
    const std::pair<const char*, const char*> limits[] = {
        {"msg_max", "1024"}, {"msgsize_max", "1048576"}, {"queues_max", "1024"}};
    for (const auto& [name, value] : limits) write_text(std::string("/proc/sys/fs/mqueue/") + name, value);
    if (own != 0 && seteuid(own) != 0) fail("our own user");
    raise_effective();
}

// The kernel frees the queues of an ended namespace a little later than its last process.
void wait_for_freed_queues() {
    const char name[] = "/qo_isolated.probe";
    for (int tries = 0; tries < 100; ++tries) {
        mq_attr size{};
        size.mq_maxmsg = 3;
        size.mq_msgsize = 262144;
        const mqd_t probe = mq_open(name, O_CREAT | O_RDWR | O_CLOEXEC, 0600, &size);
        if (probe != -1) {
            mq_close(probe);
            mq_unlink(name);
            return;
        }
        usleep(50000);
    }
    say("less than 3 x 262144 bytes are left for message queues of user " + std::to_string(getuid()));
}

// ---- the first process of the namespaces ----

sigset_t watched_signals() {
    sigset_t watched;
    sigemptyset(&watched);
    sigaddset(&watched, SIGCHLD);
    for (const int number : kForwardedSignals) sigaddset(&watched, number);
    return watched;
}

// Hands signals on to `child` and reaps whatever ends, until `child` has ended. Returns its wait status.
int attend(pid_t child) {
    const sigset_t watched = watched_signals();
    for (;;) {
        int status = 0;
        for (pid_t ended = 0; (ended = waitpid(-1, &status, WNOHANG)) > 0;)
            if (ended == child) return status;
        const int number = sigwaitinfo(&watched, nullptr);
        if (number > 0 && number != SIGCHLD) kill(child, number);
    }
}

[[noreturn]] void run_program(char** command, const sigset_t& original_mask) {
    try {
        raise_ambient();
    } catch (const std::exception& error) {
        say(std::string("the program has no capabilities: ") + error.what());
    }
    sigprocmask(SIG_SETMASK, &original_mask, nullptr);
    exec_program(command);
}

void send_report(int to_launcher, Report::Kind kind, int32_t wait_status) {
    const Report report{kind, wait_status};
    if (write(to_launcher, &report, sizeof report) != sizeof report) _exit(kCannotRun);
}

// To be called once the user id no longer changes, which would undo it.
void die_with_launcher(int to_launcher) {
    prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0);
    pollfd launcher{to_launcher, 0, 0};
    if (poll(&launcher, 1, 0) == 1) _exit(kCannotRun);  // it has died already
}

[[noreturn]] void be_first_process(int go, int to_launcher, const fs::path& root, char** command,
                                   const sigset_t& mask) {
    char word = 0;
    if (read(go, &word, 1) != 1) _exit(kCannotRun);  // the launcher has died
    try {
        mount_or_fail("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
        make_root(root);
        enter_root(root);
        set_queue_limits();
        wait_for_freed_queues();
    } catch (const std::exception& error) {
        say(error.what());
        send_report(to_launcher, Report::kNotIsolated, 0);
        _exit(0);
    }
    die_with_launcher(to_launcher);
    const pid_t program = fork();
    if (program == 0) run_program(command, mask);
    send_report(to_launcher, Report::kEnded, program < 0 ? kCannotRun << 8 : attend(program));
    _exit(0);  // and with us whatever the program left running
}

// ---- the launcher ----

struct Pipe {
    int ends[2];
    Pipe() {
        if (pipe2(ends, O_CLOEXEC) != 0) fail("pipe");
    }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
};

std::string whole_map(const char* path) {
    std::ifstream map(path);
    std::string mapped;
    for (std::string first, outside, count; map >> first >> outside >> count;)
        mapped.append(first).append(" ").append(first).append(" ").append(count).append("\n");
    return mapped;
}

// Every user and group id means the same inside. Without the right to say that, we are user and group 0 there.
void map_ids(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process) + "/";
    const Capabilities mine;
    if (mine.has(CAP_SETUID) && mine.has(CAP_SETGID)) {
        write_text(folder + "uid_map", whole_map("/proc/self/uid_map"));
        write_text(folder + "gid_map", whole_map("/proc/self/gid_map"));
        return;
    }
    const std::string uid = std::to_string(geteuid());
    const std::string gid = std::to_string(getegid());
    write_text(folder + "uid_map", "0 " + uid + " 1\n");
    write_text(folder + "setgroups", "deny");
    write_text(folder + "gid_map", "0 " + gid + " 1\n");
}

pid_t clone_into(unsigned long namespaces) {
    return static_cast<pid_t>(syscall(SYS_clone, namespaces | SIGCHLD, nullptr, nullptr, nullptr, nullptr));
}

// Ends as the program did.
[[noreturn]] void end_like(int wait_status) {
    if (WIFSIGNALED(wait_status)) {
        const rlimit no_core{0, 0};
        setrlimit(RLIMIT_CORE, &no_core);
        const int number = WTERMSIG(wait_status);
        signal(number, SIG_DFL);
        sigset_t only;
        sigemptyset(&only);
        sigaddset(&only, number);
        raise(number);
        sigprocmask(SIG_UNBLOCK, &only, nullptr);
    }
    _exit(WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : kCannotRun);
}

// Runs the program in new namespaces and ends as it did. Returns when they could not be set up.
void run_isolated(unsigned long namespaces, const fs::path& root, char** command, const sigset_t& mask) {
    Pipe go;
    Pipe reports;
    const pid_t first = clone_into(namespaces);
    if (first == 0) {
        close(go.ends[1]);
        close(reports.ends[0]);
        be_first_process(go.ends[0], reports.ends[1], root, command, mask);
    }
    if (first < 0) fail("new namespaces");
    try {
        if ((namespaces & CLONE_NEWUSER) != 0) map_ids(first);
        if (write(go.ends[1], "g", 1) != 1) fail("start of the namespaces");
    } catch (const std::exception&) {
        kill(first, SIGKILL);
        attend(first);
        throw;
    }
    const int own_end = attend(first);
    Report report{Report::kEnded, own_end};
    pollfd waiting{reports.ends[0], POLLIN, 0};
    if (poll(&waiting, 1, 0) == 1 && read(reports.ends[0], &report, sizeof report) != sizeof report) _exit(kCannotRun);
    if (report.kind == Report::kEnded) end_like(report.wait_status);
}

void try_isolated(unsigned long namespaces, const fs::path& root, char** command, const sigset_t& mask) {
    try {
        run_isolated(namespaces, root, command, mask);
    } catch (const std::exception& error) {
        say(error.what());
    }
}

[[noreturn]] void launch(char** command) {
    constexpr unsigned long kOwnWorld = CLONE_NEWIPC | CLONE_NEWNS | CLONE_NEWPID;
    if (!take_own_uid()) wait_for_shared_quota();
    const sigset_t watched = watched_signals();
    sigset_t original_mask;
    sigprocmask(SIG_BLOCK, &watched, &original_mask);

    char root[] = "/tmp/qo_isolated.XXXXXX";
    if (mkdtemp(root) == nullptr) fail("mkdtemp");
    if (Capabilities().has(CAP_SYS_ADMIN)) try_isolated(kOwnWorld, root, command, original_mask);
    try_isolated(kOwnWorld | CLONE_NEWUSER, root, command, original_mask);
    rmdir(root);
    say("NOT ISOLATED: namespaces are forbidden here; the program uses the queues, files and log of the machine");
    run_program(command, original_mask);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        fputs("usage: qo_isolated PROGRAM [ARGUMENT...]\n", stderr);
        return kCannotRun;
    }
    char** command = argv + 1;
    if (is_listing(command)) exec_program(command);
    try {
        launch(command);
    } catch (const std::exception& error) {
        say(error.what());
        return kCannotRun;
    }
}
