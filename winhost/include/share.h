#pragma once

#define _SH_DENYWR 0x20
#define _SH_DENYNO 0x40
