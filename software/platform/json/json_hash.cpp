// The keyed hash, and where its key comes from.
#include "json_hash.h"

#include <unistd.h>

#include <bit>
#include <cstdlib>

namespace qo_json {
namespace {

HashKey random_key() {
    HashKey key{};
    if (getentropy(&key, sizeof key) != 0) std::abort();
    return key;
}

struct SipState {
    uint64_t v0, v1, v2, v3;

    explicit SipState(const HashKey& key)
        : v0(key.low ^ 0x736f6d6570736575U),
          v1(key.high ^ 0x646f72616e646f6dU),
          v2(key.low ^ 0x6c7967656e657261U),
          v3(key.high ^ 0x7465646279746573U) {}

    void round() {
        v0 += v1;
        v2 += v3;
        v1 = std::rotl(v1, 13) ^ v0;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 = std::rotl(v0, 32);
        v2 += v1;
        v0 += v3;
        v1 = std::rotl(v1, 17) ^ v2;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 = std::rotl(v2, 32);
    }

    void absorb(uint64_t word) {
        v3 ^= word;
        round();
        round();
        v0 ^= word;
    }

    uint64_t finish() {
        v2 ^= 0xff;
        for (int i = 0; i < 4; ++i) round();
        return v0 ^ v1 ^ v2 ^ v3;
    }
};

/// Up to eight bytes as a little-endian number.
uint64_t load_word(std::string_view bytes) {
    static_assert(std::endian::native == std::endian::little);
    uint64_t word = 0;
    bytes.copy(reinterpret_cast<char*>(&word), sizeof word);
    return word;
}

}  // namespace

uint64_t siphash(const HashKey& key, std::string_view bytes) {
    constexpr size_t kWord = sizeof(uint64_t);
    SipState state(key);
    const uint64_t last_byte = static_cast<uint64_t>(bytes.size()) << 56;
    while (bytes.size() >= kWord) {
        state.absorb(load_word(bytes.substr(0, kWord)));
        bytes.remove_prefix(kWord);
    }
    state.absorb(last_byte | load_word(bytes));
    return state.finish();
}

size_t NameHash::operator()(std::string_view name) const {
    static const HashKey key = random_key();
    return static_cast<size_t>(siphash(key, name));
}

}  // namespace qo_json
