// The C library's own, and the calls that only the Windows one has. Texts are not translated: lines end in
// LF.
#pragma once

#include_next <stdio.h>

// Share flag _SH_DENYNO alone: any other is refused with EINVAL, as nothing here could enforce it. A stream
// that appends can't be read from, in mode "a+" either. At most 64 are open at a time; one more is refused
// with EMFILE.
FILE* _fsopen(const char* path, const char* mode, int shareFlag);
int _fseeki64(FILE* stream, long long offset, int origin);
long long _ftelli64(FILE* stream);
// Reads alone, else EINVAL. The PC answers "ver"; the system's shell runs any other command.
FILE* _popen(const char* command, const char* mode);
int _pclose(FILE* stream);
