/// What the commands that check files share.
#ifndef QO_CTL_CHECK_SHARED_H
#define QO_CTL_CHECK_SHARED_H

#include <string>
#include <string_view>

#include "qo_ctl_output.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_utilities.h"

inline void qo_ctl_add_text(const QoJsonNode& object, const char* name, std::string_view text) {
    json_push_back(object.get(), json_new_a_n(name, std::string_view(name).size(), text.data(), text.size()));
}

inline bool qo_ctl_can_be_read(const std::string& path) {
    if (DoesFileExist(path)) return true;
    qo_ctl_say(path + ": is not there or cannot be read");
    return false;
}

#endif
