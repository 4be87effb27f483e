// The life of the store. Its operations stand in the siblings of this file, by subject.
#include "qo_pushpull_datamgr.h"

#include <new>
#include <utility>

#include "qo_pushpull_initializer.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_live_objects.h"
#include "qo_pushpull_mutex_lock.h"
#include "qo_pushpull_tree_weight.h"
#include "qo_pushpull_utilities.h"

DataMgr::DataMgr(QoStorePaths paths, QoSaveTimings timings, int64_t max_tree_bytes)
    : data_tree_(nullptr),
      tree_bytes_(0),
      subscription_tree_(nullptr),
      initializer_(std::make_shared<Initializer>(paths.defaults_directory)),
      mutex_(PTHREAD_MUTEX_INITIALIZER),
      timer_id_(nullptr),
      timer_extend_cnt(0),
      saved_file_unread_(false),
      back_up_unread_(false),
      waits_for_retry_(false),
      failed_timed_saves_(0),
      merging_default_tree(false),
      check_for_modified_node(false),
      node_was_modified(false),
      bCleanUpTimer(false),
      paths_(std::move(paths)),
      timings_(timings),
      max_tree_bytes_(max_tree_bytes) {}

DataMgr::~DataMgr() { Terminate(); }

int DataMgr::Init(std::shared_ptr<QoPushPullStats> stats) {
    _pushpull_stats = std::move(stats);
    try {
        return Init();
    } catch (const std::bad_alloc&) {
        QO_LOG(LOG_CRIT, "Out of memory while loading the data tree");
        return QO_STORE_TRY_AGAIN;
    }
}

int DataMgr::Init() {
    int result = initializer_->Init();
    if (result != 0) return result;
    JSONNODE* default_tree = initializer_->default_tree();
    result = CreateSubscriptionTree(default_tree);
    if (result != 0) return result;
    // Nothing loaded is no failure: the default tree is merged in or takes its place.
    [[maybe_unused]] const int loaded = CreateDataTree();
    result = MergeToDataTree(default_tree);
    if (result != 0) return result;
    tree_bytes_ = qo_tree_weight(data_tree_);
    if (pthread_mutex_init(&mutex_, nullptr) != 0) {
        QO_LOG_IN("Init", LOG_CRIT, "Mutex cannot be created");
        return -1;
    }
    // Not before: the late callback of a former store may find this one at the former's address.
    QoLiveObjects<DataMgr>::add(this);
    return 0;
}

// Deliberate: the store has no loop of its own, and its caller ignores the result.
// Test: DataMgrLife.ExecuteAlwaysReturnsMinusOne
int DataMgr::Execute() { return -1; }

int DataMgr::Terminate() {
    if (!initializer_) return 0;
    // From here on a callback of the save timer that is still to come leaves this store alone.
    QoLiveObjects<DataMgr>::remove(this);
    {
        const QoMutexLock lock(mutex_);
        CleanUpTimerInfo();
        json_delete(std::exchange(subscription_tree_, nullptr));
        json_delete(std::exchange(data_tree_, nullptr));
    }
    initializer_->Terminate();
    initializer_.reset();
    pthread_mutex_destroy(&mutex_);
    return 0;
}

void DataMgr::PrintDataTree() { PrintJsonNode(data_tree_); }

void DataMgr::PrintSubscriptionTree() { PrintJsonNode(subscription_tree_); }
