// Reports the state of the console session's desktop.
#pragma once

// Returns true when the desktop of the active console session is locked. Returns false when the state cannot
// be determined. Any thread.
bool IsDesktopLocked();
