// Running a publishing component under the counting tool.
#include "client_library.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

#include "qo_scratch_queue.h"

namespace {

constexpr long kPublishes = 20;         // that are counted, and as many before
constexpr long kEnvelopeSize = 256;     // bytes, more than a request has beside its text
constexpr char kQueue[] = "/pushpull";  // the service's

/// Where its parts end, see the program: at its first opening of the queue, and at each of its three marks.
enum Part : size_t { kWarmedUp = 2, kPublished = 3, kMarked = 4 };

void run(std::vector<std::string> command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& argument : command) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    pid_t process = -1;
    int status = -1;
    if (posix_spawnp(&process, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
        waitpid(process, &status, 0) != process || status != 0)
        throw std::runtime_error("a component that publishes has failed");
}

}  // namespace

QoCost qo_cost_of_client_publish(size_t size, const std::string& folder) {
    mq_unlink(kQueue);  // what a service left
    const QoScratchQueue queue(kQueue, 2 * kPublishes, static_cast<long>(size) + kEnvelopeSize);
    const QoCallgrind counter(folder);
    std::vector<std::string> command = counter.command();
    command.insert(command.end(), {QO_PUBLISHING_COMPONENT, std::to_string(size), std::to_string(kPublishes)});
    run(command);
    return qo_cost_of_one(counter.between(kWarmedUp, kPublished), counter.between(kPublished, kMarked), kPublishes);
}
