// The command line of the consent client.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

// The answers that the client sends without asking a user.
struct Unattended {
    std::vector<std::string> texts;          // each is one message, sent in this order
    bool staysSilent = false;                // afterwards waits until the service closes the pipe
    unsigned repeat = 1;                     // number of times that each text is sent
    std::chrono::duration<double> delay{0};  // pause before each message
};

struct Arguments {
    std::optional<std::chrono::duration<double>> wait;  // time to wait for a question; none: unlimited
    std::optional<Unattended> unattended;
    bool serves = false;  // continues with the next question
    bool dialog = false;  // asks in a window when zenity is available
};

// Exits with code 2 and prints one line on stderr when the arguments are wrong. Exits with code 0 after
// --help.
Arguments ParseArguments(int argc, char** argv);
