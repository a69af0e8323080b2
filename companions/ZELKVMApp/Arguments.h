// The arguments that the service passes to its agent on the command line.
#pragma once

struct Arguments {
    int width = 0, height = 0;  // of the screen, in pixels
    int firmwareLevel = 0;      // in tenths: 21 is 2.1
    int displayMode = 0;        // 1 when the agent must also serve the display
};

// Exits with code 2 and prints one line on stderr when the arguments are not valid. Exits with code 0 after
// --help.
Arguments ParseArguments(int argc, char** argv);
