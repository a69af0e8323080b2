// What a fuzz target is: a function that takes any bytes, under a name. All targets are in one program, which
// runs the one that is named.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace fuzz {

using Bytes = std::span<const uint8_t>;
using Target = void (*)(Bytes input);

// Null when there is none of this name.
Target FindTarget(const std::string& name);
std::vector<std::string> TargetNames();

struct Registration {
    Registration(const char* name, Target target);
};

// Ends the process, as a finding, unless the property holds.
void Require(bool holds, const char* property, const std::string& detail = {});

// For targets whose inputs are sequences: how many steps this one had. LibFuzzer.cpp prints the sum at the
// end.
void CountSteps(size_t steps);
size_t StepsSoFar();

}  // namespace fuzz

// FUZZ_TARGET(name) { ... looks at `input` ... }
#define FUZZ_TARGET(name)                                             \
    static void Fuzz(fuzz::Bytes input);                              \
    static const fuzz::Registration registration_##name(#name, Fuzz); \
    static void Fuzz(fuzz::Bytes input)
