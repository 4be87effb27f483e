// What several commands share.
#include "qo_ctl_shared.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

#include "qo_ctl_syntax.h"
#include "qo_ctl_text.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_json.h"

namespace {

constexpr eQO_CMP_IDs_ kDeletingIdentities[] = {QO_CMPID_HVAC_SYSCON_END, QO_CMPID_HVAC_SYSCON_TEST};

// Behind those that have names come numbers of its own: an identifier needs no name.
constexpr eQO_CMP_IDs_ kNamed[] = {QO_CMPID_TESTPUBLISHER, QO_CMPID_BASE_SIMULATOR, QO_CMPID_CS_SIMULATOR,
                                   QO_CMPID_ALERTS_SIMULATOR, QO_CMPID_VELDA_TESTER};
constexpr int32_t kFirstNumber = 0x50430000;
constexpr size_t kNumbers = 27;

constexpr auto kIdentities = [] {
    std::array<eQO_CMP_IDs_, std::size(kNamed) + kNumbers> all{};
    std::copy(std::begin(kNamed), std::end(kNamed), all.begin());
    for (size_t i = 0; i < kNumbers; ++i)
        all[std::size(kNamed) + i] = static_cast<eQO_CMP_IDs_>(kFirstNumber + static_cast<int32_t>(i));
    return all;
}();

/// Reads a stream to its end, or as far as no request could hold it any more.
std::string read_all(std::istream& stream) {
    std::string text;
    char piece[4096];
    while (text.size() <= static_cast<size_t>(QO_QUEUE_MSGSIZE) && stream) {
        stream.read(piece, sizeof piece);
        text.append(piece, static_cast<size_t>(stream.gcount()));
    }
    return text;
}

std::string read_file(const std::string& name, std::string& text) {
    std::ifstream file(name, std::ios::binary);
    if (!file) return name + ": " + std::strerror(errno);
    text = read_all(file);
    return file.bad() ? name + ": cannot be read" : "";
}

QoCtlLook look_at(QoCtlSession& session, const std::string& pointer) {
    const QoCtlExchange exchange = session.ask(pointer, false);
    QoCtlLook look;
    look.status = exchange.status;
    if (exchange.status != QoCtlStatus::answered) return look;
    // An answer that is too long to be received is one all the same.
    const std::string body = exchange.answers.empty() ? "" : exchange.answers.front();
    look.there = exchange.answers.empty() || qo_ctl_answer(pointer, body).kind == QoCtlAnswerKind::json;
    const QoJsonNode answer = qo_json_parse(body);
    bool passes_array = false;
    JSONNODE* node = qo_ctl_addressed(answer.get(), pointer, &passes_array);
    look.placeholder = passes_array && qo_ctl_is_placeholder(node);
    return look;
}

}  // namespace

// ---- the command line ----

std::string qo_ctl_pointers_fault(const std::vector<std::string>& pointers) {
    for (const std::string& pointer : pointers) {
        const std::string fault = qo_ctl_pointer_fault(pointer);
        if (!fault.empty()) return std::string(pointer).append(": ").append(fault);
    }
    return "";
}

std::string qo_ctl_node_fault(const std::string& pointer) {
    if (std::string fault = qo_ctl_pointers_fault({pointer}); !fault.empty()) return fault;
    return qo_ctl_segments(pointer).empty() ? "the whole tree cannot be deleted or cleared" : "";
}

std::string qo_ctl_take_object(std::string& text, const std::string& file) {
    if (!file.empty() && file != "-") {
        if (std::string fault = read_file(file, text); !fault.empty()) return fault;
    } else if (file == "-" || text == "-") {
        text = read_all(std::cin);
    } else if (text.empty()) {
        return "nothing to publish: give a JSON object, --file FILE, or - for standard input";
    }
    if (text.size() > static_cast<size_t>(QO_QUEUE_MSGSIZE))
        return "the text is longer than a request can be (" + std::to_string(QO_QUEUE_MSGSIZE) + " bytes)";
    const QoJsonNode node = qo_json_parse(text);
    if (!node) return "the text to publish is not valid JSON: " + qo_ctl_syntax_fault(text);
    return json_type(node.get()) == JSON_NODE ? "" : "the text to publish is not a JSON object";
}

// ---- the session ----

std::span<const eQO_CMP_IDs_> qo_ctl_identities() { return kIdentities; }

std::span<const eQO_CMP_IDs_> qo_ctl_deleting_identities() { return kDeletingIdentities; }

QoCtlSessionSettings qo_ctl_session_settings(const QoCtlCommon& common, std::span<const eQO_CMP_IDs_> identities) {
    QoCtlSessionSettings settings;
    settings.instance = common.instance;
    settings.timeout = common.timeout;
    settings.message_size = common.message_size;
    settings.identities.assign(identities.begin(), identities.end());
    if (common.identity != QO_CMPID_RESERVED) settings.identities = {common.identity};
    return settings;
}

QoCtlStatus qo_ctl_handle(const QoCtlCommon& common, QoCtlSignals& signals, const QoCtlSession::Request& request,
                          const std::string& longest_text) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    QoCtlStatus status = session.open();
    if (status == QoCtlStatus::answered) status = session.send(request, longest_text);
    if (status == QoCtlStatus::answered) status = session.fence();
    return status;
}

QoCtlStatus qo_ctl_wait_for_text(QoCtlSession& session, const QoCtlSignals& signals, const std::string& awaited,
                                 std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (signals.caught() == 0) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            qo_ctl_say("no answer from the service in time");
            return QoCtlStatus::no_answer;
        }
        if (session.next_text(left) == awaited) return QoCtlStatus::answered;
    }
    return QoCtlStatus::interrupted;
}

QoCtlLook qo_ctl_change_node(QoCtlSession& session, const std::string& pointer, const QoCtlSession::Request& request) {
    QoCtlLook look = look_at(session, pointer);
    if (look.status == QoCtlStatus::answered && !look.there) {
        qo_ctl_say(pointer + ": no such node");
        look.status = QoCtlStatus::failed;
    }
    if (look.status == QoCtlStatus::answered) look.status = session.send(request, pointer);
    return look.status == QoCtlStatus::answered ? look_at(session, pointer) : look;
}

// ---- the output ----

QoCtlStyle qo_ctl_stdout_style(const QoCtlCommon& common) {
    const bool terminal = isatty(STDOUT_FILENO) == 1;
    QoCtlStyle style;
    style.coloured =
        common.color == QoCtlColor::always || (common.color == QoCtlColor::automatic && terminal &&
                                               qo_ctl_wants_colours(std::getenv("TERM"), std::getenv("NO_COLOR")));
    style.formatted = terminal || style.coloured;
    if (common.json_lines) style = QoCtlStyle{};
    return style;
}

QoCtlStatus qo_ctl_print(const std::string& text, QoCtlStatus status) {
    if (qo_ctl_write(STDOUT_FILENO, text)) return status;
    if (errno != EPIPE) qo_ctl_say(std::string("cannot write to standard output: ") + std::strerror(errno));
    return QoCtlStatus::failed;
}
