// The registry of components: who is in it, on which queue, and what opening and closing a queue does.
#include "qo_resource_mgr.h"

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <sys/stat.h>

#include "log_capture.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_error_codes.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_scratch_queue.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What the registry asked mq_open to create. A queue of 64 x 262144 bytes needs a privilege, so the kernel is asked
// for a small one instead.
std::vector<mq_attr> created_attributes;

size_t open_descriptors() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

mode_t mode_of(mqd_t descriptor) {
    struct stat status {};
    fstat(descriptor, &status);
    return status.st_mode & 0777U;
}

mq_attr small_attributes() {
    mq_attr attributes{};
    attributes.mq_maxmsg = 1;
    attributes.mq_msgsize = 16;
    return attributes;
}

constexpr auto kFirst = QO_CMPID_DEMO;
constexpr auto kSecond = QO_CMPID_ALERTS;
constexpr auto kThird = QO_CMPID_SCHEDULER;

// A numbered component that is none of the above.
eQO_CMP_IDs_ component(int number) { return static_cast<eQO_CMP_IDs_>(2000 + number); }
std::string queue_of(int number) { return "/component" + std::to_string(number); }

class Registry : public testing::Test {
protected:
    void SetUp() override {
        created_attributes.clear();
        log_.clear();  // the monitor's start
        errno = 0;
    }
    ~Registry() override {
        registry_.terminate();
        for (int number = 0; number <= QO_MAX_RESOURCES; ++number) mq_unlink(queue_of(number).c_str());
        for (const char* name : {"/a", "/b", "/c", "/other"}) mq_unlink(name);
    }

    int32_t add(eQO_CMP_IDs_ comp_id, const std::string& queue_name) {
        const mq_attr attributes = small_attributes();
        return registry_.comp_register(comp_id, queue_name, &attributes);
    }
    void add_three() {
        ASSERT_EQ(add(kFirst, "/a"), 0);
        ASSERT_EQ(add(kSecond, "/b"), 0);
        ASSERT_EQ(add(kThird, "/c"), 0);
        log_.clear();
    }
    void fill() {
        for (int number = 0; number < QO_MAX_RESOURCES; ++number)
            ASSERT_EQ(add(component(number), queue_of(number)), 0);
        log_.clear();
    }

    QoLogCapture log_;
    ResourceMgr registry_;
};

using OpenMsgQueue = Registry;
using Lookup = Registry;
using Unregister = Registry;

}  // namespace

extern "C" {
mqd_t __real_mq_open(const char* name, int flags, ...);
mqd_t __wrap_mq_open(const char* name, int flags, ...);

mqd_t __wrap_mq_open(const char* name, int flags, ...) {
    if ((flags & O_CREAT) == 0) return __real_mq_open(name, flags);
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    mq_attr attributes = *va_arg(arguments, mq_attr*);
    va_end(arguments);
    created_attributes.push_back(attributes);
    if (attributes.mq_msgsize == QO_QUEUE_MSGSIZE) attributes = small_attributes();
    return __real_mq_open(name, flags, mode, &attributes);
}
}

// ---- registering ----

TEST_F(Registry, IdentifierZeroIsRefused) {
    EXPECT_EQ(add(QO_CMPID_RESERVED, "/a"), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "Invalid Res_ID [QO_CMPID_RESERVED] = 0"}));
    EXPECT_EQ(registry_.get_no_of_resources(), 0);
}

TEST_F(Registry, NewComponentIsStoredAndItsQueueSupervised) {
    const QoScratchQueue queue("/a", 4, 64);
    EXPECT_EQ(add(kFirst, "/a"), 0);
    EXPECT_TRUE(registry_.is_comp_registered(kFirst));
    EXPECT_EQ(registry_.get_resource_queuename(kFirst), "/a");
    EXPECT_GT(registry_.getMsg_queue_descriptor(kFirst), 0);
    EXPECT_EQ(registry_.get_no_of_resources(), 1);
    EXPECT_EQ(registry_.monitor().getQueueNames(), "/a(Total),/a(Saves),/a(Max),/a(Avg)");
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_INFO, "QoPushPullQueueMonitor: Adding queue /a (component ID " +
                                                                  std::to_string(kFirst) + ")"}));
}

TEST_F(Registry, The129thDistinctComponentIsRefusedUntilOneLeaves) {
    fill();
    EXPECT_EQ(add(component(128), queue_of(128)), QO_ERR_REGISTRY_FULL);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "Res Mgr Table Full , ERR_CODE:50013"}));
    EXPECT_FALSE(registry_.is_comp_registered(component(128)));

    EXPECT_EQ(registry_.forget_resource(component(5)), 0);
    EXPECT_EQ(add(component(128), queue_of(128)), 0);
    EXPECT_EQ(registry_.get_no_of_resources(), QO_MAX_RESOURCES);
}

TEST_F(Registry, SameComponentWithAnotherQueueNameKeepsTheFirstQueue) {
    ASSERT_EQ(add(kFirst, "/a"), 0);
    const mqd_t descriptor = registry_.getMsg_queue_descriptor(kFirst);
    log_.clear();
    EXPECT_EQ(add(kFirst, "/other"), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_CRIT, "Register WARNING: Component (" + std::to_string(kFirst) +
                                                                  ") already registered but with different queue "
                                                                  "/other"}));
    EXPECT_EQ(registry_.get_resource_queuename(kFirst), "/a");
    EXPECT_EQ(registry_.getMsg_queue_descriptor(kFirst), descriptor);
    EXPECT_EQ(registry_.get_no_of_resources(), 1);
}

TEST_F(Registry, SameComponentWithTheSameQueueNameIsSilent) {
    ASSERT_EQ(add(kFirst, "/a"), 0);
    log_.clear();
    EXPECT_EQ(add(kFirst, "/a"), 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_EQ(registry_.get_no_of_resources(), 1);
}

namespace {

const QoLogLine kAnew{LOG_WARNING, "ResourceMgr MessageQueue: /a of component 1073741852 was removed, opening it anew"};

class RemovedQueue : public Registry {
protected:
    /// Registered, and the queue removed behind the registry's back.
    RemovedQueue() {
        std::optional<QoScratchQueue> removed(std::in_place, "/a", 1, 16);
        EXPECT_EQ(add(kFirst, "/a"), 0);
        EXPECT_EQ(add(kSecond, "/b"), 0);
        before_ = open_descriptors() - 1;  // without the test's own
        removed.reset();
        log_.clear();
        errno = 0;
    }
    size_t before_ = 0;
};

}  // namespace

TEST_F(RemovedQueue, ThatWasMadeAgainIsOpenedAnewByTheNextRegistration) {
    const QoScratchQueue made_again("/a", 2, 16);
    EXPECT_EQ(add(kFirst, "/a"), 0);
    EXPECT_EQ(mq_send(registry_.getMsg_queue_descriptor(kFirst), "x", 1, 1), 0);
    EXPECT_EQ(made_again.count(), 1);
    EXPECT_EQ(open_descriptors(), before_ + 1) << "the old one is closed";
    EXPECT_EQ(registry_.get_no_of_resources(), 2);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(kAnew, QoLogLine{LOG_INFO, "QoPushPullQueueMonitor: Adding queue /a (component ID 1073741852)"},
                    QoLogLine{LOG_INFO, "QoPushPullQueueMonitor: Removing queue"},
                    QoLogLine{LOG_NOTICE,
                              "QoPushPullMonitoredQueue: Monitored queue /a (component ID 1073741852): 0 / 1 "
                              "messages"}));
    EXPECT_EQ(registry_.monitor().getQueueNames(),
              "/b(Total),/b(Saves),/b(Max),/b(Avg),/a(Total),/a(Saves),/a(Max),/a(Avg)");
    registry_.monitor().incQueueStats(registry_.getMsg_queue_descriptor(kFirst));
    EXPECT_EQ(registry_.monitor().getQueueData(), "0,0,0,0.000000,1,0,1,1.000000");
}

TEST_F(RemovedQueue, ThatIsMissingIsMadeByTheNextRegistration) {
    EXPECT_EQ(add(kFirst, "/a"), 0);
    const QoScratchQueue made{std::string("/a")};
    EXPECT_EQ(made.attributes().mq_msgsize, 16);
    EXPECT_EQ(mq_send(registry_.getMsg_queue_descriptor(kFirst), "x", 1, 1), 0);
    EXPECT_EQ(made.count(), 1);
}

TEST_F(RemovedQueue, IsKeptWhenAnotherNameIsGiven) {
    const mqd_t before = registry_.getMsg_queue_descriptor(kFirst);
    EXPECT_EQ(add(kFirst, "/other"), 0);
    EXPECT_EQ(registry_.getMsg_queue_descriptor(kFirst), before);
    EXPECT_EQ(registry_.get_resource_queuename(kFirst), "/a");
}

TEST_F(RemovedQueue, IsKeptWhenTheNewOneCannotBeOpened) {
    const mqd_t before = registry_.getMsg_queue_descriptor(kFirst);
    mq_attr impossible = small_attributes();
    impossible.mq_msgsize = 1 << 30;
    EXPECT_EQ(registry_.comp_register(kFirst, "/a", &impossible), 50001);
    EXPECT_EQ(registry_.getMsg_queue_descriptor(kFirst), before);
    EXPECT_EQ(open_descriptors(), before_);
}

TEST_F(RemovedQueue, OfAnotherComponentChangesNothing) {
    EXPECT_EQ(add(kSecond, "/b"), 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Registry, QueueThatCannotBeOpenedStoresNothing) {
    EXPECT_EQ(add(kFirst, "no leading slash"), QO_ERR_QUEUE_OPEN);
    EXPECT_EQ(registry_.get_no_of_resources(), 0);
    EXPECT_FALSE(registry_.is_comp_registered(kFirst));
    EXPECT_TRUE(log_.contains(LOG_ERR, "ResourceMgr MessageQueue: mq_open: - failed: ERR_CODE : 50001"));
    EXPECT_EQ(registry_.monitor().getQueueNames(), "");
}

// ---- unregistering ----

TEST_F(Unregister, FirstOfThreeMovesTheThirdIntoSlotZero) {
    add_three();
    EXPECT_EQ(registry_.forget_resource(kFirst), 0);
    EXPECT_EQ(registry_.get_queue_name(0), "/c");
    EXPECT_EQ(registry_.get_queue_name(1), "/b");
    EXPECT_EQ(registry_.get_queue_name(2), "");
    EXPECT_EQ(registry_.get_no_of_resources(), 2);
    EXPECT_EQ(registry_.getMsg_queue_descriptor(0), registry_.getMsg_queue_descriptor(kThird));
    EXPECT_FALSE(registry_.is_comp_registered(kFirst));
}

TEST_F(Unregister, LastOneLeavesTheOthersInPlace) {
    add_three();
    EXPECT_EQ(registry_.forget_resource(kThird), 0);
    EXPECT_EQ(registry_.get_queue_name(0), "/a");
    EXPECT_EQ(registry_.get_queue_name(1), "/b");
    EXPECT_EQ(registry_.get_no_of_resources(), 2);
}

TEST_F(Unregister, FromAnEmptyTableGives50014) {
    EXPECT_EQ(registry_.forget_resource(kFirst), QO_ERR_NOT_REGISTERED);
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_ERR, "ResourceMgr forget_resource: Resource Entry not Found = " +
                                                   std::to_string(kFirst) + ", ERR_CODE=50014"}));
}

TEST_F(Unregister, UnknownComponentGives50014) {
    add_three();
    EXPECT_EQ(registry_.forget_resource(QO_CMPID_CLP), QO_ERR_NOT_REGISTERED);
    EXPECT_EQ(registry_.get_no_of_resources(), 3);
}

TEST_F(Unregister, QueueIsTakenFromTheMonitorWithItsStatusAndClosed) {
    const QoScratchQueue queue("/a", 4, 64);
    ASSERT_EQ(add(kFirst, "/a"), 0);
    const mqd_t descriptor = registry_.getMsg_queue_descriptor(kFirst);
    queue.put("one");
    log_.clear();
    EXPECT_EQ(registry_.forget_resource(kFirst), 0);
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_INFO, "QoPushPullQueueMonitor: Removing queue"},
                            QoLogLine{LOG_NOTICE, "QoPushPullMonitoredQueue: Monitored queue /a (component ID " +
                                                      std::to_string(kFirst) + "): 1 / 4 messages"}));
    mq_attr attributes{};
    EXPECT_EQ(mq_getattr(descriptor, &attributes), -1);
    EXPECT_EQ(registry_.monitor().getQueueNames(), "");
}

TEST_F(Unregister, ThousandTurnsLeakNoDescriptor) {
    const size_t before = open_descriptors();
    for (int turn = 0; turn < 1000; ++turn) {
        ASSERT_EQ(add(kFirst, "/a"), 0);
        ASSERT_EQ(registry_.forget_resource(kFirst), 0);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Registry, TerminateClosesEveryQueueAndClearsTheEntriesInPlace) {
    add_three();
    const mqd_t descriptor = registry_.getMsg_queue_descriptor(kSecond);
    registry_.terminate();
    mq_attr attributes{};
    EXPECT_EQ(mq_getattr(descriptor, &attributes), -1);
    EXPECT_EQ(registry_.get_no_of_resources(), 3);
    EXPECT_EQ(registry_.get_queue_name(1), "");
    EXPECT_EQ(registry_.getMsg_queue_descriptor(1), 0);
    EXPECT_FALSE(registry_.is_comp_registered(kSecond));
    EXPECT_EQ(registry_.monitor().getQueueNames(), "");
}

// ---- looking up ----

TEST_F(Lookup, IdentifierZeroGivesNothingAndAnErrorLine) {
    EXPECT_FALSE(registry_.is_comp_registered(QO_CMPID_RESERVED));
    EXPECT_EQ(registry_.get_resource_queuename(QO_CMPID_RESERVED), "");
    EXPECT_EQ(registry_.getMsg_queue_descriptor(QO_CMPID_RESERVED), 0);
    const QoLogLine line{LOG_ERR, "Invalid Res_ID = 0"};
    EXPECT_THAT(log_.lines(), ElementsAre(line, line, line));
}

TEST_F(Lookup, UnknownComponentNamesTheSlotAtWhichTheScanStopped) {
    add_three();
    EXPECT_FALSE(registry_.is_comp_registered(QO_CMPID_CLP));
    EXPECT_EQ(registry_.get_resource_queuename(QO_CMPID_CLP), "");
    EXPECT_EQ(registry_.getMsg_queue_descriptor(QO_CMPID_CLP), 0);
    const QoLogLine not_queued{LOG_DEBUG,
                               "Tbl[3], Scan completed & queue name -not Registered for nComp_id = 1073741855, "
                               "ERR_CODE: 50014"};
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_DEBUG, "Tbl[3], Scan completed & component not Registered = 1073741855"},
                            not_queued, not_queued));
}

TEST_F(Lookup, UnknownComponentInAFullTableIsSilent) {
    fill();
    EXPECT_FALSE(registry_.is_comp_registered(QO_CMPID_CLP));
    EXPECT_EQ(registry_.get_resource_queuename(QO_CMPID_CLP), "");
    EXPECT_EQ(registry_.getMsg_queue_descriptor(QO_CMPID_CLP), 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Lookup, SlotNumberIsCheckedAgainstTheUpperBound) {
    fill();
    EXPECT_EQ(registry_.get_queue_name(127), queue_of(127));
    EXPECT_EQ(registry_.get_queue_name(128), "");
    EXPECT_GT(registry_.getMsg_queue_descriptor(127), 0);
    EXPECT_EQ(registry_.getMsg_queue_descriptor(128), 0);
}

TEST_F(Lookup, EmptySlotGivesNothing) {
    EXPECT_EQ(registry_.get_queue_name(0), "");
    EXPECT_EQ(registry_.getMsg_queue_descriptor(0), 0);
}

// ---- queues ----

TEST_F(OpenMsgQueue, MissingQueueIsCreatedWithMode0660WhateverTheUmask) {
    const mode_t former = umask(0077);
    const mq_attr attributes = small_attributes();
    const mqd_t descriptor = registry_.open_msg_queue("/a", &attributes);
    const mode_t after = umask(former);
    ASSERT_GT(descriptor, 0);
    EXPECT_EQ(mode_of(descriptor), 0660U);
    EXPECT_EQ(after, 0077U) << "the umask is put back";
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_ERR, "ResourceMgr MessageQueue: mq_open:/a no device found\n"}));
    registry_.close_msg_queue(descriptor);
}

TEST_F(OpenMsgQueue, QueueCreatedWithoutAttributesHas64MessagesOf262144Bytes) {
    registry_.close_msg_queue(registry_.open_msg_queue("/a", nullptr));
    ASSERT_EQ(created_attributes.size(), 1U);
    EXPECT_EQ(created_attributes[0].mq_maxmsg, 64);
    EXPECT_EQ(created_attributes[0].mq_msgsize, 262144);
}

TEST_F(OpenMsgQueue, AttributesWithoutASizeOrWithoutMessagesAreNotUsable) {
    for (const auto& [maxmsg, msgsize] :
         {std::pair(5L, 0L), std::pair(5L, -1L), std::pair(0L, 32L), std::pair(-1L, 32L)}) {
        mq_attr attributes{};
        attributes.mq_maxmsg = maxmsg;
        attributes.mq_msgsize = msgsize;
        created_attributes.clear();
        registry_.close_msg_queue(registry_.open_msg_queue("/a", &attributes));
        mq_unlink("/a");
        ASSERT_EQ(created_attributes.size(), 1U);
        EXPECT_EQ(created_attributes[0].mq_maxmsg, 64);
        EXPECT_EQ(created_attributes[0].mq_msgsize, 262144);
    }
}

TEST_F(OpenMsgQueue, UsableAttributesAreCopiedWithAllFourFields) {
    mq_attr attributes{};
    attributes.mq_flags = O_NONBLOCK;
    attributes.mq_maxmsg = 3;
    attributes.mq_msgsize = 32;
    attributes.mq_curmsgs = 2;
    registry_.close_msg_queue(registry_.open_msg_queue("/a", &attributes));
    ASSERT_EQ(created_attributes.size(), 1U);
    EXPECT_EQ(created_attributes[0].mq_flags, O_NONBLOCK);
    EXPECT_EQ(created_attributes[0].mq_maxmsg, 3);
    EXPECT_EQ(created_attributes[0].mq_msgsize, 32);
    EXPECT_EQ(created_attributes[0].mq_curmsgs, 2);
}

TEST_F(OpenMsgQueue, ExistingQueueKeepsItsOwnAttributesAndIsOpenedSilently) {
    const QoScratchQueue queue("/a", 4, 64);
    const mq_attr attributes = small_attributes();
    errno = 0;
    const mqd_t descriptor = registry_.open_msg_queue("/a", &attributes);
    mq_attr found{};
    ASSERT_EQ(mq_getattr(descriptor, &found), 0);
    EXPECT_EQ(found.mq_maxmsg, 4);
    EXPECT_EQ(found.mq_flags, 0) << "opened blocking";
    EXPECT_THAT(log_.lines(), IsEmpty());
    registry_.close_msg_queue(descriptor);
}

TEST_F(OpenMsgQueue, StaleEnoentLeadsToASecondOpenAndNoLeak) {
    const QoScratchQueue queue("/a", 4, 64);
    const mq_attr attributes = small_attributes();
    created_attributes.clear();
    const size_t before = open_descriptors();
    errno = ENOENT;
    const mqd_t descriptor = registry_.open_msg_queue("/a", &attributes);
    EXPECT_EQ(open_descriptors(), before + 1);
    EXPECT_EQ(created_attributes.size(), 1U) << "opened once more, with O_CREAT";
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_ERR, "ResourceMgr MessageQueue: mq_open:/a no device found\n"}));
    mq_attr found{};
    ASSERT_EQ(mq_getattr(descriptor, &found), 0);
    EXPECT_EQ(found.mq_maxmsg, 4);
    registry_.close_msg_queue(descriptor);
}

TEST_F(OpenMsgQueue, FailureNamesTheCountAsSizeAndTheSizeAsMax) {
    mq_attr attributes{};
    attributes.mq_maxmsg = 7;
    attributes.mq_msgsize = 99;
    char pointer[32];
    snprintf(pointer, sizeof pointer, "%p", static_cast<const void*>(&attributes));
    EXPECT_EQ(registry_.open_msg_queue("no slash", &attributes), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{
                                  LOG_ERR, std::string("ResourceMgr MessageQueue: mq_open: \"no slash\" - failed: ") +
                                               pointer + " size=7 , max=99 , ERR_CODE:" + std::to_string(EINVAL)}));
}

TEST_F(OpenMsgQueue, FailureWithoutAttributesNamesTheStandardOnes) {
    EXPECT_EQ(registry_.open_msg_queue("no slash", nullptr), -1);
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_ERR,
                                      "ResourceMgr MessageQueue: mq_open: \"no slash\" - failed: (nil) size=64 , "
                                      "max=262144 , ERR_CODE:" +
                                          std::to_string(EINVAL)}));
}

TEST_F(OpenMsgQueue, ClosingDescriptorZeroDoesNothing) {
    registry_.close_msg_queue(0);
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_NE(fcntl(0, F_GETFD), -1);
}

// ---- the monitor's list ----

namespace {

class MonitorList : public testing::Test {
protected:
    QoLogCapture log_;
    const QoScratchQueue a_{"/a", 4, 64};
    const QoScratchQueue b_{"/b", 4, 64};
    QoPushPullQueueMonitor monitor_;
};

}  // namespace

TEST_F(MonitorList, CountsMessagesAndSamplesTheDepthAfterEach) {
    monitor_.addQueue("/a", kFirst, a_.descriptor());
    monitor_.addQueue("/b", kSecond, b_.descriptor());
    a_.put("one");
    monitor_.incQueueStats(a_.descriptor());
    a_.put("two");
    monitor_.incQueueStats(a_.descriptor());
    a_.take();
    a_.take();
    monitor_.incQueueStats(a_.descriptor());
    monitor_.incQueueSaves(kSecond);
    monitor_.incQueueStats(-1);
    monitor_.incQueueSaves(QO_CMPID_CLP);
    EXPECT_EQ(monitor_.getQueueData(), "3,0,2,1.000000,0,1,0,0.000000");
    EXPECT_EQ(monitor_.getQueueData(), "0,0,0,0.000000,0,0,0,0.000000") << "each interval starts at zero";
}

TEST_F(MonitorList, UnreadableQueueCountsItsMessagesWithDepthZero) {
    monitor_.addQueue("/gone", kFirst, -1);
    monitor_.incQueueStats(-1);
    EXPECT_EQ(monitor_.getQueueData(), "1,0,0,0.000000");
}

TEST_F(MonitorList, QueuesAreRemovedByNameComponentOrDescriptor) {
    monitor_.addQueue("/a", kFirst, a_.descriptor());
    monitor_.addQueue("/b", kSecond, b_.descriptor());
    monitor_.addQueue("/c", kThird, -1);
    monitor_.removeQueue(std::string("/b"));
    EXPECT_EQ(monitor_.getQueueNames(), "/a(Total),/a(Saves),/a(Max),/a(Avg),/c(Total),/c(Saves),/c(Max),/c(Avg)");
    monitor_.removeQueue(kThird);
    EXPECT_EQ(monitor_.getQueueNames(), "/a(Total),/a(Saves),/a(Max),/a(Avg)");
    monitor_.removeQueue(a_.descriptor());
    EXPECT_EQ(monitor_.getQueueNames(), "");
}

TEST_F(MonitorList, RemovalResumesOneBehindTheQueueThatFollowedTheRemovedOne) {
    for (const char* name : {"/1", "/2", "/3"}) monitor_.addQueue(name, kFirst, -1);
    monitor_.removeQueue(kFirst);
    EXPECT_EQ(monitor_.getQueueNames(), "/2(Total),/2(Saves),/2(Max),/2(Avg)");
}

TEST_F(MonitorList, RemovingAQueueWhoseAttributesCannotBeReadSaysSo) {
    monitor_.addQueue("/gone", kFirst, -1);
    log_.clear();
    monitor_.removeQueue(kFirst);
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_INFO, "QoPushPullQueueMonitor: Removing queue"},
                            QoLogLine{LOG_NOTICE, "QoPushPullMonitoredQueue: Monitored queue /gone (component ID " +
                                                      std::to_string(kFirst) + "): unknown attributes"}));
}

TEST_F(MonitorList, RemovingAnUnknownQueueIsSilent) {
    log_.clear();
    monitor_.removeQueue(kFirst);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(MonitorList, QueueIsFullWhenItHoldsAsManyMessagesAsItCan) {
    const QoPushPullMonitoredQueue queue("/a", kFirst, a_.descriptor());
    a_.put("1");
    a_.put("2");
    a_.put("3");
    EXPECT_FALSE(queue.isFull());
    a_.put("4");
    EXPECT_TRUE(queue.isFull());
    EXPECT_EQ(queue.timeFull(), -1) << "only the monitor's thread stamps the time";
}

TEST(MonitoredQueue, UnreadableQueueIsNotFull) { EXPECT_FALSE(QoPushPullMonitoredQueue("/a", kFirst, -1).isFull()); }
