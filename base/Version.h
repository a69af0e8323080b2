#pragma once

inline constexpr const char* kServiceVersion = "5.1.0.1481";
