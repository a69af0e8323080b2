#pragma once

namespace winhost {

// The one object of this type in the process. It is never destroyed: threads may use it until the process is
// gone.
template <class Type>
Type& Singleton() {
    static Type& object = *new Type;
    return object;
}

}  // namespace winhost
