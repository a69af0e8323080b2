#include "fuzz/Target.h"

#include <cstdio>
#include <cstdlib>
#include <map>

namespace fuzz {

namespace {

size_t stepsSoFar = 0;

std::map<std::string, Target>& Targets() {
    static auto& targets = *new std::map<std::string, Target>;
    return targets;
}

}  // namespace

Registration::Registration(const char* name, Target target) {
    Targets()[name] = target;
}

Target FindTarget(const std::string& name) {
    const auto found = Targets().find(name);
    return found == Targets().end() ? nullptr : found->second;
}

std::vector<std::string> TargetNames() {
    std::vector<std::string> names;
    for (const auto& [name, target] : Targets())
        names.push_back(name);
    return names;
}

void CountSteps(size_t steps) {
    stepsSoFar += steps;
}

size_t StepsSoFar() {
    return stepsSoFar;
}

void Require(bool holds, const char* property, const std::string& detail) {
    if (holds) return;
    std::fprintf(stderr, "PROPERTY VIOLATED: %s%s%s\n", property, detail.empty() ? "" : ": ", detail.c_str());
    std::fflush(stderr);
    std::abort();
}

}  // namespace fuzz
