// Reading the service's files as the service would.
#include "qo_ctl_check.h"

#include <deque>
#include <set>

#include "qo_pushpull_file_reader.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_tree_crc.h"
#include "qo_pushpull_utilities.h"

namespace {

struct Place {
    JSONNODE* node;
    std::string pointer;  // "" for the root
};

/// The search of one tree.
class DefaultsSearch {
public:
    std::vector<QoCtlMistake> run(JSONNODE* tree) {
        if (json_type(tree) != JSON_NODE) {
            report("",
                   "the defaults are not an object; the service would work with a tree that nothing can be read from");
            return mistakes_;
        }
        places_.push_back({tree, ""});
        for (; !places_.empty(); places_.pop_front()) {
            const Place place = places_.front();
            if (json_type(place.node) == JSON_ARRAY)
                look_at_array(place);
            else
                look_at_object(place);
        }
        return mistakes_;
    }

private:
    void report(const std::string& pointer, const std::string& text) {
        mistakes_.push_back({pointer.empty() ? "/" : pointer, text});
    }

    void visit_later(JSONNODE* child, const std::string& pointer) {
        if (qo_json_is_container(child)) places_.push_back({child, pointer});
    }

    void look_at_object(const Place& place) {
        std::set<std::string_view> names;
        for (JSONNODE* member : QoJsonChildren(place.node)) {
            const std::string_view name = qo_json_name(member);
            const std::string pointer = place.pointer + "/" + std::string(name);
            if (!names.insert(name).second) report(pointer, "stands twice; only the first is ever found");
            if (name.empty() || name.find_first_of("/;") != std::string_view::npos)
                report(pointer, "no pointer reaches a name that is empty or holds a slash or a semicolon");
            visit_later(member, pointer);
        }
    }

    void look_at_array(const Place& place) {
        const JSONNODE* max_items = qo_json_find(json_at(place.node, 0), "maxItems");
        for (size_t position = 0; position < json_size(place.node); ++position) {
            JSONNODE* element = json_at(place.node, position);
            const std::string pointer = place.pointer + "/" + std::to_string(position);
            look_at_id(qo_json_find(element, "id"), position, pointer);
            if (max_items != nullptr && static_cast<int64_t>(position) > json_as_int(max_items))
                report(pointer, "lies beyond \"maxItems\": the saved tree is dropped at every start");
            visit_later(element, pointer);
        }
    }

    void look_at_id(const JSONNODE* id, size_t position, const std::string& pointer) {
        const std::optional<int32_t> number = qo_json_int32(id);
        if (id == nullptr) {
            report(pointer, "has no \"id\": the saved tree is dropped at every start");
        } else if (!number || *number < 0) {
            report(pointer, "has an \"id\" that is no position: the saved tree is dropped at every start");
        } else if (static_cast<size_t>(*number) != position) {
            report(pointer, "has \"id\" " + std::to_string(*number) +
                                ", which is not its position: it is merged into another element");
        }
    }

    std::deque<Place> places_;
    std::vector<QoCtlMistake> mistakes_;
};

}  // namespace

QoCtlSavedFile qo_ctl_check_saved_file(const std::string& path) {
    using Verdict = QoCtlSavedFile::Verdict;
    QoFileReader file(path);
    if (file.absent()) return {Verdict::missing, "", ""};
    const QoJsonNode tree(ParseJsonFile(file));
    if (file.error() != 0) return {Verdict::unreadable, "", ""};
    if (!tree) return {Verdict::unparsable, "", ""};
    const QoTreeCrcCheck check = TakeOutTreeCrc(tree.get());
    if (check.result == QoTreeCrcCheck::Result::missing) return {Verdict::no_crc, "", ""};
    const bool match = check.result == QoTreeCrcCheck::Result::match;
    return {match ? Verdict::good : Verdict::crc_mismatch, check.stored, FormatTreeCrc(check.calculated)};
}

std::string_view qo_ctl_verdict_name(QoCtlSavedFile::Verdict verdict) {
    switch (verdict) {
        case QoCtlSavedFile::Verdict::good:
            return "good";
        case QoCtlSavedFile::Verdict::missing:
            return "missing";
        case QoCtlSavedFile::Verdict::unparsable:
            return "unparsable";
        case QoCtlSavedFile::Verdict::unreadable:
            return "unreadable";
        case QoCtlSavedFile::Verdict::no_crc:
            return "no crc";
        case QoCtlSavedFile::Verdict::crc_mismatch:
            return "crc mismatch";
    }
    return "";
}

std::vector<QoCtlMistake> qo_ctl_mistakes_in_defaults(JSONNODE* tree) { return DefaultsSearch().run(tree); }
