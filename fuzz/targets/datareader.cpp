// The helper program's end of the pipes of a packaged service: any bytes in place of a Wi-Fi record or a boot
// mode, in any pieces, from a program that stays, leaves, comes late or never connects.
#include <winsock2.h>
#include <windows.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "base/Handles.h"
#include "fuzz/Input.h"
#include "fuzz/support/Host.h"
#include "wifi/DataReader.h"
#include "wifi/ReaderPipes.h"
#include "winhost/core/Gate.h"
#include "winhost/core/HandleTable.h"
#include "winhost/pc/Pc.h"

namespace {

constexpr int kMostMoments = 4000;
constexpr size_t kMostPieces = 8;

// The first byte of an input.
enum How : uint8_t {
    kBootMode = 1,
    kNeverConnects = 2,
    kComesLate = 4,     // connects when the service already waits for it
    kLeavesUnread = 8,  // closes its end without waiting until its bytes are read
    kStaysBehind = 16,  // keeps its end open until the service is done
};

struct Helper {
    uint8_t how = 0;
    std::vector<std::string> pieces;

    bool Is(How what) const { return how & what; }
    std::string Bytes() const {
        std::string bytes;
        for (const std::string& piece : pieces)
            bytes += piece;
        return bytes;
    }
    // A read ends with the first bytes that come.
    size_t FirstBytes() const {
        for (const std::string& piece : pieces)
            if (!piece.empty()) return piece.size();
        return 0;
    }
};

Helper TakeHelper(fuzz::Input from) {
    Helper helper;
    helper.how = from.Byte();
    while (!helper.Is(kNeverConnects) && helper.pieces.size() < kMostPieces && !from.AtEnd())
        helper.pieces.push_back(fuzz::TextOf(from.LongBlock()));
    return helper;
}

// The process itself does nothing: the fuzzer's thread is its end of the pipe.
void InstallProgram() {
    const std::string path = g_pServiceState->GetWorkingFolder() + "\\WiFiSyncDataReader.exe";
    std::error_code isThere;
    std::filesystem::create_symlink("/bin/true", winhost::Pc::Instance().HostPath(path), isThere);
}

void Await(fuzz::Host& host, const std::function<bool()>& holds) {
    for (int moments = 0; moments < kMostMoments && !holds(); ++moments)
        host.Pace().GiveWay(moments);
}

// Whether there has been a call of this name since.
class Calls {
  public:
    explicit Calls(const char* name) : m_name(name), m_before(Count()) {}
    bool IsMade() const { return Count() > m_before; }

  private:
    uint64_t Count() const { return winhost::Gate::Instance().Count(m_name); }

    const std::string m_name;
    const uint64_t m_before;
};

// Each call waits for the service, or until it closes its end.
UniqueFileHandle Play(fuzz::Host& host, const Helper& helper, const Calls& waits, const Calls& reads) {
    UniqueFileHandle pipe;
    if (helper.Is(kNeverConnects)) return pipe;
    if (helper.Is(kComesLate)) Await(host, [&] { return waits.IsMade(); });
    const char* const name = helper.Is(kBootMode) ? kBootModePipeName : kWiFiPipeName;
    Await(host, [&] {
        pipe.Reset(CreateFileA(name, GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
        return bool(pipe);
    });
    fuzz::Require(bool(pipe), "the service has a pipe for the program");
    for (const std::string& piece : helper.pieces) {
        DWORD size = 0;
        if (!WriteFile(pipe.Get(), piece.data(), static_cast<DWORD>(piece.size()), &size, nullptr)) break;
    }
    if (helper.Is(kStaysBehind)) {
        // Before that, the end of the process counts as the end of the program, and time may pass for it.
        Await(host, [&] { return reads.IsMade(); });
        return pipe;
    }
    if (!helper.Is(kLeavesUnread)) FlushFileBuffers(pipe.Get());
    pipe.Reset();
    return pipe;
}

template <class Record>
std::string BytesOf(const Record& record) {
    return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

std::string Read(bool readsBootMode) {
    if (readsBootMode) return BytesOf(GetBootMode());
    WiFiSyncInfo record;
    std::memset(&record, 0xAB, sizeof record);
    GetValueFromWiFiDataReader(&record);
    return BytesOf(record);
}

bool IsEmpty(const std::string& record, bool readsBootMode) {
    WiFiSyncInfo onlySize{};
    onlySize.size_of_this_structure = sizeof onlySize;
    return record == std::string(record.size(), '\0') || (!readsBootMode && record == BytesOf(onlySize));
}

size_t CountIn(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

void Check(const Helper& helper, const std::string& record, const std::string& log) {
    const std::string bytes = helper.Bytes();
    const bool isReceived = log.find("Received ") != std::string::npos;
    const bool isWhole = bytes.size() >= record.size() && bytes.starts_with(record);
    fuzz::Require(isReceived ? isWhole : IsEmpty(record, helper.Is(kBootMode)), "a record is whole or empty");
    fuzz::Require(CountIn(log, "] ERROR: ") == (isReceived ? 0 : 1),
                  "a record that does not come is one error");
    fuzz::Require(isReceived || helper.Is(kLeavesUnread) || helper.FirstBytes() < record.size(),
                  "a record that comes at once is received");
}

}  // namespace

FUZZ_TARGET(datareader) {
    const Helper helper = TakeHelper(fuzz::Input(input));
    fuzz::Host& host = fuzz::Host::Instance();
    InstallProgram();
    host.Log().Look();
    const size_t handles = winhost::HandleTable::Instance().Size();
    const Calls waits("ConnectNamedPipe"), reads("ReadFile");
    std::string record;
    std::thread reading([&] { record = Read(helper.Is(kBootMode)); });
    UniqueFileHandle pipe = Play(host, helper, waits, reads);
    host.Pace().Patiently([&] { reading.join(); });
    pipe.Reset();
    host.Log().Look();
    Check(helper, record, host.Log().Text());
    fuzz::Require(winhost::HandleTable::Instance().Size() == handles, "every handle is closed");
    host.Restore();
}
