// Certificate enrolment, from the firmware's command to its answer.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/unit/identity/EnrolmentFixture.h"

namespace {

namespace fs = std::filesystem;

class CsrEnrolment : public EnrolmentFixture {
  protected:
    static constexpr char kNoCrt[] = "Failed to open crt file. Error: 2";
    static constexpr char kNoRoot[] = "Failed to open rootCA file. Error: 2";

    void SetUp() override {
        EnrolmentFixture::SetUp();
        Start(50);
        FillStores({kAlphaPem}, {kAlphaPem});
    }
    static CsrRequest RequestTo(const std::string& authority, const std::string& csr = "a request") {
        CsrRequest request{};
        std::strcpy(request.ADCSName, "ca.example.test");
        authority.copy(request.RootCAName, sizeof request.RootCAName);
        std::strcpy(request.ADCSTemplateName, "Machine");
        request.CSRSize = static_cast<uint32_t>(csr.copy(request.CSR, sizeof request.CSR));
        request.IsRootCARequired = 1;
        return request;
    }
    // Sends it and waits for the answer.
    CsrResponse Enrol(mpm::Bytes payload) {
        const size_t before = firmware.Count("WriteCSRResponse");
        firmware.Send(MPM_ZEL_CMD_CSR, payload);
        EXPECT_TRUE(firmware.AwaitCount("WriteCSRResponse", before + 1));
        AwaitLog("Folder deleted: ", 2 * (before + 1));
        EXPECT_FALSE(fs::exists(HostPath(kFolder)));
        return firmware.Requests("WriteCSRResponse").back().As<CsrResponse>();
    }
    CsrResponse Enrol(const CsrRequest& request) { return Enrol(mpm::Bytes::Of(request)); }
    static std::string SignedOf(const CsrResponse& response) {
        return {response.SignedCert, response.SignedCertSize};
    }
    static std::string RootOf(const CsrResponse& response) {
        return {response.RootCert, response.RootCertSize};
    }
    static List Launched() {
        List lines;
        for (const auto& launch : Pc().Records<winhost::ProcessLaunch>())
            lines.push_back(launch.commandLine);
        return lines;
    }
};

}  // namespace

TEST_F(CsrEnrolment, TheFirmwareGetsTheCertificateAndItsRoot) {
    WriteCertreq(
        "cat C:/ProgramData/Tarvix/Manageability/CSRCert/input.csr > C:/submitted\n"
        "echo issued > " +
        std::string(kOutput));
    const CsrResponse response = Enrol(RequestTo(kAlphaName, "the\r\nrequest"));
    EXPECT_EQ(SignedOf(response), "issued\n");
    EXPECT_EQ(RootOf(response), OneLinePem(kAlphaPem));
    EXPECT_EQ(ReadHost(HostPath(R"(C:\submitted)")), "the\r\nrequest") << "to the byte";
    const std::string folder = kFolder;
    const std::string command = R"(certreq.exe -submit -config "ca.example.test\Example Root Alpha" -attrib )"
                                R"("CertificateTemplate:Machine" ")" +
                                folder + R"(\input.csr" ")" + folder + R"(\output.crt")";
    EXPECT_EQ(Launched(), List{command});
    const std::string details = std::string("CSR Details ADCS Name=ca.example.test RootCAName=") +
                                kAlphaName + " ADCSTemplateName=Machine";
    ExpectLogInOrder(
        {"MPM_ZEL_CMD_CSR received", "Size of CSR buffer 4296", "retrive CSR From MPM", details,
         "CSR Details Is Root CA Required=1 CSR Size=12", "Folder deleted: " + folder,
         "Directory created for CSR", "Writing CSR buffer to .csr file", "Sending request to CA server...",
         "Certificate request command: " + command, "Check for issuer: Example Root Alpha",
         "Writing CSR response to file", "Signed certificate data read done. size: 7",
         "Root CA certificate data read done. size: ", "CSR Response ",
         "WriteCSRResponse: connecting to Driver. Input buffer size = 8200", "Folder deleted: " + folder});
    EXPECT_TRUE(HasLine("INFO", "CSR Response " + std::to_string(response.RootCertSize) + " 7"));
}

TEST_F(CsrEnrolment, TheRootIsSentAlsoWhenItIsNotRequired) {
    WriteCertreq("echo issued > " + std::string(kOutput));
    CsrRequest request = RequestTo(kAlphaName);
    request.IsRootCARequired = 0;
    EXPECT_EQ(RootOf(Enrol(request)), OneLinePem(kAlphaPem));
}

TEST_F(CsrEnrolment, ARefusalIsAnAnswerWithoutACertificate) {
    ExpectError(kNoCrt);
    WriteCertreq("exit 1");
    const CsrResponse response = Enrol(RequestTo(kAlphaName));
    EXPECT_EQ(response.SignedCertSize, 0u);
    EXPECT_EQ(RootOf(response), OneLinePem(kAlphaPem));
}

TEST_F(CsrEnrolment, AMissingProgramIsAnAnswerWithoutACertificate) {
    ExpectError(kNoCrt);
    const CsrResponse response = Enrol(RequestTo(kAlphaName));
    EXPECT_EQ(response.SignedCertSize, 0u);
    EXPECT_GT(response.RootCertSize, 0u);
    EXPECT_TRUE(Launched().empty());
}

TEST_F(CsrEnrolment, AnUnknownAuthorityIsAnAnswerWithoutARoot) {
    ExpectErrors({"Failed to find the certificate: Elsewhere", kNoRoot});
    WriteCertreq("echo issued > " + std::string(kOutput));
    const CsrResponse response = Enrol(RequestTo("Elsewhere"));
    EXPECT_EQ(SignedOf(response), "issued\n");
    EXPECT_EQ(response.RootCertSize, 0u);
}

TEST_F(CsrEnrolment, AnEmptyRequestIsAnEmptyFile) {
    ExpectError(kNoCrt);
    WriteCertreq("[ -s C:/ProgramData/Tarvix/Manageability/CSRCert/input.csr ] || echo empty > C:/size");
    EXPECT_EQ(Enrol(RequestTo(kAlphaName, "")).SignedCertSize, 0u);
    EXPECT_EQ(ReadHost(HostPath(R"(C:\size)")), "empty\n");
}

TEST_F(CsrEnrolment, WhatACrashHasLeftIsClearedFirst) {
    ExpectErrors({kNoCrt, kNoRoot, "Failed to find the certificate"});
    fs::create_directories(InFolder("below"));
    for (const char* name : {"output.crt", "root.pem", "below\\file"})
        std::ofstream(InFolder(name)) << "old";
    const CsrResponse response = Enrol(RequestTo("Elsewhere"));
    EXPECT_EQ(response.SignedCertSize, 0u);
    EXPECT_EQ(response.RootCertSize, 0u);
}

TEST_F(CsrEnrolment, ACertificateThatDoesNotFitIsCut) {
    WriteCertreq("head -c 5000 /dev/zero | tr '\\0' x > " + std::string(kOutput));
    const CsrResponse response = Enrol(RequestTo(kAlphaName));
    EXPECT_EQ(SignedOf(response), std::string(4096, 'x'));
    EXPECT_EQ(RootOf(response), OneLinePem(kAlphaPem)) << "the root behind it is whole";
}

TEST_F(CsrEnrolment, APayloadOfAnySizeIsAnswered) {
    ExpectError(kNoCrt);
    AllowError(kNoRoot);
    for (const size_t size : {size_t{0}, size_t{100}, sizeof(CsrRequest), size_t{20000}}) {
        const std::vector<uint8_t> payload(size, 'n');
        AllowError("Failed to find the certificate: ");
        EXPECT_EQ(Enrol(mpm::Bytes(payload)).SignedCertSize, 0u) << size;
        AwaitLog("Size of CSR buffer " + std::to_string(size));
    }
    const std::string name(64, 'n');
    EXPECT_TRUE(HasLine(
        "INFO", "CSR Details ADCS Name=" + name + " RootCAName=" + name + " ADCSTemplateName=" + name))
        << "names that fill their fields end with them";
    EXPECT_TRUE(HasLine("INFO", "CSR Details ADCS Name= RootCAName= ADCSTemplateName="));
}

TEST_F(CsrEnrolment, ASizeBeyondTheFieldMeansTheWholeField) {
    CsrRequest request = RequestTo(kAlphaName, std::string(sizeof request.CSR, 'r'));
    request.CSRSize = 0xFFFFFFF0;
    WriteCertreq(
        "cat C:/ProgramData/Tarvix/Manageability/CSRCert/input.csr > C:/submitted\n"
        "echo issued > " +
        std::string(kOutput));
    Enrol(request);
    EXPECT_EQ(ReadHost(HostPath(R"(C:\submitted)")), std::string(4096, 'r'));
    EXPECT_TRUE(HasLine("INFO", "CSR Details Is Root CA Required=1 CSR Size=-16"));
}

TEST_F(CsrEnrolment, TheReadThreadGoesOnMeanwhile) {
    WriteCertreq(kStubborn);
    firmware.Send(MPM_ZEL_CMD_CSR, mpm::Bytes::Of(RequestTo(kAlphaName)));
    ASSERT_TRUE(Eventually([] { return IdsOf("certreq.exe").size() == 1; }));
    AwaitHandled();
    EXPECT_EQ(firmware.Count("WriteCSRResponse"), 0u);
    AllowError(kNoCrt);
    KillPrograms();
    EXPECT_TRUE(firmware.AwaitRequest("WriteCSRResponse"));
}

TEST_F(CsrEnrolment, TwoAtOnceAreBothAnswered) {
    // They share one folder, so that one may remove what the other still needs.
    for (const char* text :
         {"Failed to open crt file", "Failed to open rootCA file", "Failed to create directory for CSR"})
        AllowError(text);
    WriteCertreq("echo issued > " + std::string(kOutput));
    for (int i = 0; i < 2; ++i)
        firmware.Send(MPM_ZEL_CMD_CSR, mpm::Bytes::Of(RequestTo(kAlphaName)));
    EXPECT_TRUE(firmware.AwaitCount("WriteCSRResponse", 2));
    EXPECT_EQ(Launched().size(), 2u);
}

TEST_F(CsrEnrolment, AHangingProgramDoesNotHoldTheStop) {
    AllowErrorsOfAStop();
    WriteCertreq(kStubborn);
    firmware.Send(MPM_ZEL_CMD_CSR, mpm::Bytes::Of(RequestTo(kAlphaName)));
    ASSERT_TRUE(Eventually([] { return IdsOf("certreq.exe").size() == 1; }));
    service->SignalStop();
    PassSleepOf(std::chrono::milliseconds(500));
    AwaitLog("CsrWorker: the service stops, certreq.exe is left running and MPM gets no CSR response");
    EXPECT_TRUE(service->EndThreads(DetachedThreads::kPatience));
    EXPECT_FALSE(fs::exists(HostPath(kFolder)));
    EXPECT_EQ(firmware.Count("WriteCSRResponse"), 0u);
    EXPECT_EQ(IdsOf("certreq.exe").size(), 1u);
}

TEST_F(CsrEnrolment, AFolderThatUsersMayChangeIsNotUsed) {
    ExpectErrors({"Failed to create directory for CSR", "Failed to open crt file. Error: 5",
                  "Failed to open rootCA file. Error: 5"});
    WriteCertreq("echo issued > " + std::string(kOutput));
    fs::create_directories(HostPath(kFolder));
    std::ofstream(InFolder("output.crt")) << "a user's";
    service->m_bWorkingFolderSecure = false;
    firmware.Send(MPM_ZEL_CMD_CSR, mpm::Bytes::Of(RequestTo(kAlphaName)));
    const auto answer = firmware.AwaitRequest("WriteCSRResponse");
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->As<CsrResponse>().SignedCertSize, 0u);
    EXPECT_EQ(answer->As<CsrResponse>().RootCertSize, 0u);
    EXPECT_TRUE(Launched().empty());
    EXPECT_EQ(ReadHost(InFolder("output.crt")), "a user's");
    EXPECT_FALSE(fs::exists(InFolder("intermediate.pem")));
    EXPECT_EQ(LogCount("Folder deleted"), 0u);
}

TEST_F(CsrEnrolment, AFolderThatCannotBeMadeOrRemovedIsLogged) {
    ExpectErrors({"Failed to open crt file", "Failed to open rootCA file"});
    service->m_pathCache[R"(\Tarvix\Manageability)"] = "C:\\" + std::string(300, 'n');
    firmware.Send(MPM_ZEL_CMD_CSR, mpm::Bytes::Of(RequestTo(kAlphaName)));
    ASSERT_TRUE(firmware.AwaitRequest("WriteCSRResponse"));
    AwaitLog("Error deleting folder: ", 2);
    EXPECT_EQ(LogCount("Error creating directory for CSR: "), 1u);
}

TEST_F(CsrEnrolment, LeavesNoHandles) {
    WriteCertreq("echo issued > " + std::string(kOutput));
    Enrol(RequestTo(kAlphaName));
    const size_t before = OpenHandles();
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(SignedOf(Enrol(RequestTo(kAlphaName))), "issued\n");
    EXPECT_TRUE(Eventually([&] { return OpenHandles() <= before; })) << OpenHandles() << " > " << before;
}
