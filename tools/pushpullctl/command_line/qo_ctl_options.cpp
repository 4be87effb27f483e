// The command line, its help and what is wrong with it.
#include "qo_ctl_options.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <iostream>

#include "qo_ctl_components.h"
#include "qo_ctl_output.h"
#include "qo_pushpull_constants.h"

namespace {

constexpr char kVersion[] = "pushpullctl 0.1";
constexpr double kShortestTimeoutS = 0.001;
constexpr double kLongestTimeoutS = 3600;
constexpr long kSmallestMessageSize = 512;  // bytes; the shortest answers fit
constexpr size_t kLongestInstance = 200;    // characters; a queue name has 255, and ours add some

/// What CLI11 fills of QoCtlCommon, as text.
struct Words {
    QoCtlOptions options;
    std::optional<std::string> as;
    double timeout_s = 5;
    std::string color = "auto";
};

constexpr char kExitStatuses[] =
    "Exit status: 0 answered or handled, 1 refused or failed, 2 wrong usage (nothing was sent),\n"
    "3 service not reachable, 4 no answer in time, 128 + number when a signal ended it.";

/// CLI11's own check of a range tells its limits with six decimals.
std::string is_timeout(const std::string& text) {
    double seconds = 0;
    const bool fits =
        CLI::detail::lexical_cast(text, seconds) && seconds >= kShortestTimeoutS && seconds <= kLongestTimeoutS;
    return fits ? "" : "\"" + text + "\" is no number of seconds from 0.001 to 3600";
}

void add_common_options(CLI::App& app, Words& words) {
    const char* group = "Options of every command";
    const auto add = [&app, group](const char* name, auto& value, const char* description, const char* type) {
        return app.add_option(name, value, description)->option_text(type)->type_name(type)->group(group);
    };
    add("--as", words.as, "act as this component (see: pushpullctl components)", "NAME|NUMBER");
    add("--instance", words.options.common.instance, "talk to the service that was started with -m SUFFIX", "SUFFIX");
    add("--timeout", words.timeout_s, "how long to wait for each answer (default 5)", "SECONDS")->check(is_timeout);
    add("--message-size", words.options.common.message_size,
        "longest message to receive (default: 262144, or what is allowed)", "BYTES")
        ->check(CLI::Range(kSmallestMessageSize, QO_QUEUE_MSGSIZE));
    add("--color", words.color, "auto, always or never", "WHEN")->check(CLI::IsMember({"auto", "always", "never"}));
    app.add_flag("--json", words.options.common.json_lines, "one JSON text per line on a terminal too")->group(group);
}

/// "", or what is wrong.
using Fault = std::string;

Fault take_identity(const Words& words, QoCtlCommon& common) {
    if (!words.as) return "";
    if (Fault fault = qo_ctl_take_component(*words.as, common.identity); !fault.empty()) return fault;
    if (common.identity == QO_CMPID_PUSHPULL) return "PUSHPULL is the service itself; act as another component";
    return "";
}

Fault complete(Words& words) {
    QoCtlCommon& common = words.options.common;
    if (Fault fault = take_identity(words, common); !fault.empty()) return fault;
    if (common.instance.find('/') != std::string::npos || common.instance.size() > kLongestInstance)
        return "an instance suffix has no \"/\" and at most 200 characters";
    common.timeout = std::chrono::milliseconds(std::lround(words.timeout_s * 1000));
    common.color = words.color == "always"  ? QoCtlColor::always
                   : words.color == "never" ? QoCtlColor::never
                                            : QoCtlColor::automatic;
    return words.options.command->fault();
}

/// What CLI11 says, but for a command that is missing or misspelt, which it does not name.
Fault fault_of(const CLI::App& app, const CLI::ParseError& error) {
    const bool no_command =
        error.get_exit_code() == static_cast<int>(CLI::ExitCodes::RequiredError) && app.get_subcommands().empty();
    if (!no_command) return error.what();
    const std::vector<std::string> rest = app.remaining();
    if (rest.empty()) return "a command is missing";
    return "\"" + rest.front() + "\" is no " + (rest.front().starts_with('-') ? "option" : "command");
}

}  // namespace

std::optional<QoCtlOptions> qo_ctl_parse(int argc, const char* const* argv,
                                         std::span<const std::unique_ptr<QoCtlCommand>> commands, int& status) {
    Words words;
    CLI::App app("Talks to the push-pull data service as one of its components.", "pushpullctl");
    app.set_version_flag("--version", kVersion, "Print the version and exit");
    app.require_subcommand(1);
    app.footer(std::string("\"pushpullctl COMMAND --help\" tells more about a command.\n\n") + kExitStatuses);
    add_common_options(app, words);
    for (const std::unique_ptr<QoCtlCommand>& command : commands) {
        CLI::App* sub = app.add_subcommand(command->help().name, command->help().description);
        sub->footer(command->help().notes);
        QoCtlCommandLine line(*sub);
        command->declare(line);
        add_common_options(*sub, words);
        sub->callback([&words, &command] { words.options.command = command.get(); });
    }

    std::string what;
    try {
        app.parse(argc, argv);
        what = complete(words);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            app.exit(error);  // prints the help or the version
            const bool printed = std::cout.flush().good();
            if (!printed) qo_ctl_say(std::string("cannot write to standard output: ") + std::strerror(errno));
            status = static_cast<int>(printed ? QoCtlStatus::answered : QoCtlStatus::failed);
            return std::nullopt;
        }
        what = fault_of(app, error);
    }
    if (what.empty()) return words.options;
    // Without a command the fault is the command, or an option before it.
    const std::vector<CLI::App*> named = app.get_subcommands();
    const std::string command = named.empty() ? "" : " " + named.front()->get_name();
    qo_ctl_say(what);
    // As with the message itself: nothing can be done when standard error is closed.
    [[maybe_unused]] const bool written = qo_ctl_write(STDERR_FILENO, "Try: pushpullctl" + command + " --help\n");
    status = static_cast<int>(QoCtlStatus::usage);
    return std::nullopt;
}
