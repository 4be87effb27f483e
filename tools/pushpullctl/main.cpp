// The entry of pushpullctl.
#include "qo_ctl_main.h"

int main(int argc, char** argv) { return qo_ctl_main(argc, argv); }
