// A hostile firmware's answers to what the service asks it: of any length, with any error, of any content.
#include <json/json.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>

#include "base/FieldText.h"
#include "fuzz/Input.h"
#include "fuzz/support/Host.h"
#include "fuzz/support/Wire.h"
#include "winhost/pc/Pc.h"

namespace {

constexpr uint8_t kCloudFiles =
    0x80;  // of a query: the two records of the cloud, and the files made from them

struct Answer {
    uint32_t error = 0;
    std::vector<uint8_t> bytes;
};

// Answers each request with the next of the answers that it was given; then with an error.
class HostileFirmware {
  public:
    HostileFirmware() : m_listener(fuzz::ListenAt(m_path)) {
        std::thread([this] { Accept(); }).detach();
    }
    std::string Address() const { return "unix:" + m_path; }
    void Expect(std::vector<Answer> answers) {
        std::lock_guard lock(m_mutex);
        m_answers = std::move(answers);
        m_next = 0;
    }

  private:
    void Accept() {
        for (;;)
            std::thread([this, connection = fuzz::Accept(m_listener)] { Serve(connection); }).detach();
    }
    void Serve(const testbed::Descriptor& connection) {
        for (;;) {
            mpmlink::Header request{};
            if (!Receive(connection, &request, sizeof request)) return;
            std::vector<uint8_t> payload(request.size);
            if (!Receive(connection, payload.data(), payload.size())) return;
            if (request.kind != mpmlink::Kind::Request) continue;
            const Answer answer = Next();
            fuzz::SendBytes(connection, fuzz::FrameOf({0, mpmlink::Kind::Response, request.id, request.code,
                                                       answer.error},
                                                      answer.bytes));
        }
    }
    // False when the host has gone; waits as long as it is there.
    static bool Receive(const testbed::Descriptor& connection, void* into, size_t size) {
        return size == 0 || fuzz::ReceiveAll(connection, into, size);
    }
    Answer Next() {
        std::lock_guard lock(m_mutex);
        return m_next < m_answers.size() ? m_answers[m_next++] : Answer{ERROR_GEN_FAILURE, {}};
    }

    const std::string m_path = fuzz::SocketFolder() + "/hostile";
    const testbed::Descriptor m_listener;
    std::mutex m_mutex;
    std::vector<Answer> m_answers;
    size_t m_next = 0;
};

// The service of the host, with this firmware in place of the other.
struct World {
    World() {
        winhost::Pc::Instance().Change([&](winhost::PcDescription& pc) { pc.mailbox = firmware.Address(); });
        service.m_mailBoxDriverInterface.CloseMPMDevice();
        fuzz::Require(service.m_mailBoxDriverInterface.OpenMPMDevice() == 0, "the mailbox can be opened");
    }
    ZELService& service = fuzz::Host::Instance().Service();
    HostileFirmware& firmware = *new HostileFirmware;
};

template <class Record>
Record Filled(uint8_t fill) {
    Record record;
    std::memset(static_cast<void*>(&record), fill, sizeof record);
    return record;
}

// The bytes behind an answer are as they were; all of them when there was an error.
template <class Record>
void RequireUntouched(const Record& record, uint8_t fill, const Answer& answer, uint32_t error) {
    const size_t touched = error ? 0 : std::min(sizeof record, answer.bytes.size());
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&record);
    fuzz::Require(std::all_of(bytes + touched, bytes + sizeof record, [=](uint8_t b) { return b == fill; }),
                  "nothing is written behind an answer");
    fuzz::Require(std::equal(bytes, bytes + touched, answer.bytes.begin()), "an answer arrives as it is");
}

Answer TakeAnswer(fuzz::Input& from) {
    Answer answer;
    const uint8_t shape = from.Byte();
    if (shape & 1) answer.error = shape & 2 ? from.Number() : ERROR_MORE_DATA;
    const fuzz::Bytes bytes = from.LongBlock();
    answer.bytes.assign(bytes.begin(), bytes.end());
    // As long as the largest record, and a little longer.
    if (shape & 4) answer.bytes.resize(sizeof(CloudCertInfo) - 8 + (shape >> 4), shape);
    return answer;
}

bool IsWholeStatusFile(const std::string& path) {
    std::ifstream file(winhost::Pc::Instance().HostPath(path));
    Json::Value values;
    std::string errors;
    return Json::parseFromStream(Json::CharReaderBuilder(), file, &values, &errors) && values.isObject() &&
           values["MPMVersion"].isString();
}

template <class Record>
void CheckQuery(MailBoxDriverInterface& mailbox, uint32_t (MailBoxDriverInterface::*query)(Record*),
                uint8_t fill, const Answer& answer) {
    const auto record = std::make_unique<Record>(Filled<Record>(fill));
    const uint32_t error = (mailbox.*query)(record.get());
    if (error != ERROR_MORE_DATA) RequireUntouched(*record, fill, answer, error);
}

void CheckStatus(MailBoxDriverInterface& mailbox, uint8_t fill) {
    uint8_t status = fill;
    const uint32_t error = mailbox.GetMPMStatus(&status);
    fuzz::Require(error == 0 || error == ERROR_INVALID_ADDRESS, "all failures are one");
}

void CheckUpdate(ZELService& service) {
    service.UpdateManageabilityStatus();
    fuzz::Require(service.GetManageabilityStatus().MPMVersion[0] != 0, "there is always a version's text");
    service.m_statusFile.UpdateStatusFile();
    fuzz::Require(IsWholeStatusFile(service.GetStatusFilePath()), "the status file is whole");
}

// ---- the files of the cloud connection ----

using CloudFiles = std::array<std::string, 4>;

CloudFiles ReadCloudFiles() {
    const CloudPaths paths = PathsOfCloud();
    CloudFiles files;
    for (size_t i = 0;
         const std::string& path : {paths.host, paths.certificate, paths.key, paths.authority}) {
        std::ifstream file(winhost::Pc::Instance().HostPath(path), std::ios::binary);
        files[i++] = {std::istreambuf_iterator<char>(file), {}};
        fuzz::Require(!std::filesystem::exists(winhost::Pc::Instance().HostPath(path + ".new")),
                      "nothing is left half written");
    }
    return files;
}

// Without what the requests themselves treat apart: a longer answer, and an error that repeats a request.
Answer Plain(Answer answer, size_t size) {
    if (answer.error) answer.error = ERROR_GEN_FAILURE;
    answer.bytes.resize(std::min(answer.bytes.size(), size));
    return answer;
}

template <class Record>
Record RecordOf(const Answer& answer) {
    Record record{};
    std::copy_n(answer.bytes.begin(), std::min(sizeof record, answer.bytes.size()),
                reinterpret_cast<uint8_t*>(&record));
    return record;
}

bool IsComplete(const CloudCertInfo& info) {
    const auto isValid = [](uint32_t size) { return size > 0 && size <= sizeof info.vCloudCert; };
    return info.Port != 0 && isValid(info.vCloudCertSize) && isValid(info.vCloudKeySize) &&
           isValid(info.vCloudCACertSize);
}

// The domains joined again are the text, but for a separator at its end.
void RequireDomains(const std::vector<std::string>& domains, std::string text) {
    if (text.ends_with('\\')) text.pop_back();
    std::string joined;
    for (const std::string& domain : domains)
        joined += (&domain == &domains.front() ? "" : "\\") + domain;
    fuzz::Require(joined == text, "no domain is lost or made up");
}

void CheckCloud(NubaClient& client, const Answer& cloud, const Answer& domains) {
    const CloudFiles before = ReadCloudFiles();
    const std::vector<std::string> domainsBefore = client.Domains();
    client.SetupCloudServer();
    const auto info = std::make_unique<CloudCertInfo>(RecordOf<CloudCertInfo>(cloud));
    const bool isComplete = cloud.error == 0 && IsComplete(*info);
    const CloudFiles complete = {std::string(TextInField(info->Hostname)),
                                 {info->vCloudCert, isComplete ? info->vCloudCertSize : 0},
                                 {info->vCloudKey, isComplete ? info->vCloudKeySize : 0},
                                 {info->vCloudCACert, isComplete ? info->vCloudCACertSize : 0}};
    fuzz::Require(ReadCloudFiles() == (isComplete ? complete : before),
                  "the files are those of a complete record");
    const auto list = RecordOf<DomainInfo>(domains);
    if (isComplete && domains.error == 0 && list.Size > 0 && list.Size <= DomainInfo::kMaxDomains)
        RequireDomains(client.Domains(), {list.Domains, list.Size});
    else
        fuzz::Require(client.Domains() == domainsBefore, "another list leaves the domains");
}

}  // namespace

FUZZ_TARGET(answers) {
    static World& world = *new World;
    MailBoxDriverInterface& mailbox = world.service.m_mailBoxDriverInterface;
    fuzz::Input from(input);
    const uint8_t fill = from.Byte(), query = from.Byte();
    const Answer answer = TakeAnswer(from);
    if (query & kCloudFiles) {
        const Answer cloud = Plain(answer, sizeof(CloudCertInfo)),
                     domains = Plain(TakeAnswer(from), sizeof(DomainInfo));
        world.firmware.Expect({cloud, domains});
        CheckCloud(world.service.m_nubaClient, cloud, domains);
        fuzz::Host::Instance().Log().Look();
        return;
    }
    world.firmware.Expect({answer});
    switch (query % 5) {
        case 0:
            CheckQuery(mailbox, &MailBoxDriverInterface::GetZELVersion, fill, answer);
            break;
        case 1:
            CheckQuery(mailbox, &MailBoxDriverInterface::GetDomainInfo, fill, answer);
            break;
        case 2:
            CheckQuery(mailbox, &MailBoxDriverInterface::GetCloudCertInfo, fill, answer);
            break;
        case 3:
            CheckStatus(mailbox, fill);
            break;
        default:
            CheckUpdate(world.service);
    }
    fuzz::Host::Instance().Log().Look();
}
