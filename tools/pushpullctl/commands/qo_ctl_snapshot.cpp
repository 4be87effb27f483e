// snapshot: keeps the whole tree in a file.
#include <cerrno>
#include <cstring>
#include <fstream>

#include "qo_ctl_commands.h"
#include "qo_ctl_source.h"

namespace {

class Snapshot : public QoCtlCommand {
public:
    Help help() const override {
        return {"snapshot", "Keep the whole data tree in a file",
                "The file is what \"tree\" prints: \"diff\" compares with it, \"restore\" brings it back.\n\n"
                "Example:\n  pushpullctl snapshot before.json"};
    }
    void declare(QoCtlCommandLine& line) override { line.word("FILE", path_, "the file to write"); }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::string path_;
};

QoCtlStatus Snapshot::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlStatus status = QoCtlStatus::answered;
    const QoJsonNode tree = qo_ctl_take_tree(QO_CTL_LIVE, common, signals, status);
    signals.release();
    if (!tree) return status;
    std::ofstream file(path_, std::ios::binary);
    file << qo_json_write_formatted(tree.get()) << '\n' << std::flush;
    if (file) return QoCtlStatus::answered;
    qo_ctl_say(path_ + ": " + std::strerror(errno));
    return QoCtlStatus::failed;
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_snapshot() { return std::make_unique<Snapshot>(); }
