// The PC that tests and fuzzers start from.
#pragma once

#include <string>

#include "winhost/pc/Pc.h"

// A laptop with the service installed and one wired adapter with an address. Its drives are below the folder
// `root`; it has no mailbox yet, and its ports are this machine's.
winhost::PcDescription DescribeLaptop(const std::string& root);
