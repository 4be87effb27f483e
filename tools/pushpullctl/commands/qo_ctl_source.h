/// Trees that a person names on the command line.
#ifndef QO_CTL_SOURCE_H
#define QO_CTL_SOURCE_H

#include <string>

#include "qo_ctl_shared.h"
#include "qo_pushpull_json.h"

inline constexpr char QO_CTL_LIVE[] = "live";

/// What may be named, for a help text.
inline constexpr char QO_CTL_SOURCES[] =
    "live (what the service holds), saved, backup, dump (the service's files), defaults (what is built\n"
    "in), or a file";

/// The tree of that name. Says why there is none.
/// @return null with the status set then
QoJsonNode qo_ctl_take_tree(const std::string& name, const QoCtlCommon& common, QoCtlSignals& signals,
                            QoCtlStatus& status);

#endif
