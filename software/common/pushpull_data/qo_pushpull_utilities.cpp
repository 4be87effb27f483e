// JSON and file helpers of the store.
#include "qo_pushpull_utilities.h"

#include <errno.h>

#include <exception>
#include <list>
#include <map>
#include <new>
#include <ostream>
#include <sstream>

#include <zlib.h>

#include "qo_pushpull_file_reader.h"
#include "qo_pushpull_json.h"

// ---- CRC-32 ----

namespace {

constexpr uint32_t kReflectedPolynomial = 0xEDB88320;

constexpr std::array<uint32_t, 256> make_crc32_table() {
    std::array<uint32_t, 256> table{};
    for (uint32_t byte = 0; byte < table.size(); ++byte) {
        uint32_t entry = byte;
        for (int bit = 0; bit < 8; ++bit)
            entry = (entry & 1U) != 0 ? (entry >> 1U) ^ kReflectedPolynomial : entry >> 1U;
        table[byte] = entry;
    }
    return table;
}

}  // namespace

constexpr std::array<uint32_t, 256> QO_PUSHPULL_CRC32_TABLE_04C11DB7 = make_crc32_table();

// Deliberate: no final inversion, for saved tree files carry this value.
// Test: CalcCrc32.OfTheCheckTextHasNoFinalInversion
uint32_t CalcCrc32(std::string text) { return qo_crc32_update(QO_CRC32_START, text); }

uint32_t qo_crc32_update(uint32_t crc, std::string_view text) {
    if (text.empty()) return crc;  // of which zlib might get a null, and begin anew
    // zlib inverts what it is given and what it gives.
    return ~static_cast<uint32_t>(crc32_z(~crc, reinterpret_cast<const Bytef*>(text.data()), text.size()));
}

// ---- files ----

bool DoesFileExist(const std::string& path) {
    const QoFileReader file(path);
    return !file.absent() && file.error() == 0;
}

JSONNODE* ParseJsonFile(const std::string& path) {
    QoFileReader file(path);
    return ParseJsonFile(file);
}

JSONNODE* ParseJsonFile(QoFileReader& file) {
    const auto read = [](char* buffer, size_t size, void* reader) {
        return static_cast<QoFileReader*>(reader)->read(buffer, size);
    };
    QoJsonNode node(json_parse_from(read, &file));
    if (!node) file.skip_rest();
    if (file.error() == ENOMEM) throw std::bad_alloc();
    if (file.absent() || file.error() != 0) return nullptr;
    if (!node) QO_LOG(LOG_ERR, "JSON in file %s is invalid json", file.path().c_str());
    return node.release();
}

// ---- debug printers ----

void PrintJsonType(const JSONNODE* node) {
    if (node == nullptr) {
        syslog(LOG_ERR, "NULL pointer");
        return;
    }
    switch (json_type(node)) {
        case JSON_NULL:
            return syslog(LOG_DEBUG, "JSON node is of JSON_NULL type");
        case JSON_STRING:
            return syslog(LOG_DEBUG, "JSON node is of JSON_STRING type");
        case JSON_NUMBER:
            return syslog(LOG_DEBUG, "JSON node is of JSON_NUMBER type");
        case JSON_BOOL:
            return syslog(LOG_DEBUG, "JSON node is of JSON_BOOL type");
        case JSON_ARRAY:
            return syslog(LOG_DEBUG, "JSON node is of JSON_ARRAY type");
        case JSON_NODE:
            return syslog(LOG_DEBUG, "JSON node is of JSON_NODE type");
        default:
            return syslog(LOG_DEBUG, "Invalid JSON type");
    }
}

void PrintJsonNode(const JSONNODE* node) {
    if (node != nullptr) syslog(LOG_DEBUG, "%s", qo_json_write_formatted(node).c_str());
}

void PrintJsonSize(const JSONNODE* node) {
    if (node != nullptr) syslog(LOG_DEBUG, "Size of the node is %u", static_cast<unsigned>(json_size(node)));
}

void PrintJsonName(const JSONNODE* node) {
    if (node != nullptr) syslog(LOG_DEBUG, "Name of the node is %s", json_name_view(node, nullptr));
}

// ---- numbers ----

void ConvertIntToString(long value, std::ostream& stream) {
    try {
        stream << value;
    } catch (const std::exception& error) {
        QO_LOG(LOG_ERR, "Exception %s", error.what());
        QO_LOG(LOG_ERR, "Err in int to string conv");
    }
}

// ---- subset comparison ----

namespace {

bool is_subset(JSONNODE* a, JSONNODE* b, int levels_left);

/// The elements of an array that are still free to be matched; the array itself is not changed.
class FreeElements {
public:
    explicit FreeElements(JSONNODE* array) : free_(json_begin(array), json_end(array)) {}

    bool take_matches_for_all_of(JSONNODE* array, int levels_left) {
        for (JSONNODE* element : QoJsonChildren(array))
            if (!take_match_for(element, levels_left)) return false;
        return true;
    }

    /// A copy of the array that lacks the taken elements.
    QoJsonNode rest() const {
        QoJsonNode array(json_new(JSON_ARRAY));
        for (const JSONNODE* element : free_) qo_json_push_back(array.get(), QoJsonNode(json_duplicate(element)));
        return array;
    }

private:
    bool take_match_for(JSONNODE* element, int levels_left) {
        for (auto candidate = free_.begin(); candidate != free_.end(); ++candidate) {
            if (is_subset(element, *candidate, levels_left)) {
                free_.erase(candidate);
                return true;
            }
        }
        return false;
    }

    std::list<JSONNODE*> free_;
};

/// Compares two objects. Elements that `b`'s arrays have given away count as removed from `b`.
class ObjectSubset {
public:
    ObjectSubset(JSONNODE* a, JSONNODE* b, int levels_left) : a_(a), b_(b), levels_left_(levels_left) {}

    bool holds() {
        for (JSONNODE* member : QoJsonChildren(a_))
            if (!member_holds(member)) return false;
        return true;
    }

private:
    bool member_holds(JSONNODE* member) {
        JSONNODE* counterpart = qo_json_find(b_, qo_json_name(member));
        if (counterpart == nullptr || json_type(counterpart) != json_type(member)) return false;
        switch (json_type(member)) {
            case JSON_NODE:
                return is_subset(member, counterpart, levels_left_);
            case JSON_ARRAY:
                return array_holds(member, counterpart);
            default:
                return whole_objects_are_equal();
        }
    }

    bool array_holds(JSONNODE* array, JSONNODE* counterpart) {
        FreeElements& rest = rests_.try_emplace(counterpart, counterpart).first->second;
        // Equal so far: an array of b that now gives elements away stays shorter than that of a for good.
        equality_lost_ = equality_lost_ || (equality_seen_ && json_empty(array) == 0);
        return rest.take_matches_for_all_of(array, levels_left_);
    }

    // Deliberate: a leaf asks for the equality of the two whole objects, not of the two leaves. That is
    // compared once, however many leaves there are.
    // Test: JsonSubsetEqual.ALeafComparesTheWholeObjectsAroundIt
    bool whole_objects_are_equal() {
        if (!equality_seen_) equality_seen_ = json_equal(a_, what_is_left_of_b().get()) != 0;
        return equality_seen_ && !equality_lost_;
    }

    QoJsonNode what_is_left_of_b() const {
        QoJsonNode copy(json_duplicate(b_));
        for (const auto& [array, rest] : rests_)
            json_set_n(qo_json_find(copy.get(), qo_json_name(array)), rest.rest().get());
        return copy;
    }

    JSONNODE* a_;
    JSONNODE* b_;
    int levels_left_;
    std::map<JSONNODE*, FreeElements> rests_;  // by array member of b
    bool equality_seen_ = false;
    bool equality_lost_ = false;
};

bool is_subset(JSONNODE* a, JSONNODE* b, int levels_left) {
    if (json_type(a) != json_type(b)) {
        syslog(LOG_ERR, "***qo_json_subset_equal: trying to compare two diff types json nodes %d,%d  ***", json_type(a),
               json_type(b));
        return false;
    }
    // Deliberate: two equal values, or two empty containers, do not compare equal, for neither holds the other.
    // Tests: JsonSubsetEqual.TwoEqualStringsAreNot, JsonSubsetEqual.TwoEmptyContainersAreNot
    if (json_empty(a) != 0 || json_empty(b) != 0) return false;
    if (levels_left == 0) {
        syslog(LOG_ERR, "qo_json_subset_equal: nodes are nested deeper than %d levels", JSON_MAX_PARSE_DEPTH);
        return false;
    }
    if (json_type(a) == JSON_ARRAY) return FreeElements(b).take_matches_for_all_of(a, levels_left - 1);
    return ObjectSubset(a, b, levels_left - 1).holds();
}

}  // namespace

bool qo_json_subset_equal(const JSONNODE* a, const JSONNODE* b) {
    // Iterating takes a mutable node; nothing below changes one.
    return is_subset(const_cast<JSONNODE*>(a), const_cast<JSONNODE*>(b), JSON_MAX_PARSE_DEPTH);
}
