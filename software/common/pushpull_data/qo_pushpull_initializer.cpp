// The default tree, from the defaults file or built in, and what of a tree is not saved.
#include "qo_pushpull_initializer.h"

#include <string.h>
#include <syslog.h>

#include <string_view>
#include <utility>
#include <vector>

#include "qo_pushpull_file_reader.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_utilities.h"

Initializer::Initializer(std::string defaults_directory)
    : default_tree_(nullptr), defaults_directory_(std::move(defaults_directory)) {}

Initializer::~Initializer() = default;

int Initializer::Init() { return CreateDefaultTree(); }

int Initializer::Execute() { return -1; }

int Initializer::Terminate() {
    json_delete(default_tree_);
    default_tree_ = nullptr;
    return 0;
}

JSONNODE* Initializer::default_tree() { return default_tree_; }

// ---- creation ----

int Initializer::CreateDefaultTree() {
    Terminate();
    QoFileReader file(defaults_directory_ + QO_DEFAULTS_FILE);
    if (file.absent())
        QO_LOG(LOG_CRIT, "No json defaults found");
    else
        default_tree_ = ParseJsonFile(file);
    if (file.error() != 0) {
        QO_LOG(LOG_CRIT, "Defaults file %s cannot be read: errno %d (%s)", file.path().c_str(), file.error(),
               strerror(file.error()));
        return QO_STORE_TRY_AGAIN;
    }
    if (default_tree_ != nullptr && json_type(default_tree_) != JSON_NODE) {
        QO_LOG(LOG_CRIT, "Defaults file %s is no JSON object, using the built-in default tree", file.path().c_str());
        Terminate();
    }
    if (default_tree_ == nullptr) {
        std::string text;
        getDefaultTree(text);
        default_tree_ = qo_json_parse(text).release();
        if (default_tree_ == nullptr) QO_LOG(LOG_CRIT, "Invalid JSON in default tree string");
    }
    if (default_tree_ == nullptr) {
        QO_LOG(LOG_CRIT, "Default tree creation failed");
        return -1;
    }
    QO_LOG(LOG_INFO, "Default tree created");
    return 0;
}

// ---- trimming ----

namespace {

constexpr std::string_view kDoNotPersist = "doNotPersist";

// The timer's thread asks while the main thread may be searching the same node.
bool is_non_persistent(const JSONNODE* node) {
    const size_t size = json_size(node);
    for (size_t at = 0; at < size; ++at) {
        at = json_scan_n(node, at, kDoNotPersist.data(), kDoNotPersist.size());
        if (at < size && json_as_bool(json_at(node, at)) != 0) return true;
    }
    return false;
}

// An array goes as a whole, for any of its elements.
bool is_left_out(const JSONNODE* child) {
    if (json_type(child) != JSON_ARRAY) return is_non_persistent(child);
    for (size_t i = 0; i < json_size(child); ++i)
        if (is_non_persistent(json_at(child, i))) return true;
    return false;
}

}  // namespace

bool Initializer::IsNodeNonPersistent(JSONNODE* node) {
    if (node == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return false;
    }
    return is_non_persistent(node);
}

JSON_TAKE Initializer::TakePersistent(const JSONNODE* node) {
    if (is_left_out(node)) return JSON_TAKE_NOTHING;
    return json_type(node) == JSON_ARRAY ? JSON_TAKE_CHILDREN : JSON_TAKE_CHOSEN;
}

int Initializer::TrimNonPersistentData(JSONNODE* node) {
    if (node == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    std::vector<JSONNODE*> to_trim{node};
    while (!to_trim.empty()) {
        JSONNODE* parent = to_trim.back();
        to_trim.pop_back();
        qo_json_erase_if(parent, is_left_out);
        for (JSONNODE* child : QoJsonChildren(parent))
            if (json_type(child) == JSON_ARRAY)
                to_trim.insert(to_trim.end(), json_begin(child), json_end(child));
            else if (json_empty(child) == 0)
                to_trim.push_back(child);
    }
    return 0;
}
