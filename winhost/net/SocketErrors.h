#pragma once

namespace winhost {

// The Winsock error that Windows has for this errno.
int WinsockError(int posixError);

}  // namespace winhost
