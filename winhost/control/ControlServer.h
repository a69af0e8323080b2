#pragma once

#include <string>

namespace winhost {

// Serves the PC's control socket at this path from now on, in place of an earlier one; with an empty path
// nowhere. At the end of the process the answers that are still owed go out: that of the stop that ends it
// among them. Throws std::runtime_error.
void ServeControlSocket(const std::string& path);

}  // namespace winhost
