// SPDX-License-Identifier: MIT
//
// Runs a command line, numbers the lines that it prints, and ends as it ended.
//
//     tool 'df -k /dvr'
#include <System/KestrovaPOpen.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: tool COMMAND\n");
        return 2;
    }

    // The shell runs the command. Its output comes to us, its errors go where ours go. No system
    // object is needed.
    std::FILE* output = nullptr;
    const int child = kestrova_popen_fout(output, argv[1]);
    if (child <= 0) {
        std::perror("tool: no process");
        return 1;
    }

    // First all of the output, then the child: one that still writes would never end.
    int lines = 1;
    bool atStart = true;
    for (int character = std::fgetc(output); character != EOF; character = std::fgetc(output)) {
        if (atStart) {
            std::printf("%3d  ", lines++);
        }
        std::putchar(character);
        atStart = character == '\n';
    }
    std::fclose(output);

    // Every child has to be asked after once, or it stays behind as a zombie.
    int status = 0;
    switch (kestrova_pstatus(child, status, true)) {
        case eCsExited:
            std::fprintf(stderr, "tool: exit status %d\n", status);
            return status;
        case eCsKilled:
            std::fprintf(stderr, "tool: ended by signal %d\n", status);
            return 128 + status;
        default:
            // A signal of ours came in between, or somebody else has waited for our child.
            std::perror("tool: wait");
            return 1;
    }
}
