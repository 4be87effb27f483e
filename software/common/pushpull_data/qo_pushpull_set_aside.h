/// Files that are no saved tree, or could not be read as one, and still may be wanted: they are kept under one fixed
/// name beside their own, the newest of each kind. Free of state; any thread.
#ifndef QO_PUSHPULL_SET_ASIDE_H
#define QO_PUSHPULL_SET_ASIDE_H

#include <string>

/// Renames a file that was read whole and is no JSON to its name with ".bad" appended; when that fails, removes it.
/// @return false when it is still there.
bool qo_set_aside_bad(const std::string& path);

/// Renames a file that could not be read to `path` with ".unread" appended. @param from `path`, or a second name of it
bool qo_set_aside_unread(const std::string& from, const std::string& path);
/// Undoes that.
bool qo_take_back_unread(const std::string& path);

/// Removes what was set aside of a file. Logs what cannot be removed, as of the request "init".
void qo_remove_set_aside(const std::string& path);

#endif
