/// The script that restarts the device, in a folder where everybody may make files: made so that what is run there is
/// never somebody else's.
#ifndef QO_PUSHPULL_RESTART_SCRIPT_H
#define QO_PUSHPULL_RESTART_SCRIPT_H

#include <string>
#include <string_view>

#include "qo_pushpull_descriptor.h"

/// Queue monitor's thread. May throw std::bad_alloc. Every doubt is logged (LOG_CRIT, with errno where there is one).
class QoRestartScript {
public:
    /// @param path of the script; its folder has to exist. Above that folder only root may change things.
    explicit QoRestartScript(std::string path);

    /// Puts a new file with that text, for the service's user alone, in the place of whatever stands at the path. A
    /// link or a pipe there is neither followed nor opened. False when that did not work.
    bool write(std::string_view text);
    /// Whether the path still leads to what write() made, whole and unshared, in a folder where nobody else can put
    /// something in its place.
    bool is_ours() const;

private:
    bool write_whole(int file, std::string_view text) const;
    bool doubt(const char* what, int error) const;

    std::string path_;
    std::string name_;     // in the folder
    QoDescriptor folder_;  // -1 when it cannot be looked at
    QoDescriptor script_;  // keeps its number from being given to another file
    size_t size_ = 0;
};

#endif
