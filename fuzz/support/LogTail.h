// What the service's log has got since the last look.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "testbed/Descriptor.h"

namespace fuzz {

class LogTail {
  public:
    // Follows this file from its end; also when the service moves it away and begins a new one.
    void Follow(const std::string& hostPath);
    // Reads what is new, and requires that it is whole lines of the log's form. `Text` is valid until the
    // next look.
    void Look();
    const std::string& Text() const { return m_text; }
    bool Has(std::string_view text) const { return m_text.find(text) != std::string::npos; }
    // Counts what comes from now on with this phrase, at most once a line.
    void Count(const std::string& phrase) { m_counts[phrase] = 0; }
    size_t Counted(const std::string& phrase) const { return m_counts.at(phrase); }
    // The new lines of this thread.
    std::vector<std::string_view> LinesOf(uint32_t thread) const;

  private:
    void Append();

    std::string m_path;
    testbed::Descriptor m_file;
    int64_t m_offset = 0;
    std::string m_text;
    std::map<std::string, size_t> m_counts;
};

}  // namespace fuzz
