/// The member "crc" of a saved tree. Free functions without state; any thread.
#ifndef QO_PUSHPULL_TREE_CRC_H
#define QO_PUSHPULL_TREE_CRC_H

#include <cstdint>
#include <string>

#include "qo_json.h"

/// A CRC as saved files have it: lowercase hexadecimal without leading zeros.
std::string FormatTreeCrc(uint32_t crc);

struct QoTreeCrcCheck {
    enum class Result {
        match,
        missing,   // the tree has no member "crc"
        mismatch,  // "crc" is another number than the tree's, or none of 32 bits
    } result = Result::missing;
    std::string stored;       // the text of the member "crc"
    uint32_t calculated = 0;  // over the formatted text of the tree without it
};

/// Takes the first root member "crc" out of `tree`, which stays the caller's, and compares it with the CRC of
/// what is left. `calculated` stays 0 when there is none. Logs nothing.
QoTreeCrcCheck TakeOutTreeCrc(JSONNODE* tree);

#endif
