#include "KVMDisplayMgrLib/src/StandardOutput.h"

#include <cstdio>
#include <string>

#include "base/WideText.h"

void PrintWide(const wchar_t* text) {
    std::fputs(ToUtf8(text, 1024).c_str(), stdout);
    std::fflush(stdout);
}
