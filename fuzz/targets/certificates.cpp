// Certificates of any authority in the stores of the PC, and anything that certreq.exe may leave, as an
// enrolment uses them.
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/Input.h"
#include "fuzz/support/Host.h"
#include "identity/CertificateChain.h"
#include "identity/CsrFiles.h"
#include "winhost/core/HandleTable.h"
#include "winhost/crypt/CertificateStore.h"
#include "winhost/pc/Pc.h"

namespace {

constexpr size_t kMostCertificates = 8;
enum Store : uint8_t { kMy, kRoot, kCa, kStores };
using Texts = std::vector<std::string>;
using Stores = std::array<Texts, kStores>;

std::string Pem(const uint8_t* bytes, size_t size) {
    std::string base64((size + 2) / 3 * 4 + 1, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(base64.data()), bytes, static_cast<int>(size));
    base64.resize(static_cast<size_t>(length));
    return "-----BEGIN CERTIFICATE-----\n" + base64 + "\n-----END CERTIFICATE-----\n";
}

// What a store on the PC holds, in the same form; empty for what is no certificate.
std::string Stored(fuzz::Bytes certificate) {
    const winhost::Encoded encoded =
        winhost::EncodedOf(winhost::Parse(certificate.data(), certificate.size()).get());
    return encoded.empty() ? std::string() : Pem(encoded.data(), encoded.size());
}

// Fills the stores of the PC. Returns what they hold then.
Stores FillStores(fuzz::Input& from) {
    Stores described, held;
    for (size_t i = 0; i < kMostCertificates; ++i) {
        const uint8_t store = from.Byte() % (kStores + 1);
        if (store == kStores) break;
        const fuzz::Bytes certificate = from.LongBlock();
        described[store].push_back(Pem(certificate.data(), certificate.size()));
        held[store].push_back(Stored(certificate));
    }
    winhost::Pc::Instance().Change([&](winhost::PcDescription& pc) {
        pc.rootCertificates = described[kRoot];
        for (const auto& [store, name] : {std::pair{kMy, "MY"}, std::pair{kCa, "CA"}}) {
            auto& values = pc.registry[R"(HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\SystemCertificates\)" +
                                       std::string(name) + R"(\Certificates)"];
            values.clear();
            for (const std::string& text : described[store])
                values[std::to_string(values.size())] = text;
        }
    });
    return held;
}

std::filesystem::path OnHost(const std::string& path) {
    return winhost::Pc::Instance().HostPath(path);
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(OnHost(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool Holds(const Texts& store, const std::string& pem) {
    return !pem.empty() && std::find(store.begin(), store.end(), pem) != store.end();
}

template <size_t N>
void RequireField(const char (&field)[N], uint32_t size, const std::string& file) {
    fuzz::Require(std::string_view(field, size) == std::string_view(file).substr(0, N),
                  "the answer has the file, cut to its field");
    fuzz::Require(std::all_of(field + size, field + N, [](char c) { return c == '\0'; }),
                  "only zeros follow a file");
}

void CheckAnswer(const std::string& output) {
    CsrResponse response{};
    ReadCsrResponse(response);
    RequireField(response.SignedCert, std::min<uint32_t>(response.SignedCertSize, sizeof response.SignedCert),
                 output);
    RequireField(response.RootCert, std::min<uint32_t>(response.RootCertSize, sizeof response.RootCert),
                 ReadFile(GetRootCertPath()));
    fuzz::Require(response.SignedCertSize <= sizeof response.SignedCert &&
                      response.RootCertSize <= sizeof response.RootCert,
                  "no size is beyond its field");
}

}  // namespace

FUZZ_TARGET(certificates) {
    fuzz::Host& host = fuzz::Host::Instance();
    fuzz::Input from(input);
    const std::string issuer = fuzz::TextOf(from.Block());
    const Stores stores = FillStores(from);
    const std::string output = fuzz::TextOf(from.Rest());

    SaveCsrToFile({});
    std::ofstream(OnHost(GetCsrOutputPath()), std::ios::binary) << output;
    const size_t handles = winhost::HandleTable::Instance().Size();
    const bool isFound = FindCertificateChain(issuer.c_str()) == 0;
    fuzz::Require(winhost::HandleTable::Instance().Size() == handles, "each store is closed");
    const std::string intermediate = ReadFile(GetIntermediateCertPath()), root = ReadFile(GetRootCertPath());
    fuzz::Require(intermediate.empty() ? !isFound : Holds(stores[kMy], intermediate),
                  "the authority's certificate is one of its store");
    fuzz::Require(isFound ? Holds(stores[kRoot], root) : root.empty(),
                  "a root is one of its store, and is there exactly after a success");
    CheckAnswer(output);
    RemoveCsrFolder();
    fuzz::Require(!std::filesystem::exists(OnHost(GetCsrOutputPath()).parent_path()), "nothing is left");
    host.Log().Look();
}
