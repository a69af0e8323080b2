// The TCP/IP part of Winsock.
#pragma once

#include <winsock2.h>

#define INET_ADDRSTRLEN 22
