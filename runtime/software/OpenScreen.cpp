#include <cstdio>
#include <cstdlib>
#include <string>

#include "runtime/software/ScreenSource.h"
#include "runtime/software/TestPicture.h"
#include "runtime/software/Trace.h"

namespace luxrt {

using namespace lux;

std::unique_ptr<ScreenSource> OpenScreen(int64_t monitor) {
    const char* const variable = std::getenv("LUXRT_SCREEN");
    const std::string wanted = variable ? variable : "";
    if (wanted == "test") {
        return std::make_unique<TestPicture>();
    }
    LUXSize size{};
    if (std::sscanf(wanted.c_str(), "test:%dx%d", &size.width, &size.height) == 2 && IsPictureSize(size)) {
        return std::make_unique<TestPicture>(size);
    }
    if (!wanted.empty()) {
        TraceLine(LUX_TRACE_WARNING,
                  "LUXRT_SCREEN is \"%s\", which is neither \"test\" nor \"test:WIDTHxHEIGHT\"",
                  wanted.c_str());
    }
    return OpenDesktopScreen(monitor);
}

}  // namespace luxrt
