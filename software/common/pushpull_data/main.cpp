// The program: its entry is pushpull_main().
#include "qo_pushpull_main.h"

int main(int argc, char* argv[]) { return pushpull_main(argc, argv); }
