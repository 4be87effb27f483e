// Reads a tree from a file.
#include "qo_ctl_tree_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "qo_ctl_syntax.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_initializer.h"

namespace {

bool is_saved_tree(const std::string& path) {
    return path.ends_with(QO_SAVED_TREE_FILE) || path.ends_with(std::string(QO_SAVED_TREE_FILE) + QO_BACKUP_EXTENSION);
}

}  // namespace

QoCtlTreeFile qo_ctl_read_tree_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (file) text << file.rdbuf();
    if (!file || file.bad()) return {nullptr, std::strerror(errno)};
    QoJsonNode tree = qo_json_parse(text.view());
    if (!tree) return {nullptr, "not valid JSON: " + qo_ctl_syntax_fault(text.view())};
    if (json_type(tree.get()) != JSON_NODE) return {nullptr, "holds no JSON object"};
    if (is_saved_tree(path)) QoJsonNode(json_pop_back(tree.get(), "crc"));
    return {std::move(tree), ""};
}

QoJsonNode qo_ctl_built_in_defaults() {
    std::string text;
    getDefaultTree(text);
    return qo_json_parse(text);
}
