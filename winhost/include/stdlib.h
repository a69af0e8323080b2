// The C library's own, and the calls that only the Windows one has.
#pragma once

#include_next <stdlib.h>

// From the PC's environment, whatever the case of the name. *needed is the size of the value with its end, 0
// when there is no such variable; the value is stored when `size` has room for it. 0, or EINVAL or ERANGE.
int getenv_s(size_t* needed, char* buffer, size_t size, const char* name);

// Runs the command as cmd.exe does and returns the exit code of its program: one program with its arguments,
// as the C runtime of Windows splits them, that is not in quotes. It is a program of the PC: with a folder in
// its name, or else from the folders of the PC's variable PATH, with ".com", ".exe", ".bat" or ".cmd" where
// the name has no ending. Upper and lower case are the same in the name of the file. Its output goes nowhere,
// as that of a service does; redirections to nul are accepted. The program is a process of session 0.
//
// As in cmd.exe, 1 when there is no such program, or when Linux cannot run it. Not 0 for a null command. -1
// when the program cannot be started, and with EINVAL for any other feature of cmd.exe: several commands,
// redirections to files, variables, and a name in quotes.
extern "C" int system(const char* command) __asm__("winhost_system");
