// One run of the campaign of faults, and how it is judged.
#include "fault_campaign.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "saved_files.h"

namespace {

namespace fs = std::filesystem;

constexpr eQO_CMP_IDs_ kActor = QO_CMPID_TESTPUBLISHER;
constexpr eQO_CMP_IDs_ kController = QO_CMPID_HVAC_SYSCON_SUB;
constexpr eQO_CMP_IDs_ kNewcomer = static_cast<eQO_CMP_IDs_>(QO_CMPID_DEMO + 1);
constexpr char kDefaultsFile[] = "/kivo/others/defaults.json";
constexpr char kStatisticsFolder[] = "/kivo/data/logs/ppstat";
constexpr char kStatisticsFile[] = "/kivo/data/logs/ppstat/ppstats.csv";
constexpr char kYesterday[] = "a row of yesterday";
constexpr char kOldArchive[] = "/kivo/data/logs/ppstat/0000000001_ppstats.csv.gz";

}  // namespace

const std::vector<QoFaultKind>& qo_fault_kinds() {
    static const std::vector<QoFaultKind> all = {
        {"file",
         kQoOpen | kQoRead | kQoWrite | kQoSync | kQoRename | kQoLink | kQoUnlink | kQoMap | kQoTruncate | kQoMode |
             kQoClose | kQoStat | kQoDirectory | kQoLock | kQoThread,
         QoFaultAct::kFail,
         {0, EIO, ENOSPC, ENOMEM, EMFILE, EACCES, EROFS}},
        {"short", kQoRead | kQoWrite, QoFaultAct::kShort, {0}},
        {"allocation", kQoAllocate, QoFaultAct::kFail, {ENOMEM}},
    };
    return all;
}

std::string QoFault::text() const {
    return std::string(qo_fault_kinds()[kind].name) + "," + std::to_string(call) + "," + std::to_string(stays ? 1 : 0) +
           "," + std::to_string(error) + "," + std::to_string(saves_after ? 1 : 0);
}

QoFault qo_parsed_fault(const std::string& text) {
    std::istringstream words(text);
    std::vector<std::string> parts;
    for (std::string part; std::getline(words, part, ',');) parts.push_back(part);
    if (parts.size() != 5) throw std::runtime_error("--case=KIND,CALL,STAYS,ERRNO,SAVES");
    QoFault fault;
    while (parts[0] != qo_fault_kinds().at(fault.kind).name) ++fault.kind;
    fault.call = std::stoull(parts[1]);
    fault.stays = parts[2] == "1";
    fault.error = std::stoi(parts[3]);
    fault.saves_after = parts[4] == "1";
    return fault;
}

void PrintTo(const QoFaultSituation& situation, std::ostream* stream) { *stream << situation.name; }

std::ostream& operator<<(std::ostream& stream, const QoFaultFigures& all) {
    return stream << all.faults << " faults, " << all.starts << " starts, " << all.with_last << " with the last save, "
                  << all.with_previous << " with the one before, " << all.worse << " worse, " << all.wrong_exits
                  << " wrong exit";
}

// ---- what is known beforehand ----

void QoFaultCampaign::prepare(QoFaultDisk disk) {
    faults_.emplace(service());
    faults_->want_stack();
    forget_faults();
    prepare_disk(QoFaultDisk::kEmpty);
    if (disk == QoFaultDisk::kDefaults) make_defaults();
    make_texts();
}

// What the service flushes here lies in memory. A flush of all disks of a busy machine takes seconds.
void QoFaultCampaign::forget_faults() {
    faults_->clear();
    fault_rules_.clear();
    faults_->add({.calls = kQoSyncAll, .act = QoFaultAct::kLie, .last = kQoAlways});
    faults_->arm();
}

void QoFaultCampaign::make_texts() {
    ASSERT_TRUE(service().start_and_wait());
    {
        Component component(service(), kPublisher);
        for (int number = 0; number <= 4; ++number) {
            if (number > 0) ASSERT_EQ(component.api().publish(kPublisher, qo_tree_number(number)), 0);
            ASSERT_TRUE(save(component));
            texts_.push_back(qo_text_of(kQoSavedFile));
        }
    }
    kill_service();
}

void QoFaultCampaign::make_defaults() {
    ASSERT_TRUE(service().start_and_wait());
    std::string text = Component(service(), kPublisher).active_tree();
    kill_service();
    const std::string member = "\"usb\"";
    ASSERT_THAT(text, testing::HasSubstr(member));
    text.replace(text.find(member), member.size(), "\"site\"");
    defaults_ = text;
    prepare_disk(QoFaultDisk::kDefaults);
}

void QoFaultCampaign::prepare_disk(QoFaultDisk disk) {
    for (const std::string& name : qo_files_in_data_directory()) fs::remove(kQoDataDirectory + name);
    fs::remove_all(kStatisticsFolder);
    fs::remove(kDefaultsFile);
    if (!defaults_.empty()) qo_write_file(kDefaultsFile, defaults_);
    if (disk == QoFaultDisk::kEmpty || texts_.empty()) return;
    qo_write_file(kQoBackUpFile, texts_[1]);
    if (disk == QoFaultDisk::kBackupOnly) return;
    qo_write_file(kQoSavedFile, saved_text(disk));
    if (disk == QoFaultDisk::kStray) {
        qo_write_file(std::string(kQoSavedFile) + ".new.999999", texts_[3].substr(0, 1000));
        qo_write_file(std::string(kQoSavedFile) + ".former.999999", texts_[2]);
    }
}

std::string QoFaultCampaign::saved_text(QoFaultDisk disk) const {
    if (disk == QoFaultDisk::kDamaged) return texts_[2].substr(0, texts_[2].size() / 2);
    return disk == QoFaultDisk::kDiscarded ? qo_hand_edited(texts_[2]) : texts_[2];
}

int QoFaultCampaign::on_disk(QoFaultDisk disk) {
    if (disk == QoFaultDisk::kEmpty) return 0;
    return disk == QoFaultDisk::kSaved || disk == QoFaultDisk::kStray || disk == QoFaultDisk::kDefaults ? 2 : 1;
}

std::vector<uint64_t> QoFaultCampaign::try_fault(const QoFaultSituation& situation,
                                                 const std::optional<QoFault>& fault) {
    begin(situation, fault);
    run_phase();
    std::vector<uint64_t> calls;
    for (const size_t rule : fault_rules_) calls.push_back(faults_->seen(rule));
    const bool hit = was_hit();
    note_fault();
    forget_faults();
    go_on();
    if (service().running()) kill_service();
    if (situation.phase == QoFaultPhase::kStart) expect_files_kept();
    judge(hit);
    return calls;
}

void QoFaultCampaign::note_fault() {
    const bool hit = was_hit();
    hit_ = hit ? faults_->last_hit(fault_rules_[0]) : "nothing";
    stack_ = hit ? faults_->last_stack(fault_rules_[0]) : "";
    log_ = tail_of_log();
}

void QoFaultCampaign::try_harm(const std::function<void()>& harm, int last, bool used) {
    static constexpr QoFaultSituation kHarm = {"Harm", QoFaultDisk::kSaved, QoFaultPhase::kForcedSave};
    begin(kHarm, std::nullopt);
    harmed_ = true;
    patience_ = std::chrono::seconds(2);  // for what may never come
    launch();
    settle();
    harm();
    last_ = last;
    allowed_ = {last, last - 1};
    forget_faults();
    if (used) go_on();
    if (service().running()) kill_service();
    judge(true);
}

void QoFaultCampaign::begin(const QoFaultSituation& situation, const std::optional<QoFault>& fault) {
    situation_ = &situation;
    fault_ = fault;
    was_worse_ = false;
    was_wrong_ = false;
    told_to_end_ = false;
    saved_after_ = false;
    harmed_ = false;
    patience_ = kQoPatience;
    may_fail_ = situation.phase == QoFaultPhase::kStart;
    prepare_disk(situation.disk);
    events().clear_log();
    last_ = on_disk(situation.disk);
    allowed_ = {last_};
    if (last_ == 2) allowed_.insert(1);
    forget_faults();
}

// ---- the phases ----

void QoFaultCampaign::run_phase() {
    switch (situation_->phase) {
        case QoFaultPhase::kStart:
            arm(QoFaultThreads::kAny);
            launch();
            return settle();
        case QoFaultPhase::kForcedSave:
            return forced_save();
        case QoFaultPhase::kTimerSave:
            return timer_save();
        case QoFaultPhase::kStatistics:
            return statistics();
        case QoFaultPhase::kRequest:
            return request();
    }
}

void QoFaultCampaign::arm(QoFaultThreads threads) {
    const auto add = [&](size_t kind, uint64_t first, uint64_t last, int error) {
        return faults_->add({.calls = qo_fault_kinds()[kind].calls,
                             .act = qo_fault_kinds()[kind].act,
                             .error = error,
                             .first = first,
                             .last = last,
                             .threads = threads});
    };
    if (fault_) {
        fault_rules_.push_back(
            add(fault_->kind, fault_->call, fault_->stays ? kQoAlways : fault_->call, fault_->error));
    } else {
        for (size_t kind = 0; kind < qo_fault_kinds().size(); ++kind)
            fault_rules_.push_back(add(kind, kQoAlways, kQoAlways, 0));
    }
    faults_->arm();
}

void QoFaultCampaign::end_faults() {
    for (const size_t rule : fault_rules_) faults_->end(rule);
}

bool QoFaultCampaign::was_hit() const {
    return std::any_of(
        fault_rules_.begin(), fault_rules_.end(), [this](size_t rule) { return faults_->hits(rule) > 0; });
}

void QoFaultCampaign::launch(const std::vector<std::string>& arguments) {
    notifications_ = events().notifications().size();
    service().start(arguments);
    if (!await([&] { return events().notifications().size() > notifications_ || !service().running(); }))
        wrong("neither got ready nor ended");
}

void QoFaultCampaign::settle() {
    if (!service().settles() && service().running()) wrong("hangs");
    end_faults();
}

void QoFaultCampaign::forced_save() {
    launch();
    Component publisher(service(), kPublisher);
    EXPECT_EQ(publisher.api().publish(kPublisher, qo_tree_number(3)), 0);
    settle();
    arm(QoFaultThreads::kMain);
    EXPECT_EQ(publisher.api().flush(kPublisher), 0);
    settle();
    note_save();
}

void QoFaultCampaign::note_save() {
    if (was_saved())
        allowed_ = {last_, 3};
    else
        allowed_.insert(3);
    last_ = 3;
}

// As fast as the other phases: the timers' five and sixty seconds take 20 ms.
void QoFaultCampaign::timer_save() {
    launch();
    Component publisher(service(), kPublisher);
    settle();
    faults_->add({.calls = kQoTimer, .act = QoFaultAct::kHasten, .last = kQoAlways, .milliseconds = 20});
    arm(QoFaultThreads::kOthers);
    EXPECT_EQ(publisher.api().publish(kPublisher, qo_tree_number(3)), 0);
    await([this] { return was_saved() || !service().running() || (fault_ && fault_->stays && was_hit()); });
    end_faults();
    if (service().running() && !await([this] { return was_saved() || !service().running(); }))
        lost("the save is not tried again");
    note_save();
}

void QoFaultCampaign::statistics() {
    fs::create_directories(kStatisticsFolder);
    qo_write_file(kStatisticsFile, std::string("UTC Time\n") + kYesterday + "\n");
    qo_write_file(kOldArchive, "old");
    const timespec long_ago[2] = {{1000000, 0}, {1000000, 0}};
    utimensat(AT_FDCWD, kOldArchive, long_ago, 0);
    qo_write_file(std::string(kQoDataDirectory) + "pushpull_stats.cfg", "1\n");
    faults_->add({.calls = kQoTimer, .act = QoFaultAct::kHasten, .last = kQoAlways, .milliseconds = 20});
    arm(QoFaultThreads::kOthers);
    launch({"-l"});
    await([this] { return (fault_ ? was_hit() : rows().size() > 2) || !service().running(); }, std::chrono::seconds(2));
    end_faults();
    const size_t before = rows().size();
    if (service().running() && !await([&] { return rows().size() > before + 1 || !service().running(); }))
        wrong("writes no statistics any more");
    expect_whole_rows();
}

std::vector<std::string> QoFaultCampaign::rows() {
    std::vector<std::string> all;
    std::string text = qo_text_of(kStatisticsFile);
    text.erase(text.rfind('\n') + 1);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (!line.starts_with("UTC Time") && line != kYesterday) all.push_back(line);
    return all;
}

void QoFaultCampaign::expect_whole_rows() {
    std::set<ptrdiff_t> commas;
    for (const std::string& row : rows()) commas.insert(std::count(row.begin(), row.end(), ','));
    if (commas.size() > 1) lost("rows of the statistics differ in length");
}

/// The components that talk to the service while it is at fault.
struct QoFaultCampaign::Actors {
    explicit Actors(QoServiceProcess& service)
        : publisher(service, kPublisher), actor(service, kActor), controller(service, kController) {
        EXPECT_EQ(actor.api().subscribe(kActor, "/version", false), 0);
    }
    Component publisher;
    Component actor;
    Component controller;
};

void QoFaultCampaign::request() {
    launch();
    auto actors = std::make_optional<Actors>(service());
    settle();
    arm(QoFaultThreads::kMain);
    make_request(*actors);
    settle();
    if (!service().running()) return;
    actors->publisher.drain();
    actors->actor.drain();
    actors->controller.drain();
}

void QoFaultCampaign::make_request(Actors& actors) {
    Component& actor = actors.actor;
    const std::map<std::string, std::function<int()>> requests = {
        {"register", [&] { return actor.api().comp_register(kNewcomer, actor.queue_name(), nullptr); }},
        {"subscribe", [&] { return actor.api().subscribe(kActor, "/system/config;/usb", true); }},
        {"unsubscribe", [&] { return actor.api().un_subscribe(kActor, "/version"); }},
        {"publish", [&] { return actors.publisher.api().publish(kPublisher, qo_tree_number(3)); }},
        {"publish array",
         [&] {
             return actors.publisher.api().publish(kPublisher, R"({"devices":[{"id":3,"name":"hall"},{"id":5}]})");
         }},
        {"get", [&] { return actor.api().get(kActor, "/version;/system/config;/nowhere", "tag", false); }},
        {"get packed", [&] { return actor.api().get(kActor, "/version;/usb;/devices/size", "tag", true); }},
        {"save_debug", [&] { return actor.api().save_complete_tree(kActor); }},
        {"delete", [&] { return actors.controller.api().delete_node(kController, "/ledErrorType/errorType"); }},
        {"clear", [&] { return actor.api().clear(kActor, "/version"); }},
        {"unregister", [&] { return actor.api().comp_unregister(kActor); }},
        {"init",
         [&] {
             may_fail_ = true;
             last_ = 0;
             allowed_ = {0, 1, 2};
             return actor.api().init_request(kActor, "true");
         }},
        {"exit",
         [&] {
             told_to_end_ = true;
             return actor.api().exit_request(kActor, "true");
         }},
        {"sync", [&] { return actor.api().comp_sync(kActor, kController, "/version"); }},
        {"garbage", [&] { return service().post("{\"function\":[\"get\",{}") ? 0 : -1; }},
    };
    EXPECT_EQ(requests.at(situation_->request)(), 0);
}

// ---- afterwards, without faults ----

void QoFaultCampaign::go_on() {
    if (was_wrong_) return;
    if (!service().running()) return take_end();
    if (told_to_end_) return end_by_request();
    Component prober(service(), kPublisher);
    if (!serves(prober)) return;
    if (fault_ && !fault_->saves_after && situation_->phase != QoFaultPhase::kRequest) return;
    events().clear_log();
    EXPECT_EQ(prober.api().publish(kPublisher, qo_tree_number(4)), 0);
    EXPECT_EQ(prober.api().flush(kPublisher), 0);
    if (!await([this] { return was_saved() || !service().running(); }) || !service().running())
        return wrong("does not save any more");
    saved_after_ = true;
    last_ = 4;
    allowed_ = {4};
}

void QoFaultCampaign::take_end() {
    const std::optional<int> status = service().wait_for_end();
    if (!status) return wrong("cannot be waited for");
    if (WIFSIGNALED(*status)) return wrong("ended by signal " + std::to_string(WTERMSIG(*status)));
    if (told_to_end_ || (may_fail_ && (WEXITSTATUS(*status) != 0 || asked_to_be_restarted()))) return;
    wrong("ended with status " + std::to_string(WEXITSTATUS(*status)));
}

// What a service that ends with status 0 tells systemd so that it is started again nevertheless.
bool QoFaultCampaign::asked_to_be_restarted() {
    const std::vector<std::string> all = events().notifications();
    return std::find(all.begin() + static_cast<ptrdiff_t>(notifications_), all.end(), "WATCHDOG=trigger") != all.end();
}

// The first "exit" was lost with the fault.
void QoFaultCampaign::end_by_request() {
    if (!service().settles()) return take_end();
    EXPECT_TRUE(service().post(R"({"function":"register","arg":{"comp_id":1102,"buffer":"/again"}})"));
    EXPECT_TRUE(service().post(R"({"function":"exit","arg":{"comp_id":1102,"buffer":"true"}})"));
    if (!await([this] { return !service().running(); })) return wrong("does not end any more");
    take_end();
    mq_unlink("/again");
}

bool QoFaultCampaign::serves(Component& prober) {
    EXPECT_EQ(prober.api().get(kPublisher, "/version", "probe", false), 0);
    bool answered = false;
    await([&] {
        answered = answered || (prober.waiting_messages() > 0 && prober.next_message().starts_with("sender_id:probe;"));
        return answered || !service().running();
    });
    if (!service().running())
        wrong("has ended");
    else if (!answered)
        wrong("does not answer");
    return answered && service().running();
}

void QoFaultCampaign::expect_files_kept() {
    std::vector<std::string> wanted;
    const int found = on_disk(situation_->disk);
    if (found == 2) wanted.push_back(texts_[2]);
    // A later save puts the former file in the place of the backup.
    const bool backup_went = saved_after_ && (found == 2 || situation_->disk == QoFaultDisk::kDiscarded);
    if (found != 0 && !backup_went) wanted.push_back(texts_[1]);
    for (const std::string& name : qo_files_in_data_directory())
        std::erase(wanted, qo_text_of(kQoDataDirectory + name));
    if (!wanted.empty()) lost("a good file was removed");
}

void QoFaultCampaign::judge(bool hit) {
    if (hit) ++figures_.faults;
    events().clear_log();
    if (!service().start_and_wait()) {
        lost("cannot start any more");
        if (service().running()) kill_service();
        return;
    }
    if (hit) ++figures_.starts;
    bool saved = false;
    {
        Component component(service(), kPublisher);
        saved = bool(save(component));
    }
    kill_service();
    const int number = saved ? number_of(qo_text_of(kQoSavedFile)) : -1;
    if (!allowed_.contains(number))
        return lost("tree " + std::to_string(number) + " instead of one of " + testing::PrintToString(allowed_));
    if (hit) ++(number == last_ ? figures_.with_last : figures_.with_previous);
}

int QoFaultCampaign::number_of(const std::string& text) const {
    for (size_t number = 0; number < texts_.size(); ++number) {
        const std::string digits = std::to_string(number);
        const bool same = situation_->phase == QoFaultPhase::kRequest && number > 0
                              ? text.find("\"schemaVersion\": \"" + digits + "\"") != std::string::npos &&
                                    text.find("\"name\": \"tree " + digits + "\"") != std::string::npos
                              : text == texts_[number];
        if (same) return static_cast<int>(number);
    }
    return -1;
}

// ---- tools ----

bool QoFaultCampaign::await(const std::function<bool()>& condition) { return await(condition, patience_); }

bool QoFaultCampaign::await(const std::function<bool()>& condition, std::chrono::milliseconds patience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::string QoFaultCampaign::tail_of_log() {
    constexpr ptrdiff_t kLines = 12;
    std::vector<QoLogLine> lines = events().log();
    std::erase_if(lines, [](const QoLogLine& line) { return line.level == LOG_DEBUG; });
    std::ostringstream tail;
    for (auto line = lines.end() - std::min<ptrdiff_t>(kLines, std::ssize(lines)); line != lines.end(); ++line)
        tail << "  <" << line->level << "> " << line->text.substr(0, 200) << "\n";
    return tail.str();
}

bool QoFaultCampaign::was_saved() {
    const std::vector<QoLogLine> log = events().log();
    return std::any_of(log.begin(), log.end(),
                       [](const QoLogLine& line) { return line.text.ends_with("Saved the data tree"); });
}

testing::AssertionResult QoFaultCampaign::save(Component& component) {
    events().clear_log();
    if (component.api().flush(kPublisher) != 0) return testing::AssertionFailure() << "flush";
    return events().wait_for_store_log(LOG_INFO, "Saved the data tree");
}

void QoFaultCampaign::kill_service() {
    service().send_signal(SIGKILL);
    ASSERT_TRUE(service().wait_for_end());
}

void QoFaultCampaign::wrong(const std::string& what) {
    if (!was_wrong_) ++figures_.wrong_exits;
    was_wrong_ = true;
    report("WRONG EXIT: the service " + what);
    if (service().running()) kill_service();
}

void QoFaultCampaign::lost(const std::string& what) {
    if (!was_worse_) ++figures_.worse;
    was_worse_ = true;
    report("WORSE: " + what);
}

void QoFaultCampaign::report(const std::string& what) {
    if (!fault_rules_.empty()) note_fault();
    const std::string name = fault_ ? "--case=" + fault_->text() : "without a fault";
    std::cout << situation_->name << " " << name << " (" << hit_ << ") " << what << "\n"
              << stack_ << log_ << std::flush;
    if (!harmed_) ADD_FAILURE() << situation_->name << " " << name << ": " << what;
}
