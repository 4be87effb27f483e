// What several commands share.
#include "qo_ctl_commands.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

constexpr eQO_CMP_IDs_ kIdentities[] = {QO_CMPID_TESTPUBLISHER, QO_CMPID_BASE_SIMULATOR, QO_CMPID_CS_SIMULATOR,
                                        QO_CMPID_ALERTS_SIMULATOR, QO_CMPID_VELDA_TESTER};
constexpr eQO_CMP_IDs_ kDeletingIdentities[] = {QO_CMPID_HVAC_SYSCON_END, QO_CMPID_HVAC_SYSCON_TEST};

}  // namespace

QoCtlSessionSettings qo_ctl_session_settings(const QoCtlOptions& options) {
    QoCtlSessionSettings settings;
    settings.instance = options.instance;
    settings.timeout = options.timeout;
    settings.message_size = options.message_size;
    if (options.identity != QO_CMPID_RESERVED)
        settings.identities = {options.identity};
    else if (options.command == QoCtlCommand::delete_node)
        settings.identities.assign(std::begin(kDeletingIdentities), std::end(kDeletingIdentities));
    else
        settings.identities.assign(std::begin(kIdentities), std::end(kIdentities));
    return settings;
}

QoCtlStyle qo_ctl_stdout_style(const QoCtlOptions& options) {
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    QoCtlStyle style;
    style.coloured =
        options.color == QoCtlColor::always || (options.color == QoCtlColor::automatic && terminal &&
                                                qo_ctl_wants_colours(std::getenv("TERM"), std::getenv("NO_COLOR")));
    style.formatted = terminal || style.coloured;
    if (options.json_lines) style = QoCtlStyle{};
    return style;
}

QoCtlStatus qo_ctl_print(const std::string& text, QoCtlStatus status) {
    if (qo_ctl_write(STDOUT_FILENO, text)) return status;
    if (errno != EPIPE) qo_ctl_say(std::string("cannot write to standard output: ") + std::strerror(errno));
    return QoCtlStatus::failed;
}
