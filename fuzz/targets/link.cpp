// A hostile host's bytes on the link of the simulated firmware: frames in any order, and bytes that are none.
#include <cstring>

#include "firmware/Firmware.h"
#include "fuzz/Input.h"
#include "fuzz/support/Names.h"
#include "fuzz/support/Wire.h"
#include "mailbox/MailboxCodes.h"

namespace {

class Link {
  public:
    Link() {
        firmware.Change([](mpm::Settings& settings) { settings.KeepRequests = false; });
        firmware.Listen("unix:" + path);
        m_decent = fuzz::ConnectTo(path);
    }

    // Another host's request is answered.
    void RequireAlive() {
        const mpmlink::Header request{0, mpmlink::Kind::Request, ++m_id, MailboxCode::GetMPMStatus, 1};
        fuzz::SendBytes(m_decent, fuzz::FrameOf(request, {}));
        const std::string answer = fuzz::Receive(m_decent, sizeof(mpmlink::Header) + 1);
        mpmlink::Header header{};
        fuzz::Require(answer.size() == sizeof header + 1, "the firmware answers others");
        std::memcpy(&header, answer.data(), sizeof header);
        fuzz::Require(header.kind == mpmlink::Kind::Response && header.id == m_id && header.value == 0,
                      "others get their own answers");
    }

    const std::string path = fuzz::SocketFolder() + "/link";
    mpm::Firmware firmware;

  private:
    testbed::Descriptor m_decent;
    uint32_t m_id = 0;
};

std::vector<uint8_t> TakeFrame(fuzz::Input& from) {
    mpmlink::Header header{};
    header.kind = static_cast<mpmlink::Kind>(from.Byte());
    header.id = from.Byte();
    const uint8_t function = from.Byte();
    header.code = function < 0x80 ? fuzz::CodeOfFunction(function) : from.Number();
    header.value = from.Word();
    return fuzz::FrameOf(header, from.LongBlock());
}

// What comes back is frames, each of a kind that a host may get, and no longer than it may be.
void CheckAnswers(const std::string& bytes) {
    for (size_t at = 0; at < bytes.size();) {
        mpmlink::Header header{};
        if (bytes.size() - at < sizeof header) return;
        std::memcpy(&header, bytes.data() + at, sizeof header);
        fuzz::Require(header.kind == mpmlink::Kind::Response || header.kind == mpmlink::Kind::Message,
                      "the host gets responses and messages");
        fuzz::Require(header.size <= mpmlink::kMaxPayload, "no frame is too long");
        at += sizeof header + header.size;
    }
}

}  // namespace

FUZZ_TARGET(link) {
    static Link& link = *new Link;
    fuzz::Input from(input);
    const testbed::Descriptor hostile = fuzz::ConnectTo(link.path);
    std::vector<uint8_t> bytes;
    for (uint8_t frames = from.Byte() % 8; frames > 0 && !from.AtEnd(); --frames) {
        const std::vector<uint8_t> frame = TakeFrame(from);
        bytes.insert(bytes.end(), frame.begin(), frame.end());
    }
    const fuzz::Bytes raw = from.Rest();
    bytes.insert(bytes.end(), raw.begin(), raw.end());
    // In two pieces, so that a frame is cut somewhere.
    fuzz::SendBytes(hostile, fuzz::Bytes(bytes).first(bytes.size() / 2));
    fuzz::SendBytes(hostile, fuzz::Bytes(bytes).subspan(bytes.size() / 2));
    fuzz::FinishSending(hostile);
    CheckAnswers(fuzz::ReceiveRest(hostile));
    link.RequireAlive();
}
