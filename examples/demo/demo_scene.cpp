/// The scene that scripts/demo plays: starts the service and the example components, shows line by line what each
/// of them sends and is told, and checks every step.
///
///     demo_scene STAND-INS MACHINE-IPC [--shell]
///
/// STAND-INS    folder of harmless programs named like those that the service may run
/// MACHINE-IPC  what /proc/self/ns/ipc is on the machine itself; the demo is private when its own differs
/// --shell      no scene: keeps the service running and opens a shell beside it
///
/// Exit status: 0 when every step was seen, 1 when not, 2 for a wrong command line, 130 after Ctrl-C.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "demo_log.h"
#include "demo_process.h"
#include "demo_service.h"
#include "qo_pushpull_files.h"

namespace {

constexpr std::chrono::seconds kSceneLimit{17};
constexpr std::chrono::seconds kStepLimit{5};
constexpr char kLogCopy[] = "/var/volatile/pushpull.log";
constexpr size_t kLogLinesShown = 60;
constexpr int kInterrupted = 128 + SIGINT;  // exit status, as a shell gives it

// Nothing is awaited beyond it: a demo that hangs is a demo that failed.
const DemoClock::time_point scene_end = DemoClock::now() + kSceneLimit;

DemoClock::time_point step_end() { return std::min(DemoClock::now() + kStepLimit, scene_end); }

// ---- what is printed ----

struct Colours {
    const char* bold = "";
    const char* dim = "";
    const char* red = "";
    const char* green = "";
    const char* yellow = "";
    const char* reset = "";
};

Colours colours_for_stdout() {
    const char* terminal = getenv("TERM");
    if (isatty(STDOUT_FILENO) == 0 || terminal == nullptr || strcmp(terminal, "dumb") == 0) return {};
    return {"\033[1m", "\033[2m", "\033[31m", "\033[32m", "\033[33m", "\033[0m"};
}

const Colours colour = colours_for_stdout();

void print_fact(const char* key, const std::string& value) {
    printf("%s%-9s%s %s\n", colour.dim, key, colour.reset, value.c_str());
}

// A line of a component is "NAME", then a direction: "->" sends, "<-" is told, " ." makes of it.
constexpr size_t kDirectionAt = 19;
constexpr size_t kTextAt = 22;

std::string direction_of(const std::string& line) { return line.size() >= kTextAt ? line.substr(kDirectionAt, 2) : ""; }

void print_line(const std::string& line) {
    const std::string direction = direction_of(line);
    const char* shade = direction == "->" ? colour.yellow : direction == "<-" ? colour.green : colour.dim;
    if (direction.empty()) {
        printf("     %s\n", line.c_str());
    } else {
        printf("     %s%s%s%s%s%s\n", colour.bold, line.substr(0, kDirectionAt).c_str(), colour.reset, shade,
               line.substr(kDirectionAt).c_str(), colour.reset);
    }
}

// ---- components ----

class Component {
public:
    Component(const DemoPlace& place, const std::string& name)
        : name_(name), process_({place.programs + "/" + name, place.instance}) {}

    DemoProcess& process() { return process_; }
    const std::string& name() const { return name_; }

    // Shows its lines up to the next one of this direction, which has to contain `text`.
    void expect(const char* direction, const std::string& text) {
        const auto deadline = step_end();
        while (const auto line = process_.next_line(deadline)) {
            print_line(*line);
            if (direction_of(*line) != direction) continue;
            if (line->find(text) != std::string::npos) return;
            throw NotSeen("the line above should have been: " + name_ + " " + direction + " " + text);
        }
        throw NotSeen(name_ + " " + direction + " " + text);
    }
    void sends(const std::string& text) { expect("->", text); }
    void is_told(const std::string& text) { expect("<-", text); }
    void makes_of_it(const std::string& text) { expect(" .", text); }

    // Shows its last lines and checks that it ends with status 0.
    void ends_well() {
        const auto deadline = step_end();
        while (const auto line = process_.next_line(deadline)) print_line(*line);
        const auto status = process_.wait_for_end(deadline);
        if (!status) throw NotSeen(name_ + " ends");
        if (!WIFEXITED(*status) || WEXITSTATUS(*status) != 0) throw NotSeen(name_ + " ends with status 0");
    }

private:
    const std::string name_;
    DemoProcess process_;
};

std::string temperature_text(const char* degrees) {
    return std::string(R"({"system":{"status":{"systemTemperature":)") + degrees + "}}}";
}

// ---- the scene ----

class Scene {
public:
    Scene(const DemoPlace& place, DemoService& service, DemoLog* log) : place_(place), service_(service), log_(log) {}

    // Throws NotSeen when a step does not happen.
    void play() {
        start_service();
        start_display();
        publish_first_temperature();
        start_change_watcher();
        publish_without_change();
        publish_change();
        raise_alarm();
        let_gateway_write();
        let_late_joiner_fetch();
        stop_service();
    }

private:
    void step(const char* words) {
        printf("\n%s%2d  %s%s\n", colour.bold, ++steps_, words, colour.reset);
        fflush(stdout);
    }
    void seen(const char* words = "seen") { printf("     %sok%s %s\n", colour.green, colour.reset, words); }

    void start_service() {
        step("The service starts on its built-in default tree and tells systemd that it is ready.");
        if (!service_.wait_until_ready(step_end())) throw NotSeen("the service's READY=1");
        seen("READY=1");
    }

    void start_display() {
        step("A display registers, subscribes to two nodes of the tree, and reads what they hold now.");
        display_ = std::make_unique<Component>(place_, "display");
        display_->sends("register");
        display_->sends("subscribe to /system/status");
        display_->sends("subscribe to /system/alarms");
        display_->is_told("sender_id:display;");
        display_->makes_of_it("shows 77 F, no alarm");
        seen();
    }

    void publish_first_temperature() {
        step("The system controller measures 78 F and publishes it: the service tells the display, which subscribed.");
        controller_ = std::make_unique<Component>(place_, "system_controller");
        controller_->sends("register");
        publish_temperature("78");
        display_shows("78", "no alarm");
        seen("the display was told; the controller was not told of its own publish");
    }

    void start_change_watcher() {
        step("A change watcher subscribes too, but only wants to hear of publishes that change something.");
        watcher_ = std::make_unique<Component>(place_, "change_watcher");
        watcher_->sends("register");
        watcher_->sends("changes only");
        watcher_->is_told("sender_id:change_watcher;");
        watcher_->makes_of_it("records 78 F");
        seen();
    }

    void publish_without_change() {
        step("The controller measures 78 F again: the display is told again, the watcher is not.");
        publish_temperature("78");
        display_is_told_of("78");
        seen("that the watcher heard nothing shows in the next step");
    }

    void publish_change() {
        step("It measures 80 F: now both are told.");
        publish_temperature("80");
        display_shows("80", "no alarm");
        watcher_->is_told(temperature_text("80"));
        watcher_->makes_of_it("records 80 F");
        seen("the watcher's first notification is 80 F: the second 78 F never reached it");
    }

    void raise_alarm() {
        step("The cold room gets too warm: the controller publishes an alarm.");
        controller_->process().write_line("alarm Cold room above 41 F");
        controller_->sends("publish {\"system\":{\"alarms\":");
        display_->is_told("{\"system\":{\"alarms\":");
        display_->is_told("sender_id:display;");
        display_->makes_of_it("shows 80 F, ALARM: Cold room above 41 F");
        seen("the watcher subscribed to /system/status only and is not told");
    }

    void let_gateway_write() {
        step(
            "The remote gateway writes for users far away. /system/status is \"local\" and refuses it,\n"
            "    /system/config is \"openAll\" and takes what it writes.");
        Component gateway(place_, "remote_gateway");
        gateway.sends("register");
        gateway.is_told("sender_id:remote_gateway;");
        gateway.sends("publish " + temperature_text("-40"));
        gateway.is_told("sender_id:remote_gateway;");
        gateway.makes_of_it("the temperature is 80: /system/status took nothing");
        show_refusal_in_log();
        gateway.sends("publish {\"system\":{\"config\":{\"name\":");
        gateway.is_told("sender_id:remote_gateway;");
        gateway.makes_of_it("\"North cold room\": /system/config is open to it");
        gateway.makes_of_it("leaves");
        gateway.ends_well();
        // A notification is what was sent, not what was written.
        display_->is_told(temperature_text("-40"));
        display_->is_told("sender_id:display;");
        display_->makes_of_it("shows 80 F, ALARM");
        seen("the display was told of the attempt, read the tree and still shows 80 F");
    }

    void show_refusal_in_log() {
        if (log_ == nullptr) return;
        const std::string refusal = "Component not authorized to update this node value - systemTemperature";
        const std::string line = log_->wait_for(refusal, step_end());
        if (line.empty()) throw NotSeen("the service's log line \"" + refusal + "\"");
        printf("     %s%-19slog: %s%s\n", colour.dim, "service", line.c_str(), colour.reset);
    }

    void let_late_joiner_fetch() {
        step("A late joiner starts when all is published, and gets the parts of the tree that it needs.");
        Component joiner(place_, "late_joiner");
        joiner.sends("register");
        joiner.is_told("sender_id:parts;");
        joiner.is_told("sender_id:parts;");
        joiner.makes_of_it("the system's name is \"North cold room\"");
        joiner.makes_of_it("has 7 of 7 parts of the tree");
        joiner.makes_of_it("leaves");
        joiner.ends_well();
        seen("seven answers came packed, as many to a message as fit in the 4096 bytes of its queue");
    }

    void stop_service() {
        step("The controller asks the service to exit: it answers, tells every component, and all end.");
        controller_->process().write_line("stop-service");
        controller_->sends("exit");
        controller_->is_told("pushpull exiting");
        controller_->is_told("exit");
        display_->is_told("exit");
        watcher_->is_told("exit");
        controller_->ends_well();
        display_->ends_well();
        watcher_->ends_well();
        const auto status = service_.wait_for_end(step_end());
        if (!status) throw NotSeen("the service ends");
        if (*status != 0) throw NotSeen("the service ends with status 0, not " + std::to_string(*status));
        seen("the service and its components ended with status 0");
    }

    void publish_temperature(const char* degrees) {
        controller_->process().write_line(std::string("temperature ") + degrees);
        controller_->sends("publish " + temperature_text(degrees));
    }

    void display_is_told_of(const char* degrees) {
        display_->is_told(temperature_text(degrees));
        display_->is_told("sender_id:display;");
        display_->makes_of_it(std::string("shows ") + degrees + " F");
    }

    void display_shows(const char* degrees, const char* alarm) {
        display_->is_told(temperature_text(degrees));
        display_->is_told("sender_id:display;");
        display_->makes_of_it(std::string("shows ") + degrees + " F, " + alarm);
    }

    const DemoPlace& place_;
    DemoService& service_;
    DemoLog* log_;
    int steps_ = 0;
    std::unique_ptr<Component> controller_;
    std::unique_ptr<Component> display_;
    std::unique_ptr<Component> watcher_;
};

// ---- the two ways to run ----

void print_log(DemoLog* log) {
    if (log == nullptr) {
        printf("\nThe service's log went to this machine's syslog, ident \"PushPull\".\n");
        return;
    }
    std::vector<std::string> lines = log->lines();
    std::erase_if(lines, [](const std::string& line) { return line.compare(0, 6, "debug:") == 0; });
    printf("\nThe end of the service's log, without its debug lines:\n");
    const size_t first = lines.size() > kLogLinesShown ? lines.size() - kLogLinesShown : 0;
    for (size_t line = first; line < lines.size(); ++line) printf("     %s\n", lines[line].c_str());
}

/// Says why the demo ends before its end. @return its exit status
int give_up(const NotSeen& missing, DemoLog* log) {
    if (interrupted()) {
        printf("\nInterrupted; nothing is left running.\n");
        return kInterrupted;
    }
    printf("     %sNOT SEEN%s %s\n", colour.red, colour.reset, missing.what());
    print_log(log);
    return EXIT_FAILURE;
}

int play_scene(const DemoPlace& place, DemoLog* log) {
    try {
        DemoService service(place);
        print_fact("queue", service.queue_size());
        Scene(place, service, log).play();
    } catch (const NotSeen& missing) {
        return give_up(missing, log);
    }
    return EXIT_SUCCESS;
}

// The shell takes its Ctrl-C itself; here it ends nothing.
void run_shell(const DemoPlace& place) {
    const char* rest = getenv("PATH");
    const std::string path = place.programs + ":" + place.stand_ins + ":" + (rest != nullptr ? rest : "/usr/bin:/bin");
    const pid_t shell = fork();
    if (shell == 0) {
        signal(SIGINT, SIG_DFL);
        signal(SIGTERM, SIG_DFL);
        signal(SIGPIPE, SIG_DFL);
        setenv("PATH", path.c_str(), 1);
        setenv("HISTFILE", "", 1);  // the caller's history is not for trying things out
        const std::string settings = place.stand_ins + "/../demo_shell.bash";
        execlp("bash", "bash", "--rcfile", settings.c_str(), "-i", static_cast<char*>(nullptr));
        perror("bash");
        _exit(127);
    }
    while (shell > 0 && waitpid(shell, nullptr, 0) < 0 && errno == EINTR) continue;
}

void print_shell_help(const DemoPlace& place) {
    const std::string with_instance = place.instance.empty() ? "" : " --instance " + place.instance;
    const std::string with_argument = place.instance.empty() ? "" : " " + place.instance;
    printf("\nTry, and \"exit\" to end the service:\n\n");
    printf("     pushpullctl%s tree\n", with_instance.c_str());
    printf("     pushpullctl%s get /system/status\n", with_instance.c_str());
    printf("     pushpullctl%s set --string /system/config/name Shop\n", with_instance.c_str());
    if (place.is_private) printf("     pushpullctl stats                   after a minute\n");
    printf("     pushpullctl --help, man pushpullctl; Tab completes commands, options and pointers\n");
    printf("     display%s &\n", with_argument.c_str());
    printf("     system_controller%s          then type: temperature 80\n", with_argument.c_str());
    if (place.is_private) printf("     tail %s\n", kLogCopy);
    printf("\n");
    fflush(stdout);
}

int keep_running(const DemoPlace& place, DemoLog* log) {
    try {
        // Statistics are files of the machine where the demo has none of its own.
        const auto statistics = place.is_private ? DemoService::Statistics::on : DemoService::Statistics::off;
        DemoService service(place, statistics);
        print_fact("queue", service.queue_size());
        if (!service.wait_until_ready(step_end())) throw NotSeen("the service's READY=1");
        print_fact("service", "ready");
        print_shell_help(place);
        run_shell(place);
        service.ask_to_exit();
        service.wait_for_end(DemoClock::now() + kStepLimit);
        print_fact("service", "ended");
    } catch (const NotSeen& missing) {
        return give_up(missing, log);
    }
    return EXIT_SUCCESS;
}

DemoPlace look_around(const std::string& stand_ins, const std::string& machine_ipc) {
    namespace fs = std::filesystem;
    DemoPlace place;
    place.is_private = fs::read_symlink("/proc/self/ns/ipc") != machine_ipc;
    place.programs = fs::read_symlink("/proc/self/exe").parent_path();
    place.stand_ins = stand_ins;
    place.instance = place.is_private ? "" : "demo" + std::to_string(getpid());
    return place;
}

}  // namespace

int main(int argc, char** argv) {
    const bool shell = argc == 4 && strcmp(argv[3], "--shell") == 0;
    if (argc != 3 && !shell) {
        fputs("usage: demo_scene STAND-INS MACHINE-IPC [--shell]\n", stderr);
        return 2;
    }
    setvbuf(stdout, nullptr, _IOLBF, 0);
    end_waits_on_signals();
    try {
        const DemoPlace place = look_around(argv[1], argv[2]);
        std::unique_ptr<DemoLog> log;
        if (place.is_private) {
            print_fact("place", "IPC, mount and PID namespaces of its own, empty /kivo, own log");
            log = std::make_unique<DemoLog>(shell ? kLogCopy : "");
        } else {
            print_fact("place", "THIS MACHINE: namespaces are forbidden here; the service's queue is /pushpull" +
                                    place.instance + ", its log goes to the machine's syslog");
            if (std::filesystem::exists(QO_DATA_DIRECTORY)) {
                throw NotSeen(std::string(QO_DATA_DIRECTORY) +
                              " of this machine, which the service would change, is in the way");
            }
        }
        return shell ? keep_running(place, log.get()) : play_scene(place, log.get());
    } catch (const std::exception& error) {
        fprintf(stderr, "demo: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
