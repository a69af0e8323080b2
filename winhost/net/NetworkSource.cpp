#include "winhost/net/NetworkSource.h"

namespace winhost {

std::vector<Adapter> Adapters() {
    return Pc::Instance().Description().adapters;
}

}  // namespace winhost
