/// The least component in C: built against the installed library only, with nothing of this source tree.
#include <qo_pushpull_c.h>
#include <stdio.h>

int main(void) {
    qo_pushpull_c_client* client = NULL;
    const int32_t status = qo_pushpull_c_open(QO_CMPID_DEMO, "_no_such_instance", &client);
    printf("%d: %s\n", (int)status, qo_pushpull_c_status_text(status));
    qo_pushpull_c_close(client);
    return status == QO_PUSHPULL_C_NO_SERVICE && qo_pushpull_c_version() == QO_PUSHPULL_C_VERSION ? 0 : 1;
}
