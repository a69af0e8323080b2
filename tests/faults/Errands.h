// Scenarios in which the host does something for the firmware outside of the PC, or for the PC. Of each pair
// the first function prepares and the second acts.
#pragma once

#include "tests/faults/World.h"

namespace errands {

// Without certreq.exe, for which no time would pass: the answer has only the root.
void SettledWithStores(World& world);
void Enrolment(World& world);

void SettledWithDirectory(World& world);
void Password(World& world);

// Needs no preparation.
void Alert(World& world);

void SettledWithUpgrade(World& world);
void Upgrade(World& world);

}  // namespace errands
