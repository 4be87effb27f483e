// Reading many texts one after another.
#include "json_document.h"

#include "json_fast_reader.h"

namespace qo_json {

void DocumentBuilder::restart() {
    chunks_ = 0;
    next_ = nullptr;
    chunk_end_ = nullptr;
    open_ = nullptr;
    name_ = kNoName;
}

void DocumentBuilder::take_chunk() {
    if (chunks_ == nodes_.size()) nodes_.push_back(std::make_unique<JSONNODE[]>(kChunk));
    next_ = nodes_[chunks_++].get();
    chunk_end_ = next_ + kChunk;
}

bool DocumentBuilder::open(char type) {
    JSONNODE* node = add(type, "");
    if (!node->children) node->children = std::make_unique<Children>();
    open_ = node;
    return true;
}

}  // namespace qo_json

namespace {

// What is kept from one text to the next.
constexpr size_t kKeptNodes = 256;
constexpr size_t kKeptSpace = 16384;  // bytes

}  // namespace

JSONNODE* JSONDOCUMENT::parse(std::string_view text) {
    using Reader = qo_json::FastReader<qo_json::Decoded::kept, qo_json::DocumentBuilder>;
    plain_.reset();
    if (text.size() > qo_json::kMaxTextLength) return nullptr;
    const size_t wanted = Reader::space_for(text.size());
    if (space_size_ < wanted) {
        space_size_ = 0;
        space_ = qo_json::new_space(wanted);
        space_size_ = wanted;
    }
    builder_.restart();
    if (Reader(text, space_.get(), builder_).read()) return builder_.root();
    plain_.reset(json_parse_n(text.data(), text.size()));
    return plain_.get();
}

void JSONDOCUMENT::give_back() {
    plain_.reset();
    if (builder_.size() > kKeptNodes) builder_ = qo_json::DocumentBuilder();
    if (space_size_ <= kKeptSpace) return;
    space_.reset();
    space_size_ = 0;
}

JSONDOCUMENT* json_document_new(void) { return new JSONDOCUMENT; }

JSONNODE* json_document_parse_n(JSONDOCUMENT* document, const char* text, size_t length) {
    return document == nullptr || text == nullptr ? nullptr : document->parse({text, length});
}

void json_document_give_back(JSONDOCUMENT* document) {
    if (document != nullptr) document->give_back();
}

void json_document_delete(JSONDOCUMENT* document) { delete document; }
