// A cloud library that does what a test says and records what is asked of it: a shared object that the
// service loads as nubaapi.dll. The test reaches its script through a function that it exports, in the same
// process.
#pragma once

#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "cloud/NubaApi.h"

struct Endpoint {
    const char* host;
    const char* port;
};

namespace scriptednuba {

// Any thread. The data members may be accessed only while the mutex is held.
class Script {
  public:
    // From now on each connection fails at once. Forgets all records.
    void Reset() {
        const std::lock_guard lock(mutex);
        calls.clear();
        whileConnected = onDeinit = nullptr;
        logger = nullptr;
        filter = nullptr;
        returnsNull = false;
    }
    // Runs in nuba_server_init, whose return is the end of the connection.
    void WhileConnected(std::function<void()> run) {
        const std::lock_guard lock(mutex);
        whileConnected = std::move(run);
    }
    // Runs in nuba_server_deinit, and may throw.
    void OnDeinit(std::function<void()> run) {
        const std::lock_guard lock(mutex);
        onDeinit = std::move(run);
    }
    // The calls in their order, with their arguments but for the InitData.
    std::vector<std::string> Calls() const {
        const std::lock_guard lock(mutex);
        return calls;
    }
    size_t Count(const std::string& begin) const {
        size_t count = 0;
        for (const std::string& call : Calls())
            if (call.starts_with(begin)) ++count;
        return count;
    }
    size_t LiveObjects() const {
        const std::lock_guard lock(mutex);
        return objects.size();
    }

    // ---- for the library ----

    mutable std::mutex mutex;
    std::vector<std::string> calls;
    std::function<void()> whileConnected, onDeinit;
    NubaLogger_Fn logger = nullptr;
    NubaFilter_Fn filter = nullptr;
    bool returnsNull = false;  // of InitData_new
    std::set<const InitData*> objects;
};

}  // namespace scriptednuba

extern "C" {
// The name under which the shared object exports it is "ScriptOfNuba".
using ScriptOfNuba_Fn = scriptednuba::Script* (*)();
}
