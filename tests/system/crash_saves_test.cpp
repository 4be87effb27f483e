// The service is killed at every system call of a save, one after the other, and started again each time. It must
// start with the last or the previous saved tree, never with less, never with a mixture.
//
// Without options a sample of the calls is tried; tests/system/crash_saves tries all of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <stddef.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <thread>

#include "call_cutter.h"
#include "component.h"
#include "saved_files.h"
#include "service_process.h"

namespace {

namespace fs = std::filesystem;

constexpr eQO_CMP_IDs_ kPublisher = QO_CMPID_DEMO;

// Of the calls of a save, every so many are tried; a save by the timer takes its five seconds.
size_t request_step = 3;
size_t timer_step = 16;

/// What lies on the disk when the service that is to be killed starts.
enum class Disk { kEmpty, kSaved, kDiscardedFileAndBackUp, kDiscardedFileAlone };
/// Whether a first save is made before the one that is cut.
enum class FirstSave { kNone, kMade };
enum class HardLinks { kMade, kRefused };

struct Situation {
    const char* name;
    Disk disk;
    FirstSave first_save;
    HardLinks hard_links;
    QoSaver saver;

    friend void PrintTo(const Situation& situation, std::ostream* stream) { *stream << situation.name; }
};

constexpr Situation kSituations[] = {
    {"FirstSaveEver", Disk::kEmpty, FirstSave::kNone, HardLinks::kMade, QoSaver::kMainThread},
    {"NoBackup", Disk::kEmpty, FirstSave::kMade, HardLinks::kMade, QoSaver::kMainThread},
    {"SavedFileAndBackup", Disk::kSaved, FirstSave::kMade, HardLinks::kMade, QoSaver::kMainThread},
    {"SavedFileDiscardedAtStart", Disk::kDiscardedFileAndBackUp, FirstSave::kNone, HardLinks::kMade,
     QoSaver::kMainThread},
    {"SavedFileDiscardedAtStartWithoutBackup", Disk::kDiscardedFileAlone, FirstSave::kNone, HardLinks::kMade,
     QoSaver::kMainThread},
    {"HardLinksRefused", Disk::kSaved, FirstSave::kMade, HardLinks::kRefused, QoSaver::kMainThread},
    {"HardLinksRefusedAndSavedFileDiscarded", Disk::kDiscardedFileAndBackUp, FirstSave::kNone, HardLinks::kRefused,
     QoSaver::kMainThread},
    {"SaveByTheTimer", Disk::kSaved, FirstSave::kMade, HardLinks::kMade, QoSaver::kTimerThread},
    {"SaveByTheTimerAndSavedFileDiscarded", Disk::kDiscardedFileAndBackUp, FirstSave::kNone, HardLinks::kMade,
     QoSaver::kTimerThread},
};

/// From now on this thread and what it starts can make no hard links, as on a file system without them.
void refuse_hard_links() {
    sock_filter rules[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
#ifdef SYS_link
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_link, 2, 0),
#else
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_linkat, 2, 0),
#endif
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_linkat, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
    };
    const sock_fprog program{std::size(rules), rules};
    ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0) << strerror(errno);
}

class CrashDuringSave : public ServiceProcess, public testing::WithParamInterface<Situation> {
protected:
    /// Makes the texts of the saved file for a tree without any publish and with the numbers 1 to 3.
    void make_texts() {
        start(HardLinks::kMade);
        Component component(service(), kPublisher);
        for (int number = 0; number <= 3; ++number) {
            if (number > 0) ASSERT_EQ(component.api().publish(kPublisher, qo_tree_number(number)), 0);
            save(component);
            texts_.push_back(qo_text_of(kQoSavedFile));
        }
        ASSERT_THAT(texts_, testing::SizeIs(4));
        kill_service();
    }

    void start(HardLinks hard_links) {
        events().clear_log();
        std::thread starter([this, hard_links] {
            if (hard_links == HardLinks::kRefused) refuse_hard_links();
            ASSERT_TRUE(service().start_and_wait());
        });
        starter.join();
    }

    void kill_service() {
        service().send_signal(SIGKILL);
        ASSERT_TRUE(service().wait_for_end());
    }

    void save(Component& component) {
        ASSERT_EQ(component.api().flush(kPublisher), 0);
        component.fence();
        ASSERT_TRUE(events().wait_for_store_log(LOG_INFO, "Saved the data tree"));
    }

    void prepare_disk() const {
        for (const std::string& name : qo_files_in_data_directory()) fs::remove(kQoDataDirectory + name);
        if (GetParam().disk == Disk::kEmpty) return;
        const bool discarded = GetParam().disk != Disk::kSaved;
        qo_write_file(kQoSavedFile, discarded ? qo_hand_edited(texts_[1]) : texts_[1]);
        if (GetParam().disk == Disk::kDiscardedFileAndBackUp) qo_write_file(kQoBackUpFile, texts_[1]);
    }

    /// The tree before the cut save: the number of the one that was saved or loaded last.
    int previous() const {
        if (GetParam().first_save == FirstSave::kMade) return 2;
        return GetParam().disk == Disk::kDiscardedFileAndBackUp ? 1 : 0;
    }

    /// One service that is killed at a call of its save. @return the number of calls it made
    size_t crash_at(size_t call) {
        prepare_disk();
        start(GetParam().hard_links);
        size_t calls = 0;
        {
            Component component(service(), kPublisher);
            if (GetParam().first_save == FirstSave::kMade) {
                EXPECT_EQ(component.api().publish(kPublisher, qo_tree_number(2)), 0);
                save(component);
            }
            const bool by_request = GetParam().saver == QoSaver::kMainThread;
            if (by_request) EXPECT_EQ(component.api().publish(kPublisher, qo_tree_number(3)), 0);
            // The store's own timer thread must not be the first new one to be seen.
            if (!by_request && GetParam().first_save == FirstSave::kNone) start_timer_thread(component);
            EXPECT_TRUE(service().wait_until_idle());
            QoCallCutter cutter(service().pid(), GetParam().saver);
            calls = cutter.cut(call, [&] {
                EXPECT_EQ(by_request ? component.api().flush(kPublisher)
                                     : component.api().publish(kPublisher, qo_tree_number(3)),
                          0);
            });
            EXPECT_TRUE(service().wait_for_end());
        }
        return calls;
    }

    /// Lets the system library start the thread that waits for timers; it stays from then on.
    void start_timer_thread(Component& component) {
        EXPECT_EQ(component.api().publish(kPublisher, qo_tree_number(previous())), 0);
        component.fence();
    }

    /// Starts the service on what the dead one left.
    void expect_good_start(size_t call) {
        SCOPED_TRACE("killed before call " + std::to_string(call));
        ++cut_points_;
        start(HardLinks::kMade);
        const bool clean = testing::Matches(testing::Each(testing::AnyOf("saved_tree.json", "saved_tree.json.bak")))(
            qo_files_in_data_directory());
        EXPECT_TRUE(clean) << "stray files after the start";
        {
            Component component(service(), kPublisher);
            save(component);
        }
        kill_service();
        const std::string tree = qo_text_of(kQoSavedFile);
        const bool last = tree == texts_[3];
        const bool before = tree == texts_[static_cast<size_t>(previous())];
        EXPECT_TRUE(last || before) << tree;
        with_last_ += last ? 1 : 0;
        with_previous_ += before ? 1 : 0;
        good_starts_ += clean && (last || before) ? 1 : 0;
    }

    std::vector<std::string> texts_;
    size_t cut_points_ = 0;
    size_t good_starts_ = 0;
    size_t with_last_ = 0;
    size_t with_previous_ = 0;
};

TEST_P(CrashDuringSave, LeavesTheLastOrThePreviousTree) {
    ASSERT_NO_FATAL_FAILURE(make_texts());
    const size_t step = GetParam().saver == QoSaver::kTimerThread ? timer_step : request_step;
    const size_t calls = crash_at(QoCallCutter::kAtTheEnd);
    expect_good_start(calls);
    EXPECT_EQ(with_last_, 1U) << "a save that was complete is not there";
    EXPECT_GT(calls, 10U) << "the calls of the save were not seen";
    for (size_t call = 0; call < calls && !HasFatalFailure(); call += step) {
        EXPECT_EQ(crash_at(call), call);
        expect_good_start(call);
    }
    EXPECT_GT(with_previous_, 0U);
    std::cout << GetParam().name << ": " << cut_points_ << " cut points, " << good_starts_ << " good starts ("
              << with_last_ << " with the last tree, " << with_previous_ << " with the one before)" << std::endl;
    EXPECT_EQ(good_starts_, cut_points_);
}

INSTANTIATE_TEST_SUITE_P(System, CrashDuringSave, testing::ValuesIn(kSituations),
                         [](const testing::TestParamInfo<Situation>& situation) {
                             return std::string(situation.param.name);
                         });

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        if (!qo_take_option(argv[i], "--request-step=", request_step) &&
            !qo_take_option(argv[i], "--timer-step=", timer_step)) {
            std::cerr << "usage: " << argv[0] << " [--request-step=N] [--timer-step=N]\n";
            return 2;
        }
    }
    return RUN_ALL_TESTS();
}
