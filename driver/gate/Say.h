// The gate's log: one readable line on standard output for each event.
#pragma once

[[gnu::format(gnu_printf, 1, 2)]] void Say(const char* format, ...);
