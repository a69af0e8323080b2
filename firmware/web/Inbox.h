// Where the firmware's thread leaves its events for the pages. It holds the newest ones, so that the thread
// never waits for a page, and so that a page that is opened later sees what came before it.
#pragma once

#include <atomic>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "firmware/Fields.h"
#include "firmware/Firmware.h"

namespace mpm::web {

// The limits of what is kept for pages, here and in the feeds.
inline constexpr size_t kMaxEntries = 10'000;
inline constexpr size_t kMaxEntryBytes = 16u << 20;

// An event with bytes of its own.
struct WireEntry {
    WireEntry(const Event& event, Secrets secrets);

    uint64_t serial = 0;
    Event::Kind kind;
    std::string name;
    uint32_t code;
    std::vector<uint8_t> data;
    std::string text;
    std::chrono::system_clock::time_point time;
    Secrets secrets;

    size_t Size() const { return sizeof *this + name.size() + data.size() + text.size(); }
    // The event as the record has it, with "serial" and "direction".
    std::string ToJson() const;
    // All bytes in hexadecimal, with ** for each byte of a secret. Throws std::invalid_argument for bytes
    // whose meaning is not known: the record does not show them either.
    std::string Hex() const;
};

class Inbox {
  public:
    void Push(const Event& event, Secrets secrets);
    // The oldest ones may have made room; their serial numbers are missing then.
    std::deque<WireEntry> TakeAll();
    // Whether the last event about it was that the firmware has vanished.
    bool Vanished() const { return m_vanished; }

  private:
    std::atomic<bool> m_vanished = false;
    std::mutex m_mutex;  // guards what follows
    std::deque<WireEntry> m_entries;
    size_t m_bytes = 0;
    uint64_t m_lastSerial = 0;
};

}  // namespace mpm::web
