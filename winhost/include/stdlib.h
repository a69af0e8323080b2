// The C library's own, and the calls that only the Windows one has.
#pragma once

#include_next <stdlib.h>

// From the PC's environment, whatever the case of the name. *needed is the size of the value with its end, 0
// when there is no such variable; the value is stored when `size` has room for it. 0, or EINVAL or ERANGE.
int getenv_s(size_t* needed, char* buffer, size_t size, const char* name);
