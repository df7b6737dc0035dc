#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/virtual_dsp/board/enter_board.h"

// run_on_board PROGRAM ARGUMENTS...: runs any program on the virtual board, for example a debugger
// or a shell. The devices are there while some program on that board serves them.
int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s PROGRAM ARGUMENTS...\n", argv[0]);
        return 2;
    }
    if (const auto status = virtual_dsp::EnterBoard(argc, argv)) return *status;
    execvp(argv[1], argv + 1);
    fprintf(stderr, "%s: %s\n", argv[1], strerror(errno));
    return 127;
}
