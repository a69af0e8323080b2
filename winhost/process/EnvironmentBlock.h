// Environments as Windows hands them about.
#pragma once

#include <string>
#include <vector>

#include <minwindef.h>

namespace winhost {

// The variables "NAME=value" of the PC's environment, in the order in which Windows keeps them.
std::vector<std::string> PcEnvironment();
// The texts of a block: `Char` is WCHAR, or char for a narrow one.
template <class Char>
std::vector<std::basic_string<Char>> TextsOfBlock(const Char* block) {
    std::vector<std::basic_string<Char>> texts;
    while (*block) {
        texts.emplace_back(block);
        block += texts.back().size() + 1;
    }
    return texts;
}

}  // namespace winhost
