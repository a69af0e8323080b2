// Stand-in for certreq.exe of Windows, which submits a certificate request to the enterprise's authority, and
// for this authority. docs/companions.md describes how to control it.
#include <winsock2.h>
#include <windows.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/FilesystemPath.h"
#include "companions/ZELKVMApp/Files.h"
#include "companions/certreq/Authority.h"
#include "companions/certreq/Behaviour.h"
#include "companions/certreq/Submission.h"

namespace {

constexpr int kIssued = 0;
constexpr int kDenied = 1;
constexpr int kWrongUse = 2;
constexpr const char* kAuthorityFolder = "C:\\ProgramData\\Example CA";

std::string ReadWhole(const std::string& path) {
    std::ifstream file(FilesystemPath(path), std::ios::binary);
    if (!file) throw std::runtime_error(path + " cannot be read");
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteWhole(const std::string& path, const std::string& text) {
    std::ofstream file(FilesystemPath(path), std::ios::binary);
    file << text;
    file.close();
    if (!file) throw std::runtime_error(path + " cannot be written");
}

std::string CertificateFor(const certreq::Submission& submission, const certreq::Behaviour& behaviour) {
    // It exists from the first use on, whatever becomes of the request.
    const certreq::Authority authority(FilesystemPath(kAuthorityFolder));
    if (behaviour.length) return std::string(*behaviour.length, 'x');
    if (behaviour.refuses) throw std::runtime_error("the authority has denied the request");
    if (submission.authority != certreq::kAuthorityName)
        throw std::runtime_error("there is no authority \"" + submission.authority + "\"");
    if (submission.certificateTemplate.empty()) throw std::runtime_error("the template has no name");
    return authority.Issue(ReadWhole(submission.requestFile));
}

}  // namespace

int main(int argc, char** argv) {
    const auto submission = certreq::ParseArguments({argv + 1, argv + argc});
    const auto behaviour = certreq::ParseBehaviour(FirstWord(OwnFolder() + "certreq.behaviour"));
    if (!submission || !behaviour) {
        std::fputs(behaviour
                       ? "certreq: expected -submit -config HOST\\NAME -attrib CertificateTemplate:NAME "
                         "REQUEST CERTIFICATE\n"
                       : "certreq: certreq.behaviour has an unknown word\n",
                   stderr);
        return kWrongUse;
    }
    if (behaviour->hangs) Sleep(INFINITE);
    Sleep(behaviour->delay);
    try {
        WriteWhole(submission->certificateFile, CertificateFor(*submission, *behaviour));
        return kIssued;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "certreq: %s\n", error.what());
        return kDenied;
    }
}
