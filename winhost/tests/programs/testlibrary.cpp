// A library that tests load by the name of winhost_testlibrary.dll.

namespace {

bool* g_isUnloaded = nullptr;

// Destroyed when the library is unloaded.
struct Unloading {
    ~Unloading() {
        if (g_isUnloaded) *g_isUnloaded = true;
    }
};
Unloading g_unloading;

}  // namespace

extern "C" {

int Answer() {
    return 42;
}

// What becomes true when the library is unloaded.
void WatchUnloading(bool* isUnloaded) {
    g_isUnloaded = isUnloaded;
}
}
