// What the service tells its agent on the command line.
#pragma once

struct Arguments {
    int width = 0, height = 0;  // of the screen, in pixels
    int firmwareLevel = 0;      // in tenths: 21 is 2.1
    int displayMode = 0;        // 1 when the agent has to serve the display too
};

// Ends the process with code 2 and one line on stderr when the arguments aren't those of the service, and
// with code 0 after --help.
Arguments ParseArguments(int argc, char** argv);
