#pragma once

#include <windef.h>

#define SM_CLEANBOOT 67

// 0 for a metric that the PC does not have; the call has no error to tell.
int GetSystemMetrics(int index);
