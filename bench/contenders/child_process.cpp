// Starting and ending the programs that are compared.
#include "child_process.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

namespace {

// Short against what a start takes.
constexpr std::chrono::microseconds kPause{50};

std::vector<char*> pointers_to(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

QoChildProcess::QoChildProcess(std::vector<std::string> command, const std::vector<std::string>& variables) {
    std::vector<std::string> environment = variables;
    for (char** variable = environ; *variable != nullptr; ++variable) environment.emplace_back(*variable);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    for (int descriptor = 0; descriptor < 3; ++descriptor)
        posix_spawn_file_actions_addopen(&files, descriptor, "/dev/null", O_RDWR, 0);
    const int error = posix_spawn(&process_, command[0].c_str(), &files, nullptr, pointers_to(command).data(),
                                  pointers_to(environment).data());
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) throw std::runtime_error("cannot start " + command[0]);
}

QoChildProcess::~QoChildProcess() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

void qo_retry(const std::string& what, const std::function<bool()>& attempt) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(kQoPatience_s);
    while (!attempt()) {
        if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error(what + " does not work");
        std::this_thread::sleep_for(kPause);
    }
}

int qo_free_port() {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const bool found = bind(descriptor, reinterpret_cast<const sockaddr*>(&address), size) == 0 &&
                       getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0;
    close(descriptor);
    if (!found) throw std::runtime_error("no port of the loopback interface");
    return ntohs(address.sin_port);
}
