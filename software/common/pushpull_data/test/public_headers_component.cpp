/// The least component: built against the installed library only, with nothing of this source tree.
#include <qo_pushpull_api.h>
#include <stdio.h>

int main() {
    QoPushpullApi api;
    const std::string request = api.build_json_post_msg(QO_CMPID_DEMO, "/version", "get");
    const bool as_expected = request.find("\"function\": \"get\"") != std::string::npos &&
                             api.check_delete_authority(QO_CMPID_DEMO) == -1 && api.terminate() == 0;
    if (!as_expected) puts(request.c_str());
    return as_expected ? 0 : 1;
}
