// The service on a PC whose certificate stores and certreq.exe the test lays out.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "mailbox/IdentityRecords.h"
#include "tests/support/LinkedFixture.h"
#include "winhost/tests/Certificates.h"

class EnrolmentFixture : public LinkedFixture {
  protected:
    static constexpr char kFolder[] = R"(C:\ProgramData\Tarvix\Manageability\CSRCert)";
    // The same for programs of the shell.
    static constexpr char kOutput[] = "C:/ProgramData/Tarvix/Manageability/CSRCert/output.crt";

    using List = std::vector<std::string>;
    static void FillStores(const List& personal, const List& root, const List& intermediate = {}) {
        Pc().Change([&](auto& pc) {
            pc.rootCertificates = root;
            const auto keep = [&](const std::string& store, const List& certificates) {
                auto& values = pc.registry[R"(HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\SystemCertificates\)" +
                                           store + R"(\Certificates)"];
                values.clear();
                for (const std::string& certificate : certificates)
                    values[std::to_string(values.size() + 1)] = certificate;
            };
            keep("MY", personal);
            keep("CA", intermediate);
        });
    }
    static void WriteCertreq(const std::string& lines) { WriteProgram("certreq.exe", lines); }
    static std::filesystem::path InFolder(const std::string& name) {
        return HostPath(std::string(kFolder) + "\\" + name);
    }
    static std::string ReadHost(const std::filesystem::path& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // A PEM text with all of its base64 on one line.
    static std::string OneLinePem(std::string pem) {
        const size_t begin = pem.find('\n') + 1, end = pem.find("\n-----END");
        std::string base64 = pem.substr(begin, end - begin);
        std::erase(base64, '\n');
        return pem.substr(0, begin) + base64 + "\n-----END CERTIFICATE-----\n";
    }
};
