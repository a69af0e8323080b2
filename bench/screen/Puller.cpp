#include "bench/screen/Puller.h"

#include <cstring>
#include <stdexcept>

#include "mailbox/DisplayRecords.h"

namespace {

mpm::Settings SilentPeers() {
    mpm::Settings settings;
    settings.Dash = mpm::Peer::None;
    settings.Kvm = mpm::Peer::None;
    settings.KeepRequests = false;
    return settings;
}

}  // namespace

Puller::Puller(const std::string& address) : m_firmware(SilentPeers()) {
    m_firmware.Observe([this](const mpm::Event& event) {
        if (event.kind == mpm::Event::Kind::Request && event.code == MailboxCode::WriteEncodedBuffer)
            TakeChunk(event.data);
    });
    m_firmware.Listen(address);
}

void Puller::Await(const std::string& request, size_t count) {
    if (!m_firmware.AwaitCount(request, count, kPatience))
        throw std::runtime_error("the host sends no " + request);
}

void Puller::AwaitHost() {
    if (!m_firmware.AwaitHostListening(kPatience)) throw std::runtime_error("no host listens");
}

void Puller::BeginSession() {
    const size_t before = m_firmware.Count("WriteDisplayConfig");
    m_firmware.Send(MPM_ZEL_CMD_KVM_ENABLE_STATUS);
    m_firmware.Send(MPM_ZEL_CMD_GET_DISPAY_CONFIG);
    Await("WriteDisplayConfig", before + 1);
}

void Puller::EndSession() {
    const size_t before = m_firmware.Count("WriteCloseSocketcmd");
    m_firmware.Send(MPM_ZEL_CMD_VNC_SOC_CLOSE);
    Await("WriteCloseSocketcmd", before + 1);
}

size_t Puller::Pull() {
    std::unique_lock lock(m_mutex);
    m_isComplete = false;
    m_left = 0;
    m_firmware.Send(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    if (!m_changed.wait_for(lock, kPatience, [this] { return m_isComplete || !m_fault.empty(); }))
        throw std::runtime_error("the host sends no frame");
    if (!m_fault.empty()) throw std::runtime_error(m_fault);
    return m_size;
}

// Runs on the firmware's thread, which asks for the next chunk at once.
void Puller::TakeChunk(std::span<const uint8_t> record) {
    EncodedFrameChunk head{};
    std::memcpy(&head, record.data(), std::min(record.size(), sizeof head));
    std::lock_guard lock(m_mutex);
    if (m_left == 0) {
        m_left = head.RequiredChunk;
        m_size = head.FrameSize;
        m_taken = 0;
    }
    m_taken += head.ChunkSize;
    if (head.FrameSize == 0 || head.FrameSize != m_size || head.RequiredChunk != m_left ||
        record.size() != sizeof head + head.ChunkSize)
        m_fault = "a chunk is wrong: " + std::to_string(head.RequiredChunk) + " of a frame of " +
                  std::to_string(head.FrameSize) + " bytes";
    else if (--m_left > 0)
        m_firmware.Send(MPM_ZEL_CMD_GET_ENCODED_FRAMEBUFFER);
    else if (m_taken != m_size)
        m_fault = "the chunks do not have the frame's bytes";
    if (m_left > 0 && m_fault.empty()) return;
    m_isComplete = true;
    m_changed.notify_one();
}
