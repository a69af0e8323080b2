// What the simulated firmware answers and how it behaves: every value a test, a demo or a person may choose.
// The members that travel in a record carry the record's names, and so do the keys of the JSON form.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Json {
class Value;
}

namespace mpm {

// Who takes the bytes of a stream (DASH behind port 664, KVM behind port 22) and answers them.
enum class Peer {
    None,      // the bytes are recorded, and given to Firmware::OnDash's function when there is one
    Echo,      // every packet comes back as one message with the same bytes
    Identify,  // DASH only: WS-Management over TLS
    Bridge,    // a real server, reached over TCP
    Screen,    // KVM only: the host's screen, pulled frame by frame and served as RFB
};

// What the firmware offers to a console that has not authenticated itself.
enum class Challenge { Md5, Sha256, Basic };

struct CloudSettings {
    std::string Hostname;
    uint32_t Port = 0;
    uint32_t BypassCloud = 0;
    std::string vCloudCert, vCloudKey, vCloudCACert;  // PEM text
    // What the record says of the lengths; the texts' own lengths when empty.
    std::optional<uint32_t> vCloudCertSize, vCloudKeySize, vCloudCACertSize;
};

// Of the display client, which Peer::Screen turns on.
struct ScreenSettings {
    uint32_t FrameRate = 30;        // frames a second that are asked for, 1 to 240
    uint32_t MaxFrame = 32u << 20;  // bytes; a larger frame is passed over
    std::string Display;            // the X display that the viewer's keyboard and mouse act on, as ":1"
    std::string Ivf;                // a file for the frames of each session
    // Milliseconds between the host's display configuration and the first request for a frame: the host holds
    // one event at a time, and a request that comes too early can take the place of its start.
    uint32_t Settle = 250;
    uint32_t Patience = 5000;  // milliseconds after which a request without an answer is repeated; 0: never
    bool Trace = false;        // records each chunk and each packet of the viewer, not only sums
};

struct Settings {
    std::string MPMVersion = "5.0.0.100";
    uint32_t ProvisionStatus = 2;
    uint32_t uECAbsent = 0;
    uint32_t uVORKVersion = 50;
    uint32_t KVMStatus = 0;

    // The answer of GetMPMStatus while the host is not up. It is 1 once the host has reported that it is up,
    // unless StatusFollowsHost is false: then it is always this value.
    uint8_t MPMStatus = 2;
    bool StatusFollowsHost = true;

    std::string Domains;
    std::optional<uint32_t> DomainSize;  // the length of Domains when empty
    CloudSettings Cloud;

    // From version 45 on the firmware ends a DASH connection by command 41 after
    // WriteCloseSocketcmd. False: it never does.
    bool EndsClosedSessions = true;

    Peer Dash = Peer::None;
    std::string DashServer;  // "host:port" of the bridge
    Peer Kvm = Peer::None;
    std::string KvmServer;
    ScreenSettings Screen;
    // Milliseconds between two DASH messages that no byte from the client separates: the host forwards one
    // payload at a time, and between two sessions drops it when the next one comes.
    uint32_t DashPause = 50;

    // The passwords of the consoles' users by name, as "Users.NAME". Without users everyone may do
    // everything; with users only Identify is free.
    std::map<std::string, std::string> Users;
    // In the order in which a 401 offers them. MD5 is the first because many clients look at the first
    // challenge only, and know no other algorithm.
    std::vector<Challenge> Challenges = {Challenge::Md5, Challenge::Sha256, Challenge::Basic};

    std::string ProductVendor = "Tarvix";  // of the Identify answer; ProductVersion is MPMVersion
    std::string DASHVersion = "1.2.0";

    // Whether the key of the host's Wi-Fi network is shown and recorded. Otherwise only its length is.
    bool ShowWiFiKey = false;

    // Whether requests are kept for Requests() and AwaitRequest(). Count() works without.
    bool KeepRequests = true;

    // All of these throw std::invalid_argument with a clear sentence: unknown key, wrong type, value out of
    // range.
    static Settings FromJson(const Json::Value& object);
    static Settings FromFile(const std::string& path);
    // What the object or file names; the rest stays.
    void Merge(const Json::Value& object);
    void MergeFile(const std::string& path);
    // One value by its key (in any case) and text: Set("uVORKVersion", "45"), Set("Cloud.Port", "443").
    void Set(const std::string& key, const std::string& value);

    // Throws std::invalid_argument when values contradict each other.
    void Check() const;

    // All values, but no passwords, and of the cloud key at most its length.
    Json::Value ToJson() const;
};

}  // namespace mpm
