// What the console session's desktop is like.
#pragma once

// Whether the desktop of the active console session is locked. One whose state can't be told counts as open.
// Any thread.
bool IsDesktopLocked();
