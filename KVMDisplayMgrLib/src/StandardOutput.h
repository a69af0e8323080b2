// The standard output of a service that runs in a console. Failures are ignored.
#pragma once

// Writes as UTF-8, so that the log can use the same stream.
void PrintWide(const wchar_t* text);
