// What the service is taken through while a call fails.
#pragma once

#include <vector>

#include "tests/faults/World.h"

const std::vector<Scenario>& Scenarios();
