#pragma once

#include <wbemcli.h>
