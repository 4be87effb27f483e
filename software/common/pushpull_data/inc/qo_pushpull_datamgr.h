/// The data tree store: the one JSON tree of the device, the rules by which components change it, its
/// subscriptions, and its file.
///
/// Rules that hold for every operation unless its description says otherwise
/// - Thread: the main thread, which handles one request at a time. Only the save timer's thread enters
///   besides, through TimerCallBack; `mutex_` keeps the two apart. The mutex is not recursive.
/// - Ownership: nodes handed in stay the caller's and are not changed, unless they are named as a
///   destination, response or list.
/// - Results: 0 for success, -1 for failure. A failure is logged where it is found and nothing throws,
///   but for JsonNodeToPtr of null and where memory is short: std::bad_alloc then leaves every tree well-formed,
///   with what was changed before it, and no lock held.
/// - Bounds: a JSON text is at most JSON_MAX_PARSE_DEPTH levels deep and every merge starts at the root,
///   so neither the data tree nor the subscription tree gets deeper than a text can be. Whatever recurses
///   here goes down one of these two and so ends there, also when the other side is the skeleton of a
///   pointer with a hundred thousand segments. Publishes let the data tree grow to QO_MAX_TREE_BYTES.
#ifndef QO_PUSHPULL_DATAMGR_H
#define QO_PUSHPULL_DATAMGR_H

#include <pthread.h>
#include <signal.h>
#include <time.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "qo_component_ids.h"
#include "qo_json.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_save_timer.h"
#include "qo_pushpull_subscriber_index.h"

class Initializer;
class QoPushPullStats;

/// What a publish may do at one node of the data tree.
enum eQO_PUBLISH_AUTHORITY_ : int32_t {
    QO_ALLOW_PUBLISH_THIS_NODE = 0,            // the node's own leaves and new members; each container below it decides
    QO_NO_PUBLISH_THIS_NODE = 1,               // nothing; the containers below it decide for themselves
    QO_ALLOW_PUBLISH_THIS_NODE_AND_BELOW = 2,  // everything from here down
};

/// Bytes of memory, near enough, that publishes may let the data tree grow to. A save takes as much again at most.
inline constexpr int64_t QO_MAX_TREE_BYTES = int64_t{64} * 1024 * 1024;
inline constexpr int64_t QO_MAX_PLACEHOLDERS = 65536;  // array elements that one published id may add
inline constexpr int QO_MAX_LOGGED_REFUSALS = 1000;    // nodes that one publish may log as refused by write authority

/// Directories of the store's files; each ends in "/".
struct QoStorePaths {
    std::string data_directory = QO_DATA_DIRECTORY;
    std::string defaults_directory = QO_DEFAULTS_DIRECTORY;
};

/// The data tree store. Knows no queues and no components beyond their numbers.
class DataMgr {
public:
    /// Creates the initializer; nothing is read until Init. The service uses the defaults of all arguments.
    /// @param max_tree_bytes what publishes may let the data tree grow to; see qo_pushpull_tree_weight.h.
    explicit DataMgr(QoStorePaths paths = {}, QoSaveTimings timings = {}, int64_t max_tree_bytes = QO_MAX_TREE_BYTES);
    /// Terminates, if that was not done.
    ~DataMgr();
    DataMgr(const DataMgr&) = delete;
    DataMgr& operator=(const DataMgr&) = delete;

    // ---- life and persistence ----

    /// Builds the default tree, the subscription tree that shadows it, and the data tree from the saved
    /// tree and the default tree. Once, before any other operation.
    /// @param stats counts the saves; may be null. Kept.
    /// @return 0, or the result of the step that failed: default tree, subscription tree, merge, mutex.
    ///         QO_STORE_TRY_AGAIN (qo_pushpull_initializer.h) for want of memory, and when the defaults file is there
    ///         but cannot be read: a tree made without it would be saved over one that was made with it. The files are
    ///         as they were.
    int Init(std::shared_ptr<QoPushPullStats> stats);
    /// The store has no loop of its own. @return -1, always; callers ignore it.
    int Execute();
    /// Cancels a pending save without saving, waits for a save under way on the timer's thread, and frees
    /// the trees and the mutex. Takes `mutex_`. Only another call, which does nothing, or the destructor may follow.
    /// @return 0.
    int Terminate();
    /// Loads the saved tree, or its backup, into the data tree. Called by Init, before any lock is needed. A file that
    /// was read whole and is no JSON is set aside; one that could not be read is left where it is, and set aside by the
    /// save that would overwrite it.
    /// @return 0 with a tree loaded or no file there at all; -1 when files exist that gave no tree.
    int CreateDataTree();
    /// Takes the "crc" member out of the data tree just loaded and compares it with the CRC of the rest. A
    /// tree that does not match is deleted.
    bool DoesDataTreeCRCMatch();
    /// Writes the data tree, less what is not to persist, with its CRC to the saved file; the file before
    /// becomes the backup. Two saves never interleave. Takes `mutex_` only to copy the tree, not while the disk
    /// works: a change that lands meanwhile is not in this save and arms a timer of its own. The timer that was
    /// pending at the copy is cancelled.
    /// @param timer_triggered true on the timer's thread: nothing is done when the timer was cancelled.
    /// A save on the timer's thread that fails is tried again after QoSaveTimings::retry, again and again; only the
    /// first failure is logged, and a later success.
    /// @return 0, also when the file before could not become the backup; -1 when the tree could not be saved, for want
    ///         of memory too: the saved file, the backup and the pending timer then stay as they were, but for the
    ///         timer whose time is over: it is armed for the next attempt.
    int SaveDataTree(bool timer_triggered);
    /// Moves the file to its name with ".bak" appended, over an older backup. Any thread; touches no lock.
    /// @param other_name when given, a second name of the file, which is moved instead of `path`.
    /// @return -1 when the move failed; the file and the older backup are then where they were.
    int RenameAsBackUpFile(const std::string& path, const std::string& other_name = "");
    /// Writes the whole data tree, without a CRC, to the debug file. Takes `mutex_`; touches neither timer nor backup.
    int SaveActiveTreeForDebug();
    /// Arms the save timer, or puts off the one that is pending. One that waits to try a failed save again is brought
    /// forward as if it had just been armed. Takes `mutex_`.
    /// @return 0, also when a pending timer could not be put off; -1 when none could be created or armed.
    int CreateTimerToSaveTree();
    /// Deletes a pending save timer. The caller holds `mutex_`. @return 0.
    int CleanUpTimerInfo();
    /// Entry of the save timer's thread. Saves, if the store that `value` points to still lives.
    static void TimerCallBack(union sigval value);
    /// Whether a publish touched data that persist. Recurses along the published tree and the data tree.
    /// @param persistent_change set when a "doNotPersist" marker with the value false lies on a published path.
    /// @param decided set when any "doNotPersist" marker does. Both are only ever set, never cleared.
    int CheckForSavingDataTree(JSONNODE* data, JSONNODE* published, bool& persistent_change, bool& decided);
    /// Whether the node has a member "doNotPersist" that is true. Any thread.
    /// @param marker_found set when it has one of any value, never cleared.
    bool IsNodeNonPersistent(JSONNODE* node, bool& marker_found);
    /// Log a whole tree at LOG_DEBUG.
    void PrintDataTree();
    void PrintSubscriptionTree();

    // ---- pointers: free of state, any thread ----

    /// A chain of nested empty objects below an unnamed root, one per non-empty segment of the pointer, as
    /// deep as the pointer has segments. No escapes: "~1" is two characters. The caller deletes it.
    /// @return null when the pointer does not begin with "/" or a segment is not UTF-8.
    JSONNODE* JsonPtrToNode(const std::string& pointer);
    /// The position of the only element of an array that has children.
    /// @param index receives the position; also written, to the first one, when several elements have children.
    /// @return -1 for null, a node that is no array, an empty array, and none or several such elements.
    int GetJsonArrayIndex(JSONNODE* node, unsigned& index);
    /// The pointer text of a tree that has one path: the names down to the first node that has not exactly
    /// one child, without the leaf's own name; an array ends it with the position of its selected element.
    /// "" for a root with no member or several, "/" when the only member is a leaf.
    /// @throws std::logic_error for null.
    std::string JsonNodeToPtr(JSONNODE* node);

    // ---- publish ----

    /// Merges what a component published into the data tree and arms the save timer when a value that
    /// persists may have changed. Takes `mutex_` for the merge; the change flags then tell of this publish.
    /// @param save_scheduled receives whether the publish asks for a save.
    /// @return 0, also when write authority refused some or all of it or the timer could not be armed; -1
    ///         when the merge met a fault: what it did before that stays done.
    int UpdateNode(JSONNODE* published, bool& save_scheduled, eQO_COMPONENT_CLASS_ component_class);
    /// Merges a tree into another under the rules of write authority. The caller holds `mutex_` when the
    /// destination is the data tree. What matters beyond the plain walk:
    /// - Array elements go to the position that their "id" says; missing positions before it are filled with
    ///   objects that hold only their "id", at most QO_MAX_PLACEHOLDERS of them for one "id", and of all those of one
    ///   merge no more bytes than the data tree may have.
    /// - A value that is given members becomes a container first; an empty container counts as a value. A
    ///   container with children never turns into another kind: an array onto an object, or the reverse, fails.
    ///   The destination itself, if it is an object, stays one, and a value merged into a container is ignored.
    /// - "writeAccess" and "doNotPersist" are neither added nor changed, except from the default tree.
    /// - In a data tree that is full, what would make it grow fails; values that get no longer are taken. The
    ///   default tree is merged all the same.
    /// - What write authority refuses is logged: the first QO_MAX_LOGGED_REFUSALS nodes, and how many more there were.
    /// @param update_leaves false keeps every value that the destination has, whatever its kind.
    /// @param authority at the destination itself; the nodes below it may have their own.
    /// @return -1 for null, an array element without a valid "id" or beyond a limit, containers of different
    ///         kinds, or a data tree that is full; what was merged before that stays.
    int TreeMerge(JSONNODE* destination, JSONNODE* source, bool update_leaves, eQO_COMPONENT_CLASS_ component_class,
                  eQO_PUBLISH_AUTHORITY_ authority);
    /// Copies type and value; the destination keeps its name. Notes a change of value when the publish at
    /// hand needs to know. Metadata are left alone, except while the default tree is merged.
    int UpdateLeafValue(JSONNODE* destination, JSONNODE* source);
    /// What components of that class may do at the node, by its "writeAccess" member; of an array, by that of its
    /// element with id 0. Null and nodes without a known "writeAccess" are closed to clients.
    eQO_PUBLISH_AUTHORITY_ GetPublishAuthorityForThisNode(JSONNODE* node, eQO_COMPONENT_CLASS_ component_class);
    /// Starts the change flags afresh for a publish: finds its subscribers and looks whether any of them wants changes
    /// only.
    int UpdateModifiedNodeState(JSONNODE* published);
    /// Those whom the last publish concerned, as it found them, in the order in which they were met and each once per
    /// mode. The list lives until the next publish.
    /// @param subscribers untouched on failure
    /// @return -1 when there is no subscription tree.
    int SubscribersOfPublish(std::span<const QoSubscriber>& subscribers) const;
    /// Whether the change-only subscribers of the last publish are to be told too: it changed or added
    /// something, or there are none.
    bool PublishToAllSubscribers() const;
    /// Completes the tree just loaded with what only the default tree has, or takes a copy of the default
    /// tree when there is none or it does not merge. Called by Init, before any lock is needed.
    /// @return -1 without a default tree or when it cannot be copied.
    int MergeToDataTree(JSONNODE* default_tree);

    // ---- read and delete ----

    /// Copies the addressed node, with the path to it, into `response`. Takes no lock: only this thread
    /// changes the tree. Of an array on the path only the addressed element is copied, as the only one.
    /// @param response an empty object of the caller's; emptied when the read fails.
    /// @param array_size receives the element count when the pointer ends at an array and `want_array_size`
    ///        is set; untouched otherwise.
    /// @return -1 when there is no such node, for a pointer without segments, and for null.
    int ReadNode(const std::string& pointer, JSONNODE* response, bool want_array_size, long& array_size);
    /// What ReadNode answers, as formatted text and straight from the tree. Only for plain pointers that lead to a
    /// node: for all others ReadNode tells, and logs, what is wrong or what they mean.
    /// @return whether it was appended.
    bool AppendNodeText(std::string_view pointer, std::string& text);
    /// The walk of ReadNode: appends to `response` what the skeleton addresses below `data`. Recursive; on
    /// failure what was appended so far stays.
    int ValidateAndReadNode(JSONNODE* skeleton, JSONNODE* data, JSONNODE* response, bool want_array_size,
                            long& array_size);
    /// Puts deep copies of the children of `source`, in order, in front of those of `destination`.
    int CopyNode(JSONNODE* destination, JSONNODE* source);
    /// Removes the addressed node and arms the save timer. Takes `mutex_`. An element that is not the last of
    /// its array leaves an object behind that holds only its "id".
    /// @param restore_default puts the default tree's version in its place, metadata included.
    /// @return 0, also when the default tree has no such node or the timer could not be armed; -1 when there is
    ///         no such node, the pointer has no segment, or the default could not be put in (the node is gone then).
    int DeleteNode(const std::string& pointer, bool restore_default);
    /// The walk of DeleteNode. Recursive; the caller holds `mutex_`. On failure nothing is changed.
    int ValidateAndDeleteNode(JSONNODE* skeleton, JSONNODE* data);
    /// Joins one read's response to those collected before, by the rules of a publish that is allowed
    /// everything: "writeAccess" and "doNotPersist" are left out, array elements go to their "id".
    int PackMultipleGetResponse(JSONNODE* combined, JSONNODE* response, eQO_COMPONENT_CLASS_ component_class);

    // ---- subscriptions: main thread only ----
    // A shadow node is an object, a subscriber entry on it a number; a shadow node may bear an entry's name.

    /// Builds the subscription tree: an object for every object and array of the default tree. Called by Init.
    int CreateSubscriptionTree(JSONNODE* default_tree);
    /// Adds the shadows of everything below `source` to `destination`. The elements of an array share its
    /// shadow. Recursive along the source.
    int GenerateShadowTree(JSONNODE* destination, JSONNODE* source);
    /// Subscribes a component to a pointer, which must lead to an object or array of the default tree and
    /// past no array position. "/" is the whole tree.
    /// @return 0, also when the component is subscribed there already (its first mode stays); -1 otherwise.
    int AddSubscriber(eQO_CMP_IDs_ comp_id, const std::string& pointer, bool notify_on_change_only);
    /// The walk of AddSubscriber from the root of the subscription tree.
    int ValidateAndAddSubscription(JSONNODE* skeleton, eQO_CMP_IDs_ comp_id, bool notify_on_change_only);
    /// Whether the node has an entry of the component, of either mode. True for null.
    bool CheckIfSubscriberExists(JSONNODE* shadow, eQO_CMP_IDs_ comp_id);
    /// Removes the component's subscriptions at the pointer and everywhere below it.
    /// @return 0, also when it had none there; -1 when the subscription tree has no such node.
    int RemoveSubscriber(eQO_CMP_IDs_ comp_id, const std::string& pointer);
    /// The removal itself. Recursive along the subscription tree.
    int RemoveSubscriberInternal(eQO_CMP_IDs_ comp_id, JSONNODE* shadow);
    /// Appends copies of the entries of everyone whom a publish of that tree concerns to `list`, an object of
    /// the caller's, in the order in which they are met and each once per mode. Notes in the change flags
    /// when there is a change-only subscriber among them.
    int GetSubscribers(JSONNODE* published, JSONNODE* list);
    /// The walk of GetSubscribers below one shadow node, without removing duplicates; the entries of one
    /// shadow node are collected once, however many elements of a published array meet there. Recursive
    /// along the subscription tree.
    int GetSubscribersInternal(JSONNODE* published, JSONNODE* list, JSONNODE* shadow);
    /// Appends copies of one shadow node's entries to the list.
    int GetNodeSubscriber(JSONNODE* shadow, JSONNODE* list);
    /// Removes every member of the list that repeats an earlier one's name and number. In linear time.
    /// @return -1 for null, a node that is no object, or namesakes that are not numbers: the list is unchanged then.
    int TrimDuplicates(JSONNODE* list);
    /// GetSubscribers of a publish that would touch exactly the addressed node.
    int GetSubscribersByJsonPtr(const std::string& pointer, JSONNODE* list);

private:
    // ---- merge ----

    /// One merge from its root down. The containers keep what one message could otherwise have worked out again and
    /// again at great cost: "maxItems" texts and arrays that were made very long for the purpose.
    struct MergeRun {
        eQO_COMPONENT_CLASS_ component_class;
        int64_t bytes_left;              // that the destination may grow by; below 0 when it is too large already
        int64_t placeholder_bytes_left;  // of all placeholders, also where the destination itself is not bounded
        int refusals_left_to_log = QO_MAX_LOGGED_REFUSALS;
        std::unordered_map<const JSONNODE*, int64_t> limits;  // by "maxItems" node
        /// The positions of the elements with id 0 of the arrays that were asked for their authority.
        std::unordered_map<const JSONNODE*, std::set<size_t>> zero_elements;
        std::unordered_set<const JSONNODE*> renumbered;  // objects whose "id" may have changed
    };
    /// What one level of a merge passes to the next.
    struct MergeScope {
        MergeRun& run;
        bool update_leaves;
        eQO_PUBLISH_AUTHORITY_ authority;
    };
    /// What becomes of the destination of a source that has children: it takes them, it stays as it is, or the
    /// merge fails.
    enum class Fit { ready, keep, refused };

    // Each returns 0, or -1 for a fault that ends the merge; what write authority refuses is no fault.
    int MergeNode(JSONNODE* destination, JSONNODE* source, const MergeScope& scope);
    int MergeLeaf(JSONNODE* destination, JSONNODE* source, const MergeScope& scope);
    /// Copies type and value, and notes a change.
    void SetLeaf(JSONNODE* destination, const JSONNODE* source);
    int MergeElement(JSONNODE* array, JSONNODE* element, const MergeScope& scope);
    int AddElement(JSONNODE* array, JSONNODE* element, int32_t index, const MergeScope& scope);
    int MergeMember(JSONNODE* object, JSONNODE* member, const MergeScope& scope);
    int AddMember(JSONNODE* object, JSONNODE* member, const MergeScope& scope);
    /// Merges a part of the default tree into the data tree, metadata included. The caller holds `mutex_` while
    /// requests are served.
    int MergeDefaults(JSONNODE* defaults, bool update_leaves);
    Fit FitDestination(JSONNODE* destination, JSONNODE* source, const MergeScope& scope);
    /// A new node of what the rules leave of the source, for the caller; null when that merge fails.
    JSONNODE* BuildNode(JSONNODE* source, const MergeScope& scope);
    /// Logs it when the index is beyond the "maxItems" of the array's first element.
    bool IsBeyondMaxItems(JSONNODE* array, int32_t index, const MergeScope& scope);
    /// Takes so many bytes of the room that is left, gives them back when below 0. Logs it when there is no room,
    /// with the node's name. @return false then.
    bool TakeRoom(const MergeScope& scope, int64_t bytes, const JSONNODE* node) const;
    /// The same for a placeholder in the array, which counts among the placeholders too.
    bool TakePlaceholderRoom(const MergeScope& scope, int64_t bytes, const JSONNODE* array) const;
    /// The scope for what lies below a node of the destination.
    MergeScope ScopeBelow(JSONNODE* node, const MergeScope& scope);
    /// The element that carries an array's metadata: the first with id 0; the array itself when there is none.
    static JSONNODE* MetadataHolder(JSONNODE* array, MergeRun& run);
    /// Keeps that known when the element at a position is new or was renumbered.
    static void NoteElement(JSONNODE* array, size_t position, MergeRun& run);
    bool IsProtectedMetadata(const JSONNODE* node) const;
    /// Whether one more refused node is to be logged. Counts it.
    static bool LogsRefusal(const MergeScope& scope);
    void NoteAddition();

    // ---- read and delete ----

    // Parts of the two walks: `skeleton` is the node that names what is wanted below `data` or `array`.
    int ReadBelow(JSONNODE* skeleton, JSONNODE* data, JSONNODE* response, bool want_array_size, long& array_size);
    int ReadArrayElement(JSONNODE* skeleton, JSONNODE* array, JSONNODE* response, bool want_array_size,
                         long& array_size);
    int ReadWholeNode(JSONNODE* data, JSONNODE* response);
    int DeleteInArray(JSONNODE* skeleton, JSONNODE* array);
    /// Merges a part of the default tree back into the data tree. Takes `mutex_`.
    int RestoreDefault(JSONNODE* defaults);

    // ---- subscriptions ----

    /// Shadow nodes whose entries are in the list already.
    using ShadowSet = std::unordered_set<const JSONNODE*>;

    int ShadowContent(JSONNODE* shadow, JSONNODE* container);
    int CollectSubscribers(JSONNODE* published, JSONNODE* list, JSONNODE* shadow, ShadowSet& collected);
    int CollectBelow(JSONNODE* container, JSONNODE* list, JSONNODE* shadow, ShadowSet& collected);
    int CollectEntries(JSONNODE* shadow, JSONNODE* list, ShadowSet& collected);

    // ---- persistence ----

    class TakenTimer;

    std::string SavedFile() const;
    std::string ActiveTreeFile() const;
    void TidyDirectory() const;
    /// The save itself, while no other is under way. @param quiet leaves out the line that tells of a failure.
    int SaveDataTree(bool timer_triggered, bool quiet);
    /// The steps of Init. Throws std::bad_alloc.
    int Init();
    /// Makes the former saved file the backup. A backup that could not be read at the start is set aside before.
    void BackUp(const std::string& path, const std::string& former_name);
    /// Lets the timer whose save has failed expire once more. Takes `mutex_`.
    void ArmRetry();
    /// On the timer's thread: stops the pending timer, which stays pending. Takes `mutex_`. @return whether there is
    /// one.
    bool TakeExpiry();
    bool CreateTimer();
    /// Lets the pending timer expire then, and again every QoSaveTimings::retry until it is set anew; 0: never.
    bool SetTimer(std::chrono::nanoseconds after);
    bool DecideByMarker(JSONNODE* node, bool& persistent_change, bool& decided);
    void CheckElementsForSaving(JSONNODE* data, JSONNODE* array, bool& persistent_change, bool& decided);

    // Each with what protects it; "start-up" ends with Init, before the save timer's thread can exist. Locks, in the
    // order in which they are taken: the registry of live stores (qo_pushpull_live_objects.h), the mutex that keeps
    // saves apart (in the source of the saves), `mutex_`.
    JSONNODE* data_tree_;                       // owned; guarded by mutex_ for changes and for the timer's thread
    int64_t tree_bytes_;                        // the data tree's weight; main thread only
    JSONNODE* subscription_tree_;               // owned; main thread only
    QoSubscriberIndex subscriber_index_;        // of that; main thread only
    std::vector<JSONNODE*> path_read_;          // of the last AppendNodeText, of no use after it; main thread only
    std::shared_ptr<Initializer> initializer_;  // fixed after construction; its tree after start-up
    std::shared_ptr<QoPushPullStats> _pushpull_stats;  // fixed after start-up
    pthread_mutex_t mutex_;                            // itself
    timer_t timer_id_;                                 // 0 when none is pending; guarded by mutex_
    int32_t timer_extend_cnt;                          // times the pending timer was put off; guarded by mutex_
    bool saved_file_unread_;  // could not be read and stands where it was; start-up, then only touched during a save
    bool back_up_unread_;     // likewise
    bool waits_for_retry_;    // the pending timer is that of a save that failed; guarded by mutex_
    unsigned long failed_timed_saves_;  // since the last one that succeeded; only touched during a save
    bool merging_default_tree;          // main thread only, under mutex_ while requests are served
    bool check_for_modified_node;       // main thread only, under mutex_ while a publish runs
    bool node_was_modified;             // main thread only, under mutex_ while a publish runs
    bool bCleanUpTimer;                 // always false
    QoStorePaths paths_;                // fixed after construction
    QoSaveTimings timings_;             // fixed after construction
    int64_t max_tree_bytes_;            // fixed after construction
};

#endif
