// The enumerations that consoles have begun and not yet finished or released.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

namespace mpm {

class Enumerations {
  public:
    // The oldest is dropped when there are more: its console has probably gone.
    static constexpr size_t kMax = 64;

    struct Enumeration {
        std::string context;
        std::string classUri;
        bool references = false;  // what the instances are called by instead of the instances themselves
        size_t next = 0;
    };

    // The context of a new one.
    std::string Begin(const std::string& classUri, bool references);
    // Throws SoapFault when there is none of this context and class.
    Enumeration& Find(const std::string& context, const std::string& classUri);
    void End(const Enumeration& enumeration);

  private:
    std::deque<Enumeration> m_enumerations;  // oldest first
};

}  // namespace mpm
