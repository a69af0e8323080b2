// The misbehaviour that was asked for, request by request.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "firmware/Firmware.h"

namespace mpm {

struct Fault {
    std::optional<uint32_t> error;  // refuse with this
    int times = kForever;           // so often
    std::chrono::milliseconds delay{0};
    bool held = false;
    std::optional<size_t> answerSize;
};

class Faults {
  public:
    // Changes the fault of every operation that the id stands for; throws std::invalid_argument when there is
    // none.
    template <class Change>
    void Set(const RequestId& id, const Change& change) {
        for (const std::string& name : Names(id))
            change(m_faults[name]);
    }
    void Clear() { m_faults.clear(); }

    // What to do with the next request of this name.
    Fault Take(const char* name);
    // The names of the operations that the id stands for.
    static std::vector<std::string> Names(const RequestId& id);

  private:
    std::map<std::string, Fault, std::less<>> m_faults;
};

}  // namespace mpm
