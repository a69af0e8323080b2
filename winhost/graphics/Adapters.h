// The libraries of the graphics adapters: their functions by name, for those who look them up.
#pragma once

#include <cstdint>
#include <vector>

#include <minwindef.h>

#include "winhost/kernel/SystemModules.h"

namespace winhost {

inline LUID LuidOf(uint64_t number) {
    return {static_cast<DWORD>(number), static_cast<LONG>(number >> 32)};
}
inline uint64_t NumberOf(const LUID& luid) {
    return static_cast<uint64_t>(static_cast<uint32_t>(luid.HighPart)) << 32 | luid.LowPart;
}

std::vector<Export> DxgiExports();
std::vector<Export> Direct3DExports();
std::vector<Export> DisplayDriverExports();

}  // namespace winhost
