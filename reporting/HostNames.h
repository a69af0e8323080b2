// The names of the host in its network.
#pragma once

#include <string>

// Returns false and sets the domain to "N/A" when a name cannot be read. A host outside of a domain has an
// empty one. Any thread.
bool GetHostAndDnsDomain(std::string& host, std::string& domain);
