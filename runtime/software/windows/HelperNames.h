// What the library and the program beside it have to agree on.
#pragma once

namespace luxrt {

inline constexpr wchar_t kHelperProgram[] = L"luxcapture.exe";
// Behind the name of the shared memory.
inline constexpr wchar_t kRequestedSuffix[] = L"-requested";
inline constexpr wchar_t kAnsweredSuffix[] = L"-answered";

}  // namespace luxrt
