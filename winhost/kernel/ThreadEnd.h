// The end of the calling thread in the middle of its work.
#pragma once

namespace winhost {

// Ends the thread without unwinding its stack: no destructor of a local object runs, and what it has locked
// stays locked. Those of its thread-specific data run, so that a join returns and an owned mutex of Windows
// is abandoned.
[[noreturn]] void EndWithoutUnwinding();

}  // namespace winhost
