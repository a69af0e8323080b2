// The two functions that the cloud library calls, on any of its threads and at any time, even after the end
// of a connection. Neither throws.
#pragma once

#include "cloud/NubaLibrary.h"

// Writes a line of the library to the log.
void LogOfNuba(int8_t level, const char* text) noexcept;

// Returns true for the two management ports of this host: that of DASH and that of KVM.
bool FilterOfNuba(void* context, const Endpoint* endpoint) noexcept;

// Called before the library gets the filter.
void PrepareFilter(const NubaFunctions& functions, uint16_t dashPort);
