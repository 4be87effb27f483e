// Keeping files aside that could not be read or parsed.
#include "qo_pushpull_set_aside.h"

#include <errno.h>
#include <stdio.h>

#include "qo_pushpull_utilities.h"

namespace {

constexpr char kBadExtension[] = ".bad";
constexpr char kUnreadExtension[] = ".unread";

}  // namespace

bool qo_set_aside_bad(const std::string& path) {
    return rename(path.c_str(), (path + kBadExtension).c_str()) == 0 || remove(path.c_str()) == 0;
}

// When both are names of one file already, from a save that failed after this, nothing is done.
bool qo_set_aside_unread(const std::string& from, const std::string& path) {
    return rename(from.c_str(), (path + kUnreadExtension).c_str()) == 0;
}

bool qo_take_back_unread(const std::string& path) {
    return rename((path + kUnreadExtension).c_str(), path.c_str()) == 0;
}

void qo_remove_set_aside(const std::string& path) {
    for (const char* extension : {kBadExtension, kUnreadExtension}) {
        const std::string name = path + extension;
        if (remove(name.c_str()) != 0 && errno != ENOENT)
            QO_LOG_IN("comp_init", LOG_ERR, "Cannot remove file %s: %m", name.c_str());
    }
}
