#include "apps/camclock/commands/CommandLine.h"

int main(int argc, char** argv) {
    return camclock::app::RunCommandLine(argc, argv);
}
