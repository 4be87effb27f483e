// Arbitrary bytes as a request text. A request that was accepted must be written as a text that reads back the same.
#include <syslog.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "qo_json.h"
#include "qo_pushpull_process_api.h"
#include "request_tree_writer.h"

namespace {

void require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "violated: %s\n", what);
    std::abort();
}

bool same_texts(const QoProcessApi& a, const QoProcessApi& b) {
    return a.getfunction() == b.getfunction() && a.getBuff() == b.getBuff() && a.getsenderId() == b.getsenderId();
}

bool same_arguments(const QoProcessApi& a, const QoProcessApi& b) {
    return a.getcomp_id() == b.getcomp_id() && a.getdstcomp_id() == b.getdstcomp_id() &&
           a.get_notify_on_change_only() == b.get_notify_on_change_only() &&
           a.get_pack_and_send() == b.get_pack_and_send();
}

bool same_queue(const QoProcessApi& a, const QoProcessApi& b) {
    return a.getque_flags() == b.getque_flags() && a.getque_maxmsg() == b.getque_maxmsg() &&
           a.getque_msgsize() == b.getque_msgsize() && a.getque_curmsgs() == b.getque_curmsgs();
}

void check_reading_back(QoProcessApi& request) {
    request.toJSON();
    const std::string text = request.getJsonString();
    require(!text.empty(), "what was read can be written");
    require(text == QoRequestTreeWriter::write(request), "the text is that of the request's tree");

    QoProcessApi again;
    require(again.parseJSON(text) == 0, "a written request is valid");
    require(same_texts(request, again), "texts read back the same");
    require(same_arguments(request, again), "arguments read back the same");
    const bool queue_is_written = request.getque_maxmsg() > 0 && request.getque_msgsize() > 0;
    require(same_queue(queue_is_written ? request : QoProcessApi(), again), "a usable queue reads back the same");

    again.toJSON();
    require(again.getJsonString() == text, "a request is written the same again");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    setlogmask(LOG_UPTO(LOG_INFO));  // a refused text is logged whole, which costs more than parsing it
    const std::string text(reinterpret_cast<const char*>(data), size);
    QoProcessApi request;
    const bool accepted = request.parseJSON(text) == 0;
    require(accepted == (json_is_valid_n(text.data(), text.size()) == 1), "every valid JSON text is accepted");
    if (accepted) {
        check_reading_back(request);
    } else {
        const QoProcessApi untouched;
        require(same_texts(request, untouched) && same_arguments(request, untouched) && same_queue(request, untouched),
                "nothing is taken over from an invalid text");
    }
    return 0;
}
