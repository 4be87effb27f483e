/// What the commands that check files share.
#ifndef QO_CTL_CHECK_SHARED_H
#define QO_CTL_CHECK_SHARED_H

#include <string>

#include "qo_ctl_output.h"
#include "qo_pushpull_utilities.h"

inline bool qo_ctl_can_be_read(const std::string& path) {
    if (DoesFileExist(path)) return true;
    qo_ctl_say(path + ": is not there or cannot be read");
    return false;
}

#endif
