// The simulated manageability processor: the other end of the mailbox. It answers every request of the
// catalogue, keeps what the host reported, sends firmware commands, serves DASH, and misbehaves on demand.
//
//     mpm::Firmware firmware;                       // settings: see Settings.h
//     firmware.Listen("unix:" + folder + "/mailbox.sock");
//     ...
//     ASSERT_TRUE(firmware.AwaitRequest("WriteZELStatus"));
//     firmware.Send(MPM_ZEL_CMD_DASH_DATA, "answer");
//
// Every operation may be called from any thread, also from within the functions given to OnDash and Observe,
// which run on the firmware's own thread. Operations take effect before they return.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "firmware/Settings.h"
#include "mailbox/MailboxCodes.h"

namespace mpm {

class ScreenObserver;

inline constexpr int kForever = -1;
inline constexpr std::chrono::milliseconds kPatience{10000};  // real time

// Messages that wait while no host listens; one more drops the oldest.
inline constexpr size_t kMaxWaitingMessages = 64;
// Bytes that wait for a host that listens but does not read; a message that would pass it is dropped.
inline constexpr size_t kMaxUnreadBytes = 8u << 20;
// The largest payload that goes into one message.
inline constexpr size_t kMaxMessagePayload = kMailboxBufferSize - kMailboxTrailerSize;

// Borrowed bytes: a text, a vector, a list of numbers, or (by Of) a record. Must not outlive what it looks
// at.
class Bytes : public std::span<const uint8_t> {
  public:
    Bytes() = default;
    Bytes(std::span<const uint8_t> bytes) : span(bytes) {}
    Bytes(const std::vector<uint8_t>& bytes) : span(bytes) {}
    Bytes(std::string_view text) : span(reinterpret_cast<const uint8_t*>(text.data()), text.size()) {}
    Bytes(const std::string& text) : Bytes(std::string_view(text)) {}
    Bytes(const char* text) : Bytes(std::string_view(text)) {}
    Bytes(std::initializer_list<uint8_t> list) : span(list.begin(), list.size()) {}
    template <class Record>
    static Bytes Of(const Record& record) {
        return std::span(reinterpret_cast<const uint8_t*>(&record), sizeof record);
    }
};

// A request of the catalogue by its operation's name ("WriteOsInfo") or by its control code, which may stand
// for two.
class RequestId {
  public:
    RequestId(const char* name) : m_name(name) {}
    RequestId(std::string name) : m_name(std::move(name)) {}
    RequestId(uint32_t code) : m_code(code) {}
    const std::string& Name() const { return m_name; }
    uint32_t Code() const { return m_code; }

  private:
    std::string m_name;
    uint32_t m_code = 0;
};

// One request as it arrived. A request whose size fits no record of its code, or whose code is unknown, has
// `fault` set and was answered with 87.
struct Request {
    std::string name;  // the operation's name; "0x9C41ABCD" for an unknown code
    uint32_t code = 0;
    std::vector<uint8_t> data;
    std::chrono::system_clock::time_point time;
    std::string fault;

    // The data as a record of exactly this size; throws std::length_error otherwise.
    template <class Record>
    Record As() const {
        if (data.size() != sizeof(Record)) throw std::length_error(name + " is no record of this size");
        Record record;
        std::memcpy(static_cast<void*>(&record), data.data(), sizeof record);
        return record;
    }
    std::string Text() const { return {data.begin(), data.end()}; }
};

// Something that happened, for an observer. `data` is borrowed for the length of the call.
struct Event {
    enum class Kind { Request, Message, Note };
    Kind kind = Kind::Note;
    std::string name;   // of the request or the command; a word for a note ("listening", "held", ...)
    uint32_t code = 0;  // control code, or number of the command
    std::span<const uint8_t> data;  // the request's input, or the message without its trailer
    std::string text;               // a fault, or what became of the request when it was not simply answered
    std::chrono::system_clock::time_point time;
};

class Firmware {
  public:
    explicit Firmware(Settings settings = {});
    ~Firmware();  // closes everything; no function given to it runs afterwards
    Firmware(const Firmware&) = delete;
    Firmware& operator=(const Firmware&) = delete;

    // Offers the mailbox at "unix:/path" or "tcp:127.0.0.1:port" (0: any free port). Throws
    // std::invalid_argument for what is no address, std::runtime_error when it cannot be had.
    void Listen(const std::string& address);
    // Where it listens, with the real port; empty before Listen.
    std::string Address() const;

    Settings CurrentSettings() const;
    void Change(const std::function<void(Settings&)>& change);

    // --- what the host asked, oldest first, since the start or the last Clear ---
    // At most 20,000 requests and 64 MiB are kept; older ones make room.
    std::vector<Request> Requests() const;
    std::vector<Request> Requests(const std::string& name) const;
    size_t Count(const std::string& name) const;
    // The first request of this name that `matches`, already there or still to come; nothing when patience
    // ends.
    std::optional<Request> AwaitRequest(const std::string& name,
                                        const std::function<bool(const Request&)>& matches = nullptr,
                                        std::chrono::milliseconds patience = kPatience) const;
    // True as soon as `count` requests of this name have come.
    bool AwaitCount(const std::string& name, size_t count,
                    std::chrono::milliseconds patience = kPatience) const;
    void Clear();
    // What the firmware knows of the host: the last accepted record of each kind, by name, field by field.
    Json::Value Host() const;

    // --- messages to the host, delivered in the order of these calls ---
    // The payload, the number of the command, and the trailer's last byte. One message of any size below 1
    // MiB, sent as it is also when it is longer than a read of the host; above that std::length_error.
    void Send(MpmCommand command, Bytes payload = {}, uint8_t trailer = 0);
    // The bytes that complete one read, with no trailer added.
    void SendRaw(Bytes message);
    // Command 8 at once; split into several messages when it is longer than one holds.
    void SendDash(Bytes payload);
    bool HostListening() const;
    bool AwaitHostListening(std::chrono::milliseconds patience = kPatience) const;

    // --- faults; they hold until ClearFaults, a later call for the same request, or their count ---
    // Answers with this Win32 error (1450 is the retry status) instead of doing what was asked.
    void Refuse(const RequestId& request, uint32_t win32Error, int times = kForever);
    // Does what was asked, and answers, this much later. 0 ends it.
    void Delay(const RequestId& request, std::chrono::milliseconds by);
    // Neither does what was asked nor answers, until Release, which does both for all that wait.
    void Hold(const RequestId& request);
    void Release(const RequestId& request);
    // Cuts the answer to this many bytes, or fills it up with zeros.
    void ResizeAnswer(const RequestId& request, size_t bytes);
    void ClearFaults();  // what is held is released
    // All connections and the listener close, as when the driver is unloaded; the host counts as down.
    void Vanish();
    void ComeBack();

    // --- the screen, while Settings::Kvm is Peer::Screen ---
    // What the display client does and has measured; null while there is none. Rates and times are those of
    // the last session, or since ResetScreenMeter.
    Json::Value Screen() const;
    void ResetScreenMeter();
    // Writes the last decoded picture of the session as a PPM file. Throws std::runtime_error when there is
    // none, or the file cannot be written.
    void SavePicture(const std::string& path) const;
    // Shows the host's frames to the observer too, from the next one on; null ends it. The observer is called
    // on the firmware's thread.
    void ObserveScreen(std::shared_ptr<ScreenObserver> observer);

    // --- functions called on the firmware's thread ---
    // Takes the bytes of WriteDASHPacket while Settings::Dash is None.
    void OnDash(std::function<void(std::span<const uint8_t>)> take);
    void Observe(std::function<void(const Event&)> observer);

    // The certificate of the DASH endpoint, PEM text.
    std::string Certificate() const;

  private:
    class Implementation;
    std::unique_ptr<Implementation> m_implementation;
};

}  // namespace mpm
