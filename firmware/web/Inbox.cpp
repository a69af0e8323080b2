#include "firmware/web/Inbox.h"

#include <stdexcept>
#include <utility>

#include "firmware/Catalogue.h"
#include "firmware/Hex.h"
#include "firmware/Report.h"

namespace mpm::web {

namespace {

constexpr const char* kDirections[] = {"host", "firmware", "note"};

void Mask(std::string& hex, std::span<const RecordField> fields, size_t base) {
    for (const RecordField& field : fields) {
        const size_t begin = base + field.offset;
        const size_t end = field.size == kRest ? hex.size() / 2 : begin + field.size;
        if (field.kind == RecordField::Kind::Secret)
            for (size_t i = 2 * begin; i < std::min(2 * end, hex.size()); ++i)
                hex[i] = '*';
        if (field.kind == RecordField::Kind::Slots)
            for (size_t slot = begin; slot < end; slot += field.element->maxSize)
                Mask(hex, field.element->fields, slot);
    }
}

}  // namespace

WireEntry::WireEntry(const Event& event, Secrets secrets)
    : kind(event.kind),
      name(event.name),
      code(event.code),
      data(event.data.begin(), event.data.end()),
      text(event.text),
      time(event.time),
      secrets(secrets) {}

std::string WireEntry::ToJson() const {
    Json::Value json = JsonOf(Event{kind, name, code, data, text, time}, secrets);
    json["serial"] = Json::UInt64(serial);
    json["direction"] = kDirections[size_t(kind)];
    return Compact(json);
}

std::string WireEntry::Hex() const {
    const RecordLayout* layout = nullptr;
    if (kind == Event::Kind::Request) {
        if (const MailboxRequest* request = FindRequest(code, data.size())) layout = &request->input;
    } else if (kind == Event::Kind::Message && name != "raw") {
        if (const FirmwareCommand* command = FindCommand(uint8_t(code))) layout = &command->payload;
    }
    if (kind == Event::Kind::Note) throw std::invalid_argument("a note has no bytes");
    if (!layout || data.size() > layout->maxSize)
        throw std::invalid_argument("the bytes are not shown: their meaning is not known");
    std::string hex = ToHex(data);
    if (secrets == Secrets::Masked) Mask(hex, layout->fields, 0);
    return hex;
}

void Inbox::Push(const Event& event, Secrets secrets) {
    WireEntry entry(event, secrets);
    if (entry.kind == Event::Kind::Note && (entry.name == "vanished" || entry.name == "back"))
        m_vanished = entry.name == "vanished";
    std::lock_guard lock(m_mutex);
    entry.serial = ++m_lastSerial;
    m_bytes += entry.Size();
    m_entries.push_back(std::move(entry));
    while (m_entries.size() > kMaxEntries || m_bytes > kMaxEntryBytes) {
        m_bytes -= m_entries.front().Size();
        m_entries.pop_front();
    }
}

std::deque<WireEntry> Inbox::TakeAll() {
    std::lock_guard lock(m_mutex);
    m_bytes = 0;
    return std::exchange(m_entries, {});
}

}  // namespace mpm::web
