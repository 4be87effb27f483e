/// The whole of pushpullctl as one function.
#ifndef QO_CTL_MAIN_H
#define QO_CTL_MAIN_H

/// Runs pushpullctl. @return its exit status
int qo_ctl_main(int argc, const char* const* argv);

#endif
