#include "driver/gate/Session.h"

#include <algorithm>
#include <cstring>
#include <system_error>

#include "driver/gate/Say.h"

namespace {

// What stands ahead of a payload on its way into the driver.
constexpr size_t kHeadroom = std::max(sizeof(MpmCompletion), sizeof(MpmDelivery));
static_assert(sizeof(MpmNotice) >= sizeof(mpmlink::Header));

// No handle of the mailbox has this number.
constexpr uint32_t kWatch = 0;

std::span<uint8_t> WithHeadroom(std::vector<uint8_t>& buffer, size_t headroom) {
    return std::span(buffer).subspan(kHeadroom - headroom);
}

}  // namespace

Session::Session(HANDLE stop) : m_stop(stop), m_over(CreateEventA(nullptr, TRUE, FALSE, nullptr)) {}

Session::~Session() {
    SetEvent(m_over.Get());
    while (!m_links.empty())
        RemoveLink(m_links.begin()->first);
}

std::string Session::Attach(const sockaddr_in& firmware) {
    m_firmware = firmware;
    if (!AddLink(kWatch)) return "the firmware is not there";
    const DWORD error = m_device.Open(m_stop, m_over.Get());
    if (error == ERROR_SUCCESS) return {};
    if (error == ERROR_SHARING_VIOLATION) return "another gate is attached to the driver";
    return "the driver is not there (error " + std::to_string(error) + ")";
}

bool Session::AddLink(uint32_t handle) {
    auto link = std::make_unique<Link>();
    link->handle = handle;
    if (!link->connection.Connect(m_firmware)) return false;
    Link& added = *link;
    m_links[handle] = std::move(link);
    added.reader = std::thread([this, &added] { Read(added); });
    return true;
}

void Session::RemoveLink(uint32_t handle) {
    const auto found = m_links.find(handle);
    if (found == m_links.end()) return;
    found->second->closing = true;
    found->second->connection.Shutdown();
    if (found->second->reader.joinable()) found->second->reader.join();
    m_links.erase(found);
}

void Session::End(const char* reason) {
    if (m_ended.exchange(true)) return;
    Say("%s", reason);
    SetEvent(m_over.Get());
}

void Session::Run() {
    std::vector<uint8_t> notice;
    for (;;) {
        const DWORD error = m_device.Next(notice);
        if (error == ERROR_OPERATION_ABORTED) return;
        if (error != ERROR_SUCCESS) return Say("the driver gives error %lu", error);
        if (!Forward(notice)) return End("the firmware does not take what the host sends");
    }
}

bool Session::Forward(std::vector<uint8_t>& buffer) {
    MpmNotice notice;
    std::memcpy(&notice, buffer.data(), sizeof notice);
    if (notice.kind == MpmHandleOpened) {
        Say("mailbox handle %u is open", notice.handle);
        return AddLink(notice.handle);
    }
    const auto found = m_links.find(notice.handle);
    if (found == m_links.end()) return true;
    FirmwareConnection& connection = found->second->connection;
    switch (notice.kind) {
        case MpmHandleListens:
            Say("mailbox handle %u listens", notice.handle);
            return connection.Send(mpmlink::Kind::Listen);
        case MpmHandleClosed:
            Say("mailbox handle %u is closed", notice.handle);
            RemoveLink(notice.handle);
            return true;
        case MpmRequestArrived:
            // The notice makes room for the frame's header.
            return connection.Send(mpmlink::Kind::Request, notice.request, notice.code, notice.room,
                                   std::span(buffer).subspan(sizeof notice - sizeof(mpmlink::Header)));
        case MpmRequestCancelled:
            return connection.Send(mpmlink::Kind::Cancel, notice.request);
        default:
            return true;
    }
}

void Session::Read(Link& link) {
    mpmlink::Header header;
    std::vector<uint8_t> buffer;
    while (link.connection.Receive(header, buffer, kHeadroom))
        if (!TakeFrame(link, header, buffer)) return;
    // Also how RemoveLink ends this thread: then nothing has gone.
    if (!link.closing) End("the firmware has gone");
}

bool Session::TakeFrame(const Link& link, const mpmlink::Header& header, std::vector<uint8_t>& buffer) {
    switch (header.kind) {
        case mpmlink::Kind::Response:
            m_device.Complete(header.id, header.value, WithHeadroom(buffer, sizeof(MpmCompletion)));
            return true;
        case mpmlink::Kind::Message:
            return m_device.Deliver(link.handle, WithHeadroom(buffer, sizeof(MpmDelivery))) == ERROR_SUCCESS;
        default:
            Say("the firmware sent a frame of unknown kind %u", static_cast<unsigned>(header.kind));
            End("the firmware is not understood");
            return false;
    }
}
