// The C library's own, and the calls that only the Windows one has.
#pragma once

#include_next <stdlib.h>

// From the PC's environment, whatever the case of the name: *buffer is to be freed, or null when there is no
// such variable. 0, or EINVAL or ENOMEM.
int _dupenv_s(char** buffer, size_t* size, const char* name);
