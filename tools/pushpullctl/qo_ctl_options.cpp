// The command line, its help and what is wrong with it.
#include "qo_ctl_options.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include "qo_ctl_components.h"
#include "qo_ctl_output.h"
#include "qo_ctl_status.h"
#include "qo_ctl_text.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_json.h"

namespace {

constexpr char kVersion[] = "pushpullctl 0.1";
constexpr double kShortestTimeoutS = 0.001;
constexpr double kLongestTimeoutS = 3600;
constexpr long kSmallestMessageSize = 512;  // bytes; the shortest answers fit
constexpr size_t kLongestInstance = 200;    // characters; a queue name has 255, and ours add some
constexpr uint64_t kMostNotifications = 1000000000;
constexpr size_t kMostRows = 1000000000;

// ---- what the command line says, as text ----

/// What CLI11 fills; turned into QoCtlOptions once all of it is there.
struct Words {
    QoCtlOptions options;
    std::optional<std::string> as;
    std::string pointer;  // of a command that takes one
    std::string destination;
    double timeout_s = 5;
    std::string color = "auto";
    std::string publish_text;
    std::string file;
    bool yes = false;
    bool no_dump = false;
};

struct CommandRow {
    QoCtlCommand command;
    const char* name;
    const char* description;
    const char* notes;  // behind the options of its help: what to know, and an example
    void (*add_options)(CLI::App&, Words&);
};

void add_pointers(CLI::App& app, Words& words) {
    app.add_option("POINTER", words.options.pointers, "JSON pointer, as /system/config")->required()->type_name("");
}

void add_pointer(CLI::App& app, Words& words) {
    app.add_option("POINTER", words.pointer, "JSON pointer, as /system/config")->required()->type_name("");
}

void add_get(CLI::App& app, Words& words) {
    add_pointers(app, words);
    auto* pack =
        app.add_flag("--pack", words.options.pack, "let the service join the answers in as few messages as fit");
    app.add_flag("--size", words.options.size, "ask for the numbers of elements of arrays")->excludes(pack);
}

void add_publish(CLI::App& app, Words& words) {
    auto* text = app.add_option("JSON", words.publish_text, "the JSON object to merge; - reads standard input");
    text->type_name("");
    app.add_option("--file", words.file, "read the JSON object from a file")->type_name("FILE")->excludes(text);
}

void add_subscribe(CLI::App& app, Words& words) {
    add_pointers(app, words);
    app.add_flag("--changes", words.options.on_change_only, "only publishes that changed the tree");
    app.add_option("--count", words.options.count, "end after this many notifications")
        ->option_text("N")
        ->check(CLI::Range(uint64_t{1}, kMostNotifications));
}

void add_sync(CLI::App& app, Words& words) {
    app.add_option("DEST", words.destination, "component, by name or number")->required()->type_name("");
    app.add_option("TEXT", words.options.text, "the text to forward")->required()->type_name("");
}

void add_yes(CLI::App& app, Words& words) { app.add_flag("--yes", words.yes, "do it; without it nothing is sent"); }

void add_tree(CLI::App& app, Words& words) {
    app.add_flag("--no-dump", words.no_dump, "ask for the known top-level members instead of a dump");
}

void add_stats(CLI::App& app, Words& words) {
    app.add_option("FILE", words.options.files, "the log or its archives (default: all that the service wrote)")
        ->type_name("");
    app.add_option("--rows", words.options.rows, "how many of the last rows to show (default 20)")
        ->option_text("N")
        ->check(CLI::Range(size_t{0}, kMostRows));
    app.add_option("--plot", words.options.plot, "draw all rows as a picture (SVG)")->option_text("FILE");
}

void add_queues(CLI::App& app, Words& words) {
    app.add_flag("--watch", words.options.watch, "show them again every second, until q or Ctrl-C");
}

void add_file(CLI::App& app, Words& words) {
    app.add_option("FILE", words.options.files, "the file to check")->required()->expected(1)->type_name("");
}

void add_nothing(CLI::App&, Words&) {}

const CommandRow kCommands[] = {
    {QoCtlCommand::get, "get", "Read nodes of the data tree",
     "Each answer keeps the path from the root; a node of an array comes alone in its array.\n"
     "With --size the answer is a number. Ends with 1 when a node does not exist.\n\n"
     "Example:\n  pushpullctl get /system/config /version\n  pushpullctl get --size /devices",
     add_get},
    {QoCtlCommand::publish, "publish", "Merge a JSON object into the data tree",
     "0 means that the service has handled it. A refusal (no write authority, an id too large)\n"
     "is only in the service's log.\n\n"
     "Example:\n  pushpullctl publish '{\"system\":{\"config\":{\"name\":\"Shop\"}}}'\n"
     "  pushpullctl publish --file change.json\n  generate | pushpullctl publish -",
     add_publish},
    {QoCtlCommand::subscribe, "subscribe", "Follow what is published below pointers",
     "Prints each published text until Ctrl-C, or until --count of them. A text that is not JSON,\n"
     "as \"NODE DELETED: /x\", is printed as a JSON string. / follows the whole tree; other pointers\n"
     "have to name an object or an array of the service's default tree, no value and no element.\n\n"
     "Example:\n  pushpullctl subscribe /system/status /devices\n"
     "  pushpullctl subscribe --changes --count 1 /logs",
     add_subscribe},
    {QoCtlCommand::delete_node, "delete", "Remove a node of the data tree",
     "Only the identifiers HVAC_SYSCON_SUB to HVAC_SYSCON_END may delete; without --as it is one of them.\n"
     "An array element that is not the last leaves {\"id\": its position}.\n\n"
     "Example:\n  pushpullctl delete /devices/2",
     add_pointer},
    {QoCtlCommand::clear, "clear", "Set a node back to its default",
     "The restored node is published to its subscribers. A node that the default tree does not have\n"
     "is deleted, and pushpullctl ends with 1.\n\n"
     "Example:\n  pushpullctl clear /logs",
     add_pointer},
    {QoCtlCommand::save, "save", "Save the data tree now",
     "0 means that the service has handled it; whether the file could be written is in its log.\n\n"
     "Example:\n  pushpullctl save",
     add_nothing},
    {QoCtlCommand::dump, "dump", "Let the service write its whole tree to a file",
     "Says where. \"seen\" tells whether the file could be seen to be written from here.\n\n"
     "Example:\n  pushpullctl dump",
     add_nothing},
    {QoCtlCommand::sync, "sync", "Forward a text to another component",
     "The component is sent sync:ID:TEXT with the identifier of the sender. 0 means that the service\n"
     "has handled it; whether the component was there is in the service's log.\n\n"
     "Example:\n  pushpullctl sync SCHEDULER reload",
     add_sync},
    {QoCtlCommand::init, "init", "Reset the service to factory data",
     "Deletes the saved tree and its backup and drops every registration and subscription: all\n"
     "components have to register again. Waits until the service is back.\n\n"
     "Example:\n  pushpullctl init --yes",
     add_yes},
    {QoCtlCommand::exit, "exit", "End the service",
     "Every registered component is sent \"exit\". Changes that were not saved yet are lost.\n\n"
     "Example:\n  pushpullctl save && pushpullctl exit --yes",
     add_yes},
    {QoCtlCommand::tree, "tree", "Show the whole data tree",
     "Lets the service write its debug dump and reads that, where the dump can be seen from here;\n"
     "otherwise, and with --no-dump, asks for the known top-level members one by one.\n\n"
     "Example:\n  pushpullctl tree --color always | less -R",
     add_tree},
    {QoCtlCommand::components, "components", "List the component identifiers",
     "Needs no service.\n\nExample:\n  pushpullctl components", add_nothing},
    {QoCtlCommand::queues, "queues", "Show how full the message queues are",
     "Needs no running service. Lists what the message queue file system shows, usually at /dev/mqueue.\n"
     "With --watch also for how many seconds each queue has been seen full without a break: a component's\n"
     "queue that stays full for 120 restarts the device.\n\n"
     "Example:\n  pushpullctl queues --watch",
     add_queues},
    {QoCtlCommand::stats, "stats", "Show the statistics that the service writes",
     "Needs no service; the service writes them when it is started with -l. Prints a table of the last\n"
     "rows and one of the totals of every queue, with --json the rows as JSON. A row that cannot be read\n"
     "is reported and skipped.\n\n"
     "Example:\n  pushpullctl stats\n  pushpullctl stats --plot week.svg /kivo/data/logs/ppstat/*",
     add_stats},
    {QoCtlCommand::check_saved, "check-saved", "Check a saved tree and say what the service would do with it",
     "Needs no service. When the file is not good, its backup (FILE.bak) is checked as well.\n"
     "Ends with 0 when FILE is good, with 1 when it is not.\n\n"
     "Example:\n  pushpullctl check-saved /kivo/data/saved_tree.json",
     add_file},
    {QoCtlCommand::check_defaults, "check-defaults", "Look for mistakes in a file of defaults",
     "Needs no service. One line for each mistake with the place, then their number. Ends with 0 when\n"
     "there is none, with 1 otherwise.\n\n"
     "Example:\n  pushpullctl check-defaults defaults.json && cp defaults.json /kivo/others/",
     add_file},
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
    add("--instance", words.options.instance, "talk to the service that was started with -m SUFFIX", "SUFFIX");
    add("--timeout", words.timeout_s, "how long to wait for each answer (default 5)", "SECONDS")->check(is_timeout);
    add("--message-size", words.options.message_size,
        "longest message to receive (default: 262144, or what is allowed)", "BYTES")
        ->check(CLI::Range(kSmallestMessageSize, QO_QUEUE_MSGSIZE));
    add("--color", words.color, "auto, always or never", "WHEN")->check(CLI::IsMember({"auto", "always", "never"}));
    app.add_flag("--json", words.options.json_lines, "one JSON text per line on a terminal too")->group(group);
}

// ---- from words to options ----

/// "" and `words.options` complete, or what is wrong.
using Fault = std::string;

Fault take_component(const std::string& text, eQO_CMP_IDs_& id) {
    const std::optional<eQO_CMP_IDs_> found = qo_ctl_component_id(text);
    if (!found) return "\"" + text + "\" is no component; see: pushpullctl components";
    id = *found;
    return "";
}

Fault take_common(Words& words) {
    QoCtlOptions& options = words.options;
    if (words.as) {
        if (Fault fault = take_component(*words.as, options.identity); !fault.empty()) return fault;
        if (options.identity == QO_CMPID_PUSHPULL) return "PUSHPULL is the service itself; act as another component";
    }
    if (options.instance.find('/') != std::string::npos || options.instance.size() > kLongestInstance)
        return "an instance suffix has no \"/\" and at most 200 characters";
    options.timeout = std::chrono::milliseconds(std::lround(words.timeout_s * 1000));
    options.color = words.color == "always"  ? QoCtlColor::always
                    : words.color == "never" ? QoCtlColor::never
                                             : QoCtlColor::automatic;
    return "";
}

Fault check_pointers(const QoCtlOptions& options) {
    for (const std::string& pointer : options.pointers) {
        if (std::string fault = qo_ctl_pointer_fault(pointer); !fault.empty())
            return std::string(pointer).append(": ").append(fault);
        const bool root = qo_ctl_segments(pointer).empty();
        if (root && options.command == QoCtlCommand::get)
            return "the service does not give the whole tree in one answer; use: pushpullctl tree";
        if (root && options.command != QoCtlCommand::subscribe) return "the whole tree cannot be deleted or cleared";
        if (options.size && pointer.find("/size") != std::string::npos)
            return pointer + ": the service cuts a size query at the first \"/size\"";
    }
    return "";
}

/// Reads a stream to its end, or as far as no request could hold it any more.
std::string read_all(std::istream& stream) {
    std::string text;
    char piece[4096];
    while (text.size() <= static_cast<size_t>(QO_QUEUE_MSGSIZE) && stream) {
        stream.read(piece, sizeof piece);
        text.append(piece, static_cast<size_t>(stream.gcount()));
    }
    return text;
}

Fault read_publish_text(Words& words) {
    std::string& text = words.options.text;
    if (!words.file.empty()) {
        std::ifstream file(words.file, std::ios::binary);
        if (!file) return words.file + ": " + std::strerror(errno);
        text = read_all(file);
        if (file.bad()) return words.file + ": cannot be read";
    } else if (words.publish_text == "-") {
        text = read_all(std::cin);
    } else if (!words.publish_text.empty()) {
        text = words.publish_text;
    } else {
        return "nothing to publish: give a JSON object, --file FILE, or - for standard input";
    }
    return "";
}

Fault take_publish(Words& words) {
    if (Fault fault = read_publish_text(words); !fault.empty()) return fault;
    const std::string& text = words.options.text;
    if (text.size() > static_cast<size_t>(QO_QUEUE_MSGSIZE))
        return "the text is longer than a request can be (" + std::to_string(QO_QUEUE_MSGSIZE) + " bytes)";
    const QoJsonNode node = qo_json_parse(text);
    if (!node) return "the text to publish is not valid JSON";
    if (json_type(node.get()) != JSON_NODE) return "the text to publish is not a JSON object";
    return "";
}

Fault take_sync(Words& words) {
    const std::string& text = words.options.text;
    if (!QoJsonNode(json_new_a_n("", 0, text.data(), text.size()))) return "the text to forward is not valid UTF-8";
    return take_component(words.destination, words.options.destination);
}

Fault take_command(Words& words) {
    switch (words.options.command) {
        case QoCtlCommand::publish:
            return take_publish(words);
        case QoCtlCommand::delete_node:
        case QoCtlCommand::clear:
            words.options.pointers = {words.pointer};
            return check_pointers(words.options);
        case QoCtlCommand::sync:
            return take_sync(words);
        case QoCtlCommand::init:
            return words.yes ? "" : "init deletes the saved tree and drops every registration; say --yes to do it";
        case QoCtlCommand::exit:
            return words.yes ? "" : "exit ends the service for every component; say --yes to do it";
        default:
            words.options.ask_for_dump = !words.no_dump;
            return check_pointers(words.options);
    }
}

Fault complete(Words& words) {
    if (Fault fault = take_common(words); !fault.empty()) return fault;
    return take_command(words);
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

std::optional<QoCtlOptions> qo_ctl_parse(int argc, const char* const* argv, int& status) {
    Words words;
    CLI::App app("Talks to the push-pull data service as one of its components.", "pushpullctl");
    app.set_version_flag("--version", kVersion, "Print the version and exit");
    app.require_subcommand(1);
    app.footer(std::string("\"pushpullctl COMMAND --help\" tells more about a command.\n\n") + kExitStatuses);
    add_common_options(app, words);
    for (const CommandRow& row : kCommands) {
        CLI::App* command = app.add_subcommand(row.name, row.description);
        command->footer(row.notes);
        row.add_options(*command, words);
        add_common_options(*command, words);
        command->callback([&words, &row] { words.options.command = row.command; });
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
    const std::vector<CLI::App*> commands = app.get_subcommands();
    const std::string command = commands.empty() ? "" : " " + commands.front()->get_name();
    qo_ctl_say(what);
    // As with the message itself: nothing can be done when standard error is closed.
    [[maybe_unused]] const bool written = qo_ctl_write(STDERR_FILENO, "Try: pushpullctl" + command + " --help\n");
    status = static_cast<int>(QoCtlStatus::usage);
    return std::nullopt;
}
