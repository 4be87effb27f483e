// Compares a tree with the one that is built in.
#include "qo_ctl_likeness.h"

#include <algorithm>
#include <numeric>

#include "qo_ctl_difference.h"
#include "qo_pushpull_json.h"

namespace {

constexpr size_t kMostEdits = 2;         // of names that are alike
constexpr size_t kLongestCompared = 64;  // characters; longer names are not looked at for likeness

const char* kind_of(const JSONNODE* node) {
    constexpr const char* kKinds[] = {"null",      "a text",   "a number",
                                      "a boolean", "an array", "an object"};  // by the type
    return kKinds[static_cast<unsigned char>(json_type(node))];
}

class Comparison {
public:
    void compare(JSONNODE* tree, JSONNODE* model) {
        if (json_type(tree) != json_type(model))
            note(std::string("is ") + kind_of(tree) + "; in the built-in tree it is " + kind_of(model));
        else if (json_type(tree) == JSON_NODE && json_empty(model) == 0)
            compare_members(tree, model);
        else if (json_type(tree) == JSON_ARRAY && json_empty(model) == 0)
            for (size_t i = 0; i < json_size(tree); ++i)
                at(
                    std::to_string(i), [&] { compare(json_at(tree, i), json_at(model, 0)); });
    }
    std::vector<QoCtlUnlikeness> take() { return std::move(found_); }

private:
    template <typename Look>
    void at(std::string_view segment, Look look) {
        path_.emplace_back(segment);
        look();
        path_.pop_back();
    }

    void note(std::string text) { found_.push_back({qo_ctl_pointer(path_), std::move(text)}); }

    void compare_members(JSONNODE* tree, JSONNODE* model) {
        for (JSONNODE* member : QoJsonChildren(tree)) {
            const std::string_view name = qo_json_name(member);
            JSONNODE* const like = qo_json_find(model, name);
            at(name, [&] {
                if (like != nullptr)
                    compare(member, like);
                else if (name != "writeAccess" && name != "doNotPersist")
                    note("is not in the built-in tree" + suggestion(name, model));
            });
        }
    }

    static std::string suggestion(std::string_view name, JSONNODE* model) {
        size_t fewest = kMostEdits + 1;
        std::string best;
        for (const JSONNODE* member : QoJsonChildren(model)) {
            const std::string_view other = qo_json_name(member);
            if (name.size() > kLongestCompared || other.size() > kLongestCompared) continue;
            const size_t edits = qo_ctl_edit_distance(name, other);
            if (edits < fewest) best = other;
            fewest = std::min(fewest, edits);
        }
        return best.empty() ? "" : "; did you mean \"" + best + "\"?";
    }

    QoCtlPath path_;
    std::vector<QoCtlUnlikeness> found_;
};

}  // namespace

std::vector<QoCtlUnlikeness> qo_ctl_unlikenesses(JSONNODE* tree, JSONNODE* model) {
    Comparison comparison;
    comparison.compare(tree, model);
    return comparison.take();
}

size_t qo_ctl_edit_distance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);  // edits from the part of a so far to each part of b
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row[b.size()];
}
