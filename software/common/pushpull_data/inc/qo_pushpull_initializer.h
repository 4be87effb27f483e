/// The default tree: what every top-level node of the data tree is before anything was published or saved.
#ifndef QO_PUSHPULL_INITIALIZER_H
#define QO_PUSHPULL_INITIALIZER_H

#include <string>

#include "qo_json.h"
#include "qo_pushpull_files.h"

/// Replaces `text` by the built-in default tree: one compact JSON object of 27 members, 17,014 characters. Site
/// specific endpoints in it are reserved documentation names; a site's own come with its defaults file.
void getDefaultTree(std::string& text);

/// A result of creating a tree: the process is to end with a failure and to be started anew.
inline constexpr int QO_STORE_TRY_AGAIN = -2;

/// Owner of the default tree, which is a site's defaults file ("defaults.json", whole) or, when that is missing, does
/// not parse or is no object, the built-in tree. The tree does not change between Init and Terminate. Main thread, but
/// for IsNodeNonPersistent, TrimNonPersistentData and TakePersistent: they touch only the node that they are given and
/// may run on any thread.
class Initializer {
public:
    /// Holds no tree yet. `defaults_directory` is where the defaults file is looked for and ends in "/".
    explicit Initializer(std::string defaults_directory = QO_DEFAULTS_DIRECTORY);
    /// Frees nothing: call Terminate first.
    ~Initializer();
    Initializer(const Initializer&) = delete;
    Initializer& operator=(const Initializer&) = delete;

    /// @return the result of CreateDefaultTree
    int Init();
    /// Does nothing. @return always -1
    int Execute();
    /// Builds the tree, in place of one that was built before, and logs where it could not be taken from.
    /// @return 0; -1 when neither source gave a tree; QO_STORE_TRY_AGAIN when the defaults file is there but cannot be
    ///         read. There is no tree then.
    int CreateDefaultTree();
    /// The root of the tree, which stays the Initializer's; null before Init, after a failure and after Terminate.
    JSONNODE* default_tree();
    /// Whether `node` has a member "doNotPersist" that is the JSON value true. What lies deeper does not count.
    /// A null node is logged at LOG_ERR and false.
    bool IsNodeNonPersistent(JSONNODE* node);
    /// Takes everything out of `node` that is not to be saved: at every level the members that are non-persistent
    /// and the whole of every array that has a non-persistent element. `node` itself always stays. Time in
    /// proportion to the tree; no recursion.
    /// @return 0; -1 for a null node, which is logged at LOG_ERR
    int TrimNonPersistentData(JSONNODE* node);
    /// For a snapshot of a tree that lacks what TrimNonPersistentData would take out of it: what of a node is taken.
    static JSON_TAKE TakePersistent(const JSONNODE* node);
    /// Frees the tree, if any. @return 0
    int Terminate();

private:
    JSONNODE* default_tree_;
    std::string defaults_directory_;  // fixed after construction
};

#endif
