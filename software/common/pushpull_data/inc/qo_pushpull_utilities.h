/// JSON and file helpers of the data tree store. Free functions without state; any thread. None of them
/// throws, but for want of memory, or takes ownership of what it is given.
#ifndef QO_PUSHPULL_UTILITIES_H
#define QO_PUSHPULL_UTILITIES_H

#include <syslog.h>

#include <array>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

#include "qo_json.h"

class QoFileReader;

/// Logs with the store's prefix: the name of a public operation and the line. The operation is the function itself:
/// not for use inside a helper or a lambda, whose names mean nothing to the reader of a log.
#define QO_LOG(level, format, ...) QO_LOG_IN(__func__, level, format, ##__VA_ARGS__)
/// For helpers: names the operation that they are part of.
#define QO_LOG_IN(operation, level, format, ...) \
    syslog((level), "PushPull:%s@%d: " format, static_cast<const char*>(operation), __LINE__, ##__VA_ARGS__)
/// The same for refusals by write authority.
#define QO_LOG_DENY(level, format, ...) QO_LOG_DENY_IN(__func__, level, format, ##__VA_ARGS__)
#define QO_LOG_DENY_IN(operation, level, format, ...) \
    syslog((level), "PushPull DENY:%s@%d: " format, static_cast<const char*>(operation), __LINE__, ##__VA_ARGS__)

/// The table of the reflected CRC-32 of polynomial 0x04C11DB7, one entry per byte value.
extern const std::array<uint32_t, 256> QO_PUSHPULL_CRC32_TABLE_04C11DB7;

/// True when the file can be opened for reading. False for a missing or unreadable one, and for what has no
/// content to read to its end: a directory, a FIFO or a socket.
bool DoesFileExist(const std::string& path);

/// Log one property of a node at LOG_DEBUG: its type, its formatted text, its number of children, its name.
/// For a null node PrintJsonType logs "NULL pointer" at LOG_ERR and the others log nothing.
void PrintJsonType(const JSONNODE* node);
void PrintJsonNode(const JSONNODE* node);
void PrintJsonSize(const JSONNODE* node);
void PrintJsonName(const JSONNODE* node);

/// The CRC-32 that saved tree files carry, over every byte of `text`: the complement of the usual CRC-32,
/// 0x340BC6D9 for "123456789" and 0xFFFFFFFF for an empty text.
uint32_t CalcCrc32(std::string text);

/// CalcCrc32 of a text that comes piece by piece: begin with QO_CRC32_START, hand the result on to the next piece.
inline constexpr uint32_t QO_CRC32_START = 0xFFFFFFFF;
uint32_t qo_crc32_update(uint32_t crc, std::string_view text);

/// Writes `value` in decimal into `stream`, with the stream's own format flags. A stream that throws is
/// logged at LOG_ERR; what it then holds is the stream's affair.
void ConvertIntToString(long value, std::ostream& stream);

/// Whether `a` is contained in `b`; neither is changed. Two values (or empty containers) never are, and a
/// value inside an object asks for the equality of the two whole objects around it. An array's elements are
/// each matched with another element of the other array, the first that fits. Different types are logged at
/// LOG_ERR and not contained; neither is a tree nested deeper than JSON_MAX_PARSE_DEPTH, which only calls can
/// build. Costs at most the product of both sizes, and for objects without arrays their sum per level.
bool qo_json_subset_equal(const JSONNODE* a, const JSONNODE* b);

/// Parses a whole file; the caller owns the node. Null when the file cannot be opened or read to its end (nothing is
/// logged) and when it does not hold one valid JSON text (logged at LOG_ERR). The text is not kept in memory as a
/// whole. The first form does not tell the two apart: of a file whose content matters, ask the reader's error(). Throws
/// std::bad_alloc for want of memory, also the kernel's.
JSONNODE* ParseJsonFile(const std::string& path);
JSONNODE* ParseJsonFile(QoFileReader& file);

#endif
