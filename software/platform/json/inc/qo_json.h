/// JSON node library: a mutable tree of JSON values behind a flat C interface.
///
/// A tree is made of nodes. A node has a type, an optional name (its member name in the parent
/// object) and either a value (text, number, boolean, null) or an ordered list of children.
///
/// Rules that hold for every function
/// - Null safety: every function accepts a null node, text or iterator and then has the result that
///   its description gives; nothing is logged, nothing throws, nothing aborts.
/// - Ownership: a node that a function returns is the caller's until it is pushed into a parent,
///   which then owns it; json_delete releases a node with everything below it. A node has at most
///   one parent. `char*` results are the caller's and go back through json_free. Results marked
///   "view" belong to the node and live until it is next changed or deleted.
/// - Texts and names are UTF-8. Functions that take a `char*` read up to its NUL; the functions
///   that end in `_n` take bytes and a length, NUL bytes included. Invalid UTF-8 is refused, and so is
///   a text of 4 GiB or more.
/// - Numbers are kept as the text that they were written with: no digit is lost or added.
/// - Cost: in proportion to what is read, copied, compared, written or released. Searching and
///   appending do not depend on the number of children. Inserting, taking out and deleting a single
///   child move the pointers behind it: take out many with json_erase_if, copy many with
///   json_insert_multi.
/// - Depth: a text nested deeper than JSON_MAX_PARSE_DEPTH is invalid JSON. Trees built by calls may
///   be of any depth; no function recurses over the depth of a tree.
/// - Memory exhaustion throws std::bad_alloc, the one exception to "nothing throws"; what was being built is released.
/// - Threads: a tree may be read by several threads at once as long as none changes it. json_find,
///   json_find_n and json_pop_back may build the member index of the node that they search and so
///   count as a change of that one node's index, not of its children, names or values: another
///   thread may meanwhile duplicate, write, iterate, scan or compare the tree or take a snapshot, but not search that
///   node.
#ifndef QO_JSON_H
#define QO_JSON_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct JSONNODE JSONNODE;

/// Points at one child inside its parent's list of children; `*it` is the child. Valid until the
/// parent's list of children changes.
typedef JSONNODE** JSONNODE_ITERATOR;

// Node types, as json_type returns them.
#define JSON_NULL ((char)0)
#define JSON_STRING ((char)1)
#define JSON_NUMBER ((char)2)
#define JSON_BOOL ((char)3)
#define JSON_ARRAY ((char)4)
#define JSON_NODE ((char)5)

// Deepest nesting of arrays and objects that a JSON text may have, in levels; "[]" has one.
#define JSON_MAX_PARSE_DEPTH 512
// Widest indentation of a formatted line, in tabs. Without a bound, a small text that is nested deeply
// would be written as one of hundreds of times its size.
#define JSON_MAX_INDENT 32
// Most bytes that the writers make of one byte of a name or string: "\u001F".
#define JSON_LONGEST_ESCAPE 6
// Bytes of room that json_escape_n needs beyond those.
#define JSON_ESCAPE_SPARE 16

// Everything from here on is what the shared library exports.
#pragma GCC visibility push(default)

// ---- creating and releasing ----

/// A new unnamed node of `type`: null, "" , 0, false, [] or {}. Null for an unknown type.
JSONNODE* json_new(char type);
/// A new string node. A null `name` leaves it unnamed, a null `value` is "". Null if either is not
/// valid UTF-8.
JSONNODE* json_new_a(const char* name, const char* value);
/// Addition: json_new_a with lengths in bytes, so that a value may hold NUL bytes.
JSONNODE* json_new_a_n(const char* name, size_t name_length, const char* value, size_t value_length);
/// A new number node. A null `name` leaves it unnamed; null if the name is not valid UTF-8.
JSONNODE* json_new_i(const char* name, int64_t value);
/// A new boolean node; any `value` but 0 is true. Names as with json_new_i.
JSONNODE* json_new_b(const char* name, int value);
/// Parses one strict JSON text (any value at its root, white space around it). Null when it is not
/// valid JSON: bad syntax, invalid UTF-8, a byte order mark, a lone surrogate escape, nesting too
/// deep, a number beyond the range of a double, anything but white space behind the value. Duplicate
/// member names are kept in order.
/// A number is beyond the range also when the digits before its point or its exponent are by
/// themselves, although both together are not ("0e400", or 400 digits with "e-300"). A number too
/// close to 0 for a double is valid, whatever its exponent.
JSONNODE* json_parse(const char* text);
/// Addition: json_parse of `length` bytes. A NUL byte outside a string escape is invalid JSON.
JSONNODE* json_parse_n(const char* text, size_t length);
/// Puts the next bytes of a text into `buffer`, at most `size`. @return how many; 0 at its end.
typedef size_t (*json_reader)(char* buffer, size_t size, void* context);
/// Addition: json_parse_n of a text that `reader` gives piece by piece, so that a large one is never in memory as a
/// whole. The reader is not called again after its 0, nor more than some megabytes behind the place where the text
/// proves to be invalid.
JSONNODE* json_parse_from(json_reader reader, void* context);
/// Addition: reads many texts one after another, each in place of the one before, and needs no new memory for one that
/// is no larger than others before it.
typedef struct JSONDOCUMENT JSONDOCUMENT;
/// To be deleted. It is used by one thread at a time.
JSONDOCUMENT* json_document_new(void);
/// json_parse_n into the document. The tree stays the document's and lives until its next text; it may be read,
/// searched, compared, duplicated and written, but not changed, nor may its nodes be deleted or pushed anywhere. Null
/// when the text is not valid JSON, and for a null document.
JSONNODE* json_document_parse_n(JSONDOCUMENT* document, const char* text, size_t length);
/// Ends the life of the tree, and gives the memory back that only a large text needs.
void json_document_give_back(JSONDOCUMENT* document);
/// Null is allowed.
void json_document_delete(JSONDOCUMENT* document);
/// 1 when json_parse would give a node, else 0.
int json_is_valid(const char* text);
/// Addition: json_is_valid of `length` bytes.
int json_is_valid_n(const char* text, size_t length);
/// A deep copy, name included, without a parent. Null for null.
JSONNODE* json_duplicate(const JSONNODE* node);
/// The same as json_duplicate.
JSONNODE* json_copy(const JSONNODE* node);
/// Releases a node and everything below it; a node inside a parent is taken out of it first.
void json_delete(JSONNODE* node);
/// Releases all children; a value becomes that of a new node of the type. Type and name stay.
void json_clear(JSONNODE* node);

// ---- reading ----

/// The node's type; JSON_NULL for null.
char json_type(const JSONNODE* node);
/// The node's name, "" when it has none; to be freed. Null for null.
char* json_name(const JSONNODE* node);
/// Addition, view: the node's name without a copy, NUL-terminated; its length through `length`
/// unless null. "" for null and for an unnamed node.
const char* json_name_view(const JSONNODE* node, size_t* length);
/// Number of children; 0 for values and null.
size_t json_size(const JSONNODE* node);
/// 1 when the node has no children (always for values and null), else 0.
int json_empty(const JSONNODE* node);
/// First child and one behind the last child, never null. Equal for nodes without children and for
/// null.
JSONNODE_ITERATOR json_begin(JSONNODE* node);
JSONNODE_ITERATOR json_end(JSONNODE* node);
/// Addition: json_begin, and json_size through `count`, which may not be null.
JSONNODE_ITERATOR json_children(JSONNODE* node, size_t* count);
/// View: the first child named `name`, null when there is none or the node is not an object. Does
/// not scan the members of a large object: its cost does not depend on how many there are.
JSONNODE* json_find(const JSONNODE* node, const char* name);
/// Addition: json_find of a name given as bytes.
JSONNODE* json_find_n(const JSONNODE* node, const char* name, size_t length);
/// Addition: the position of the first child at or behind `from` that has the name, json_size when there is none. Scans
/// and changes nothing, not even the index, so that other threads may search the node meanwhile.
size_t json_scan_n(const JSONNODE* node, size_t from, const char* name, size_t length);
/// View: the child at position `index`, null when out of range.
JSONNODE* json_at(const JSONNODE* node, size_t index);
/// A number cut toward zero, at the ends of int64_t when beyond them; 0 for every other node.
int64_t json_as_int(const JSONNODE* node);
/// Addition: 1 and `*value` set when the node is a number that, cut toward zero, lies in int64_t;
/// else 0 and `*value` untouched.
int json_get_int(const JSONNODE* node, int64_t* value);
/// The nearest double of a number; 0.0 for every other node.
double json_as_float(const JSONNODE* node);
/// 1 for the boolean true, 0 for everything else.
int json_as_bool(const JSONNODE* node);
/// The value as text, to be freed: a string's bytes, a number's literal, "true", "false" or "null";
/// "" for arrays and objects. To a reader of C strings a string that holds NUL bytes ends at the
/// first; use json_string_view for all of it. Null for null.
char* json_as_string(const JSONNODE* node);
/// Addition, view: json_as_string without a copy, NUL-terminated; its length through `length` unless
/// null. "" for null.
const char* json_string_view(const JSONNODE* node, size_t* length);
/// 1 when both have the same type and value: strings by bytes, numbers by exact value (1, 1.0 and
/// 10e-1 are equal), arrays and objects by their children in order, member names included. The names
/// of the two nodes themselves do not count. Two nulls are equal, one null is not.
int json_equal(const JSONNODE* a, const JSONNODE* b);

// ---- changing ----

/// Appends `child`, which `parent` then owns. Refused without effect when either is null, `parent` is
/// not an array or object, `child` has a parent already, or `child` is `parent` or above it.
/// @return 1 when appended, else 0 (the child stays the caller's).
int json_push_back(JSONNODE* parent, JSONNODE* child);
/// Inserts `child` before `position`; refused like json_push_back, or when `position` is not within
/// the parent's children (json_end is). @return the child's position, null when refused.
JSONNODE_ITERATOR json_insert(JSONNODE* parent, JSONNODE_ITERATOR position, JSONNODE* child);
/// Inserts deep copies of the nodes from `first` up to `last`, in order, before `position`. The range
/// may not lie in `parent` itself. @return the first copy's position (`position`'s new place when
/// the range is empty), null when refused.
JSONNODE_ITERATOR json_insert_multi(JSONNODE* parent, JSONNODE_ITERATOR position, JSONNODE_ITERATOR first,
                                    JSONNODE_ITERATOR last);
/// Takes the child at `position` out and deletes it. @return the position of the child that followed
/// it (json_end when it was the last), null when refused.
JSONNODE_ITERATOR json_erase(JSONNODE* parent, JSONNODE_ITERATOR position);
/// Addition: takes out and deletes every child for which `matches` gives anything but 0, in one pass
/// that asks each child once, in order. `matches` may read the children but not change the list;
/// `context` is handed to it.
/// @return how many were deleted; 0 also when an argument other than `context` is null.
size_t json_erase_if(JSONNODE* parent, int (*matches)(const JSONNODE* child, void* context), void* context);
/// Takes the first child named `name` out of an object; the caller owns it. Null when there is none.
JSONNODE* json_pop_back(JSONNODE* parent, const char* name);
/// Takes the child at position `index` out; the caller owns it. Null when out of range.
JSONNODE* json_pop_back_at(JSONNODE* parent, size_t index);
/// Gives the node a name (null: ""). Does nothing for a null node or invalid UTF-8.
void json_set_name(JSONNODE* node, const char* name);
/// Addition: json_set_name of a name given as bytes.
void json_set_name_n(JSONNODE* node, const char* name, size_t length);
/// Makes `destination` a deep copy of `source`'s type and value or children; it keeps its own name and
/// parent. Does nothing when either is null or when `source` lies below `destination` or is it.
void json_set_n(JSONNODE* destination, const JSONNODE* source);

// ---- writing ----

/// The node as compact JSON text, to be freed. The node's own name is not written, nor are names of
/// array elements. Null for null.
char* json_write(const JSONNODE* node);
/// The node as text with a line break before every member and element, one tab per level up to
/// JSON_MAX_INDENT and one blank behind each colon; "{}" and "[]" when empty; no line break at its
/// end. The same tree always gives the same text, and a text that was written, parsed and written
/// again is unchanged. To be freed. Null for null.
char* json_write_formatted(const JSONNODE* node);
/// Additions: the two writers, which also give the text's length in bytes through `length` unless null.
char* json_write_n(const JSONNODE* node, size_t* length);
char* json_write_formatted_n(const JSONNODE* node, size_t* length);
/// Takes the next bytes of a text. @return 0 to be called no more, else anything but 0.
typedef int (*json_writer)(const char* bytes, size_t length, void* context);
/// Addition: hands what json_write_formatted would give to `writer` piece by piece, so that it is never in memory as a
/// whole. @return 1 when the writer has taken all of it, else 0, also when an argument but `context` is null.
int json_write_formatted_to(const JSONNODE* node, json_writer writer, void* context);
/// Addition: the same of a tree that is only a path: `count` nodes each of which, but the last, is a container that has
/// the next among its children. Each is written with the next as its only child, the last with all that it has.
int json_write_path_formatted_to(JSONNODE* const* path, size_t count, json_writer writer, void* context);

// ---- snapshots ----

/// Addition: what a tree was at one moment, to be written later. Takes about as much memory as its compact text would
/// without escapes, and much less time than a copy or a text.
typedef struct JSONSNAPSHOT JSONSNAPSHOT;
/// What is taken of a node that has children.
typedef enum {
    JSON_TAKE_NOTHING,   // it is left out
    JSON_TAKE_CHOSEN,    // it and, of its children, those that are chosen
    JSON_TAKE_CHILDREN,  // it and all its children; of theirs, those that are chosen
} JSON_TAKE;
/// Reads a node that has children, and those.
typedef JSON_TAKE (*json_chooser)(const JSONNODE* node, void* context);
/// A snapshot of a node, to be deleted. Below it `choose` is asked for every node that has children, unless all of its
/// siblings are taken; nodes without children are always taken. Null for null.
JSONSNAPSHOT* json_snapshot_new(const JSONNODE* node, json_chooser choose, void* context);
/// json_type of the node.
char json_snapshot_type(const JSONSNAPSHOT* snapshot);
/// json_write_formatted_to of what was taken.
int json_snapshot_write_formatted_to(const JSONSNAPSHOT* snapshot, json_writer writer, void* context);
/// Null is allowed.
void json_snapshot_delete(JSONSNAPSHOT* snapshot);

// ---- texts ----

/// Addition: how many bytes the writers make of `length` bytes of a name or string, quotes around it not counted. 0 for
/// null.
size_t json_written_length(const char* text, size_t length);
/// Addition: 1 when the bytes can be a name or a string of a node, else 0, also for null.
int json_is_text_n(const char* text, size_t length);
/// Addition: puts what the writers make of `length` bytes of a name or string, quotes around it not counted, into
/// `buffer`, which has room for JSON_LONGEST_ESCAPE times as many and JSON_ESCAPE_SPARE more. @return how many were put
/// there; 0 for null.
size_t json_escape_n(const char* text, size_t length, char* buffer);
/// Releases a text that this library returned. Null is allowed.
void json_free(void* text);

#pragma GCC visibility pop

#ifdef __cplusplus
}
#endif

#endif
