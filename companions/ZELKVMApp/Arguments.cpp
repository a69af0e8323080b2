#include "companions/ZELKVMApp/Arguments.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <iostream>

namespace {

constexpr int kWrongArguments = 2;
constexpr int kLargest = 65535;

}  // namespace

Arguments ParseArguments(int argc, char** argv) {
    Arguments arguments;
    CLI::App app("Stand-in for the KVM agent: stays until the service asks it to leave.", "ZELKVMApp");
    const CLI::Range size(0, kLargest);
    app.add_option("-X", arguments.width, "the screen's width in pixels")->required()->check(size);
    app.add_option("-Y", arguments.height, "the screen's height in pixels")->required()->check(size);
    app.add_option("-V", arguments.firmwareLevel, "the firmware's level in tenths")->required()->check(size);
    app.add_option("-E", arguments.displayMode, "1 for the display mode")
        ->required()
        ->check(CLI::Range(0, 1));
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        std::exit(0);
    } catch (const CLI::ParseError& problem) {
        std::fprintf(stderr, "ZELKVMApp: %s\n", problem.what());
        std::exit(kWrongArguments);
    }
    return arguments;
}
