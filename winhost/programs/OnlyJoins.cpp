// Part of the native companions alone: they look for the service on its PC, and create none.
#include "winhost/pc/Pc.h"

namespace {

[[gnu::constructor]] void OnlyJoin() {
    winhost::Pc::OnlyJoin();
}

}  // namespace
