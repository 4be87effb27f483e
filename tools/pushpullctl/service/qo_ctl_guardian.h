/// A child process that tidies up when pushpullctl is killed. A registered queue that nobody empties is no small
/// matter: once it has been full for two minutes the service restarts the device.
#ifndef QO_CTL_GUARDIAN_H
#define QO_CTL_GUARDIAN_H

#include <sys/types.h>

#include <string>

#include "qo_component_ids.h"

/// Lives as long as this object. It does nothing while its parent lives, and nothing when told that nothing is
/// left to tidy up.
class QoCtlGuardian {
public:
    QoCtlGuardian() = default;
    /// Ends the child without tidying up and waits for it.
    ~QoCtlGuardian();
    QoCtlGuardian(const QoCtlGuardian&) = delete;
    QoCtlGuardian& operator=(const QoCtlGuardian&) = delete;

    /// Starts the child. Only while the process has one thread. Without a child, when the system allows no more
    /// processes, everything else works as well.
    void start(const std::string& instance);

    /// What the child has to do when this process dies from now on: unlink `queue_name`, and before that
    /// unregister `registered_as` unless that is QO_CMPID_RESERVED. An empty name: nothing.
    void set_duty(const std::string& queue_name, eQO_CMP_IDs_ registered_as);

private:
    int pipe_ = -1;  // the end to which duties are written; the child sees it close when this process ends
    pid_t child_ = -1;
};

#endif
