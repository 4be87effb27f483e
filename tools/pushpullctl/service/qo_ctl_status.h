/// How a command ended, as the exit status tells it.
#ifndef QO_CTL_STATUS_H
#define QO_CTL_STATUS_H

enum class QoCtlStatus {
    answered = 0,     // done: the service answered, or handled the request
    failed = 1,       // refused, or failed
    usage = 2,        // the command line, or the text to publish, cannot be used; nothing was sent
    unreachable = 3,  // there is no service queue, or it may not be opened
    no_answer = 4,    // no answer came in time
    interrupted = 5,  // a signal ended it; the exit status is then 128 and the signal's number
};

#endif
