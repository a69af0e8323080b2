// How the consent client is started.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

// What is sent without asking anybody.
struct Unattended {
    std::vector<std::string> texts;          // one message each, in this order
    bool staysSilent = false;                // afterwards: until the service closes the pipe
    unsigned repeat = 1;                     // how often each is sent
    std::chrono::duration<double> delay{0};  // before each
};

struct Arguments {
    std::optional<std::chrono::duration<double>> wait;  // for a question; none: for ever
    std::optional<Unattended> unattended;
    bool serves = false;  // goes on with the next question
    bool dialog = false;  // asks in a window where it can
};

// Ends the process with code 2 and one line on stderr when the arguments are wrong, and with code 0 after
// --help.
Arguments ParseArguments(int argc, char** argv);
