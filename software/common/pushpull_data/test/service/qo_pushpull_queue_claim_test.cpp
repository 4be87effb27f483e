// Who may serve a queue. The other processes and users are real ones.
#include "qo_pushpull_queue_claim.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "log_capture.h"
#include "qo_scratch_queue.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kName[] = "/claimed";
constexpr uid_t kStranger = 64123;
constexpr QoQueueClaimTimings kImpatient{std::chrono::milliseconds(20), std::chrono::milliseconds(1)};

int lock_error = 0;             // of every flock(); 0: the real one is called
std::function<void()> on_lock;  // before it

constexpr mq_attr asked_for(long messages = 4, long size = 64) {
    mq_attr attributes{};
    attributes.mq_maxmsg = messages;
    attributes.mq_msgsize = size;
    return attributes;
}

/// What another process did until it was told to end, or was killed.
class OtherProcess {
public:
    explicit OtherProcess(const std::function<bool()>& act) {
        int ready[2];
        if (pipe2(ready, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
        process_ = fork();
        if (process_ == 0) {
            const char done = act() ? 'y' : 'n';
            if (write(ready[1], &done, 1) != 1) _exit(1);
            for (;;) pause();
        }
        close(ready[1]);
        char done = 'n';
        succeeded_ = read(ready[0], &done, 1) == 1 && done == 'y';
        close(ready[0]);
    }
    ~OtherProcess() {
        kill_it();
        waitpid(process_, nullptr, 0);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    bool succeeded() const { return succeeded_; }
    void kill_it() const { kill(process_, SIGKILL); }

private:
    pid_t process_ = -1;
    bool succeeded_ = false;
};

// Becomes a user without any rights. False where the machine forbids that.
bool become(uid_t user) {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[2]{};
    return setresuid(user, user, user) == 0 && syscall(SYS_capset, &header, none) == 0;
}

bool make_as_stranger(mode_t mode) {
    umask(0);
    mq_attr attributes = asked_for();
    if (!become(kStranger)) return false;
    const mqd_t queue = mq_open(kName, O_RDWR | O_CREAT | O_EXCL, mode, &attributes);
    return queue != -1 && mq_send(queue, "trap", 5, 1) == 0;
}

struct stat status_of(const std::string& name) {
    struct stat status {};
    EXPECT_EQ(stat(("/dev/mqueue" + name).c_str(), &status), 0) << strerror(errno);
    return status;
}

class QueueClaim : public testing::Test {
protected:
    ~QueueClaim() override {
        mq_unlink(kName);
        lock_error = 0;
        on_lock = nullptr;
    }
    QoLogCapture log_;
};

class ForeignQueue : public QueueClaim {
protected:
    void SetUp() override {
        const OtherProcess stranger([] { return make_as_stranger(0666); });
        if (!stranger.succeeded()) GTEST_SKIP() << "this machine lets us be no other user";
    }
};

QoLogLine critical(const std::string& text) { return {LOG_CRIT, "PushPullData MessageQueue: /claimed " + text}; }

}  // namespace

extern "C" {
int __real_flock(int descriptor, int operation);
int __wrap_flock(int descriptor, int operation);

int __wrap_flock(int descriptor, int operation) {
    if (on_lock) on_lock();
    if (lock_error == 0) return __real_flock(descriptor, operation);
    errno = lock_error;
    return -1;
}
}

// ---- one at a time ----

TEST_F(QueueClaim, OfAnAbsentQueueMakesItAsAskedForWhateverTheUmask) {
    const mode_t before = umask(0777);
    QoServiceQueueClaim claim;
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::held);
    umask(before);
    EXPECT_EQ(status_of(kName).st_mode & ALLPERMS, 0660U);
    const QoScratchQueue made{std::string(kName)};
    EXPECT_EQ(made.attributes().mq_maxmsg, 4);
    EXPECT_EQ(made.attributes().mq_msgsize, 64);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QueueClaim, IsRefusedWhileAnotherProcessHoldsItAndTouchesNoMessage) {
    const QoScratchQueue queue(kName, 4, 64);
    ASSERT_TRUE(queue.put("request"));
    const OtherProcess other(
        [] { return QoServiceQueueClaim(kImpatient).take(kName, asked_for()) == QoServiceQueueClaim::Result::held; });
    ASSERT_TRUE(other.succeeded()) << "a claim ends with its object";
    const OtherProcess holder([] {
        static QoServiceQueueClaim claim(kImpatient);
        return claim.take(kName, asked_for()) == QoServiceQueueClaim::Result::held;
    });
    ASSERT_TRUE(holder.succeeded());
    QoServiceQueueClaim claim(kImpatient);
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::refused);
    EXPECT_THAT(log_.lines(), ElementsAre(critical("is served by another process")));
    EXPECT_EQ(queue.count(), 1);
}

TEST_F(QueueClaim, WaitsForAHolderThatIsBeingKilled) {
    const OtherProcess holder([] {
        static QoServiceQueueClaim claim;
        return claim.take(kName, asked_for()) == QoServiceQueueClaim::Result::held;
    });
    ASSERT_TRUE(holder.succeeded());
    int attempts = 0;
    on_lock = [&] {
        if (++attempts == 2) holder.kill_it();
    };
    QoServiceQueueClaim claim({std::chrono::hours(1), std::chrono::milliseconds(1)});
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::held);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(QueueClaim, TakenAgainStaysHeld) {
    QoServiceQueueClaim claim(kImpatient);
    ASSERT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::held);
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::held);
    QoServiceQueueClaim other(kImpatient);
    EXPECT_EQ(other.take(kName, asked_for()), QoServiceQueueClaim::Result::refused);
}

TEST_F(QueueClaim, TakenAgainAfterTheQueueWasRemovedHoldsTheNewOne) {
    QoServiceQueueClaim claim(kImpatient);
    ASSERT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::held);
    ASSERT_EQ(mq_unlink(kName), 0);
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::held);
    QoServiceQueueClaim other(kImpatient);
    EXPECT_EQ(other.take(kName, asked_for()), QoServiceQueueClaim::Result::refused);
}

TEST_F(QueueClaim, OfAQueueThatIsRemovedBeforeItIsLockedHoldsTheOneThatHasTheNameThen) {
    int attempts = 0;
    on_lock = [&] {
        if (++attempts == 1) EXPECT_EQ(mq_unlink(kName), 0);
    };
    QoServiceQueueClaim claim(kImpatient);
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::made_anew);
    on_lock = nullptr;
    QoServiceQueueClaim other(kImpatient);
    EXPECT_EQ(other.take(kName, asked_for()), QoServiceQueueClaim::Result::refused);
}

TEST_F(QueueClaim, OfAQueueThatIsRemovedAgainAndAgainIsRefused) {
    on_lock = [] { EXPECT_EQ(mq_unlink(kName), 0); };
    QoServiceQueueClaim claim(kImpatient);
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::refused);
    EXPECT_THAT(log_.lines(), ElementsAre(critical("was replaced 5 times while it was taken")));
}

TEST_F(QueueClaim, IsGrantedWhereTheSystemHasNoLocks) {
    lock_error = ENOLCK;
    QoServiceQueueClaim claim(kImpatient);
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::held);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_WARNING,
                                                    "PushPullData MessageQueue: /claimed cannot be locked: No locks "
                                                    "available"}));
}

TEST_F(QueueClaim, OfAnImpossibleNameClaimsNothingAndLeavesTheLineToTheCaller) {
    QoServiceQueueClaim claim;
    EXPECT_EQ(claim.take("/no/such", asked_for()), QoServiceQueueClaim::Result::no_queue);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

// ---- whose queue it is ----

TEST_F(ForeignQueue, IsRemovedAndMadeAnew) {
    QoServiceQueueClaim claim;
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::made_anew);
    EXPECT_THAT(log_.lines(), ElementsAre(critical("belonged to user 64123 and is made anew")));
    EXPECT_EQ(status_of(kName).st_uid, geteuid());
    EXPECT_EQ(QoScratchQueue(std::string(kName)).count(), 0);
}

TEST_F(ForeignQueue, LockedByItsOwnerIsRemovedAllTheSame) {
    const OtherProcess owner([] {
        if (!become(kStranger)) return false;
        const mqd_t queue = mq_open(kName, O_RDWR);
        return queue != -1 && flock(queue, LOCK_EX | LOCK_NB) == 0;
    });
    ASSERT_TRUE(owner.succeeded());
    QoServiceQueueClaim claim({std::chrono::hours(1), std::chrono::milliseconds(1)});
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::made_anew);
}

TEST_F(ForeignQueue, ThatCannotBeRemovedIsNotServed) {
    const QoLogLine line = critical("belongs to user 64123 and cannot be removed: Permission denied");
    const OtherProcess service([&] {
        if (!become(kStranger + 1)) return false;
        QoServiceQueueClaim claim;
        return claim.take(kName, asked_for()) == QoServiceQueueClaim::Result::refused &&
               log_.lines() == std::vector{line};
    });
    EXPECT_TRUE(service.succeeded());
    EXPECT_EQ(status_of(kName).st_uid, kStranger);
}

TEST_F(QueueClaim, OfAQueueOpenToEveryUserIsLogged) {
    const mode_t before = umask(0);
    mq_attr attributes = asked_for();
    const mqd_t open_queue = mq_open(kName, O_RDWR | O_CREAT | O_EXCL, 0662, &attributes);
    umask(before);
    mq_close(open_queue);
    QoServiceQueueClaim claim;
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::held);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(QoLogLine{LOG_WARNING, "PushPullData MessageQueue: /claimed is open to every user (mode 0662)"}));
}

TEST_F(QueueClaim, OfASmallerQueueIsLoggedWithBothSizes) {
    const QoScratchQueue queue(kName, 3, 64);
    QoServiceQueueClaim claim;
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::held);
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_WARNING,
                                      "PushPullData MessageQueue: /claimed holds 3 messages of 64 bytes instead of 4 "
                                      "of 64"}));
}

TEST_F(QueueClaim, OfAQueueWithShorterMessagesIsLoggedWithBothSizes) {
    const QoScratchQueue queue(kName, 5, 63);
    QoServiceQueueClaim claim;
    EXPECT_EQ(claim.take(kName, asked_for()), QoServiceQueueClaim::Result::held);
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_WARNING,
                                      "PushPullData MessageQueue: /claimed holds 5 messages of 63 bytes instead of 4 "
                                      "of 64"}));
}
