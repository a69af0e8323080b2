// Part of the native ZELService program alone. The service itself prints nothing, whatever its arguments are,
// and without a described PC it runs on an empty one in the current folder.
#include <cstdio>
#include <string_view>

#include "winhost/pc/Marks.h"

namespace {

bool IsStartedRight(int argc, char** argv) {
    const std::string_view argument = argc == 2 ? argv[1] : "";
    if (argument != "-service" && argument != "-console") return false;
    const winhost::Marks& marks = winhost::OwnMarks();
    return !marks.descriptionFile.empty() || !marks.root.empty();
}

// The C library calls it before main, with main's arguments.
[[gnu::constructor]] void ExplainAWrongStart(int argc, char** argv) {
    if (IsStartedRight(argc, argv)) return;
    std::fprintf(
        stderr,
        "usage: WINHOST_PC=FILE %s -service|-console\n"
        "FILE describes the simulated PC (docs/pc-description.md); ./dev run starts the service on one.\n",
        argc > 0 ? argv[0] : "ZELService");
}

}  // namespace
