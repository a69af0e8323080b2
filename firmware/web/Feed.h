// The newest entries of a stream, kept once for all pages. Each page reads them with a cursor of its own: the
// serial number of the last entry that it has had. Of one thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>

namespace mpm::web {

template <class Item>
class Feed {
  public:
    // How an entry is shown, as JSON; made once for an entry, when a page first gets it.
    using Show = std::function<std::string(uint64_t serial, const Item& item)>;
    struct Batch {
        uint64_t dropped = 0;  // entries ahead of `array` that were no longer there
        std::string array;     // "[...]", or empty without entries
    };

    // Keeps at most so many entries, and bytes by Item::Size() and their texts; the oldest make room.
    Feed(size_t maxEntries, size_t maxBytes, Show show)
        : m_maxEntries(maxEntries), m_maxBytes(maxBytes), m_show(std::move(show)) {}

    // Serial numbers rise; where one is left out an entry was lost on its way here.
    void Add(uint64_t serial, Item item) {
        m_bytes += item.Size();
        m_newest = serial;
        m_entries.push_back({serial, std::move(item), {}});
        Trim();
    }
    uint64_t Newest() const { return m_newest; }
    bool HasAfter(uint64_t cursor) const { return m_newest > cursor; }

    // The next entries after the cursor, which moves on: at most so many, and no further one once their texts
    // have so many bytes.
    Batch Take(uint64_t& cursor, size_t most, size_t mostBytes) {
        Batch batch;
        auto next = std::upper_bound(m_entries.begin(), m_entries.end(), cursor,
                                     [](uint64_t value, const Entry& entry) { return value < entry.serial; });
        if (next != m_entries.end()) batch.dropped = next->serial - cursor - 1;
        for (size_t count = 0; next != m_entries.end() && count < most; ++next, ++count) {
            // What is lost between two entries is reported by the next batch, ahead of its entries.
            if (count > 0 && (next->serial != cursor + 1 || batch.array.size() >= mostBytes)) break;
            (batch.array += batch.array.empty() ? '[' : ',') += TextOf(*next);
            cursor = next->serial;
        }
        if (!batch.array.empty()) batch.array += ']';
        Trim();
        return batch;
    }

    // Null when it is not there, or no longer.
    const Item* Find(uint64_t serial) const {
        const auto found =
            std::lower_bound(m_entries.begin(), m_entries.end(), serial,
                             [](const Entry& entry, uint64_t value) { return entry.serial < value; });
        return found != m_entries.end() && found->serial == serial ? &found->item : nullptr;
    }
    size_t Entries() const { return m_entries.size(); }
    size_t Bytes() const { return m_bytes; }

  private:
    struct Entry {
        uint64_t serial;
        Item item;
        std::string text;  // empty until it is needed
    };

    const std::string& TextOf(Entry& entry) {
        if (entry.text.empty()) {
            entry.text = m_show(entry.serial, entry.item);
            m_bytes += entry.text.size();
        }
        return entry.text;
    }
    void Trim() {
        while (m_entries.size() > m_maxEntries || m_bytes > m_maxBytes) {
            m_bytes -= m_entries.front().item.Size() + m_entries.front().text.size();
            m_entries.pop_front();
        }
    }

    const size_t m_maxEntries, m_maxBytes;
    const Show m_show;
    std::deque<Entry> m_entries;
    size_t m_bytes = 0;
    uint64_t m_newest = 0;
};

}  // namespace mpm::web
