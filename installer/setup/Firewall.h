// The rules of Windows' firewall for the service's two ports.
#pragma once

#include <string>

// Lets other machines reach `program` on its two ports, and removes such rules of an earlier installation.
// False when the firewall refuses.
bool OpenFirewall(const std::string& program);
// Removes both rules, if there are any.
void CloseFirewall();
