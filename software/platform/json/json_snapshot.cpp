// What a tree was at one moment, in the order in which it is written.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

#include "json_node.h"
#include "json_part_writer.h"

namespace qo_json {
namespace {

// What an entry begins with: the type of a node, or one of these.
constexpr char kTrue = JSON_NODE + 1;  // a JSON_BOOL that is not false
constexpr char kEnd = JSON_NODE + 2;   // no node: here end the children of a container

// A length takes one byte, or this one and four more.
constexpr unsigned char kLongLength = 0xFF;
constexpr size_t kLongestLength = 1 + sizeof(uint32_t);

char* put_text(char* out, const Text& text) {
    const auto length = static_cast<uint32_t>(text.view().size());
    if (length < kLongLength) {
        *out++ = static_cast<char>(length);
    } else {
        *out++ = static_cast<char>(kLongLength);
        std::memcpy(out, &length, sizeof length);
        out += sizeof length;
    }
    text.copy_to(out);
    return out + length;
}

std::string_view take_text(const char*& at) {
    uint32_t length = static_cast<unsigned char>(*at++);
    if (length == kLongLength) {
        std::memcpy(&length, at, sizeof length);
        at += sizeof length;
    }
    const std::string_view text(at, length);
    at += length;
    return text;
}

/// A node without its children, or the end of a container.
struct Entry {
    char type;
    std::string_view name;
    std::string_view text;  // of a string or number
};

/// Entries one behind the other. None is spread over two chunks.
class Entries {
public:
    Entries() { add_chunk(0); }

    void add(const JSONNODE* node) {
        make_room(sizeof node->type + 2 * (kLongestLength + Text::kCopySpare) + node->name.view().size() +
                  node->text.view().size());
        *end_++ = node->type == JSON_BOOL && node->boolean ? kTrue : node->type;
        end_ = put_text(put_text(end_, node->name), node->text);
    }
    void add_end() {
        make_room(sizeof kEnd);
        *end_++ = kEnd;
    }
    /// Comes before they are handed on.
    void finish() { chunks_.back().end = end_; }

    template <typename Take>
    void hand_to(Take take) const {
        for (const Chunk& chunk : chunks_)
            for (const char* at = chunk.bytes.get(); at != chunk.end;) take(entry_at(at));
    }

private:
    struct Chunk {
        std::unique_ptr<char[]> bytes;
        char* end;
    };

    void make_room(size_t count) {
        if (static_cast<size_t>(room_end_ - end_) < count) add_chunk(count);
    }

    void add_chunk(size_t wanted) {
        constexpr size_t kUsualSize = 65536;  // bytes
        const size_t size = std::max(kUsualSize, wanted);
        if (!chunks_.empty()) finish();
        chunks_.push_back({std::make_unique_for_overwrite<char[]>(size), nullptr});
        end_ = chunks_.back().bytes.get();
        room_end_ = end_ + size;
    }

    static Entry entry_at(const char*& at) {
        const char type = *at++;
        if (type == kEnd) return {type, "", ""};
        const std::string_view name = take_text(at);
        return {type, name, take_text(at)};
    }

    std::vector<Chunk> chunks_;
    char* end_ = nullptr;  // of what was added to the last chunk
    char* room_end_ = nullptr;
};

/// Adds what is chosen of a tree.
void add_chosen(const JSONNODE* root, json_chooser choose, void* context, Entries& entries) {
    struct Level {
        JSONNODE* const* next;  // child
        JSONNODE* const* end;
        bool chosen;  // those that have children
    };
    std::vector<Level> open;
    const auto start_container = [&](const JSONNODE* node, bool chosen) {
        entries.add(node);
        JSONNODE* const* const children = node->children->items.data();
        open.push_back({children, children + node->children->items.size(), chosen});
    };
    const auto add_childless = [&](const JSONNODE* node) {
        entries.add(node);
        if (is_container(node)) entries.add_end();
    };

    if (child_count(root) == 0) return add_childless(root);
    start_container(root, true);
    while (!open.empty()) {
        Level& level = open.back();
        if (level.next == level.end) {
            entries.add_end();
            open.pop_back();
            continue;
        }
        const JSONNODE* child = *level.next++;
        if (child_count(child) == 0) {
            add_childless(child);
            continue;
        }
        const JSON_TAKE taken = level.chosen && choose != nullptr ? choose(child, context) : JSON_TAKE_CHOSEN;
        if (taken != JSON_TAKE_NOTHING) start_container(child, taken == JSON_TAKE_CHOSEN);
    }
}

/// Writes entries as the formatted text of a node.
class EntryWriter {
public:
    explicit EntryWriter(PieceOutput& output) : writer_(output, true) {}

    void put(const Entry& entry) {
        if (entry.type == kEnd) return close();
        if (!open_.empty()) begin_child(entry.name);
        switch (entry.type) {
            case JSON_ARRAY:
            case JSON_NODE:
                writer_.put(brackets_of(entry.type).open);
                open_.push_back({entry.type, true});
                return;
            case JSON_NULL:
                return writer_.put_scalar(JSON_NULL, kNullText);
            case JSON_BOOL:
                return writer_.put_scalar(JSON_BOOL, kFalseText);
            case kTrue:
                return writer_.put_scalar(JSON_BOOL, kTrueText);
            default:
                return writer_.put_scalar(entry.type, entry.text);
        }
    }

private:
    struct Level {
        char type;
        bool empty;  // so far
    };

    void begin_child(std::string_view name) {
        Level& level = open_.back();
        if (level.type == JSON_NODE)
            writer_.begin_member(level.empty, open_.size(), name);
        else
            writer_.begin_element(level.empty, open_.size());
        level.empty = false;
    }

    void close() {
        const Level level = open_.back();
        open_.pop_back();
        if (level.empty)
            writer_.put(brackets_of(level.type).close);
        else
            writer_.end_children(open_.size(), brackets_of(level.type).close);
    }

    PartWriter<PieceOutput> writer_;
    std::vector<Level> open_;
};

}  // namespace
}  // namespace qo_json

struct JSONSNAPSHOT {
    qo_json::Entries entries;
    char type = JSON_NULL;
};

JSONSNAPSHOT* json_snapshot_new(const JSONNODE* node, json_chooser choose, void* context) {
    if (node == nullptr) return nullptr;
    auto snapshot = std::make_unique<JSONSNAPSHOT>();
    snapshot->type = node->type;
    qo_json::add_chosen(node, choose, context, snapshot->entries);
    snapshot->entries.finish();
    return snapshot.release();
}

char json_snapshot_type(const JSONSNAPSHOT* snapshot) { return snapshot == nullptr ? JSON_NULL : snapshot->type; }

int json_snapshot_write_formatted_to(const JSONSNAPSHOT* snapshot, json_writer write, void* context) {
    if (snapshot == nullptr || write == nullptr) return 0;
    qo_json::PieceOutput output(write, context);
    qo_json::EntryWriter writer(output);
    snapshot->entries.hand_to([&writer](const qo_json::Entry& entry) { writer.put(entry); });
    return output.finish() ? 1 : 0;
}

void json_snapshot_delete(JSONSNAPSHOT* snapshot) { delete snapshot; }
