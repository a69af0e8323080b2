#include "tests/faults/Errands.h"

#include "base/FieldText.h"
#include "mailbox/IdentityRecords.h"
#include "mailbox/IndicationRecord.h"
#include "tests/faults/AlertPort.h"
#include "winhost/tests/Certificates.h"

namespace errands {

namespace {

constexpr char kOldPassword[] = "old secret";

}  // namespace

// ---- certificates ----

void SettledWithStores(World& world) {
    World::Pc().Change([](auto& pc) {
        pc.rootCertificates = {kAlphaPem};
        pc.registry[R"(HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\SystemCertificates\MY\Certificates)"] = {
            {"1", kAlphaPem}};
    });
    world.LaunchAndSettle();
}

void Enrolment(World& world) {
    CsrRequest request{};
    CopyToField(request.ADCSName, "ca.example.test");
    CopyToField(request.RootCAName, kAlphaName);
    CopyToField(request.ADCSTemplateName, "Machine");
    request.CSRSize = sizeof request.CSR;
    world.firmware.Send(MPM_ZEL_CMD_CSR, mpm::Bytes::Of(request));
    world.Until([&] { return world.firmware.Count("WriteCSRResponse") >= 1; });
    world.Settle();
}

// ---- the password of the service account ----

void SettledWithDirectory(World& world) {
    World::Pc().Change([](auto& pc) {
        winhost::DirectoryAccount account;
        account.name = pc.computerName + "_vork_service";
        account.passwordHash = winhost::PasswordHash(kOldPassword);
        pc.directory.domain = pc.dnsDomain;
        pc.directory.accounts = {account};
    });
    world.LaunchAndSettle();
}

void Password(World& world) {
    ADPasswordUpdate update{};
    CopyToField(update.OldPassword, kOldPassword);
    CopyToField(update.NewPassword, "new secret");
    world.firmware.Send(MPM_ZEL_AD_SERVICE_PWD_UPDATE_CMD, mpm::Bytes::Of(update));
    world.Until([&] { return world.firmware.Count("WritePwdUpdateStatus") >= 1; });
    world.Settle();
}

// ---- alerts ----

void Alert(World& world) {
    AlertPort console;
    IndicationDestination destination{};
    CopyToField(destination.Host, "127.0.0.1");
    CopyToField(destination.Uri, "/events");
    destination.Port = console.Number();
    world.firmware.Send(MPM_ZEL_CMD_INDICATION_SUBSCRIBE, mpm::Bytes::Of(destination));
    world.firmware.Send(MPM_ZEL_CMD_INDICATION_EVENT, "<alert/>");
    world.Until([&] { return console.Received().ends_with("<alert/>"); });
    world.Settle();
}

// ---- the upgrade ----

void SettledWithUpgrade(World& world) {
    World::InstallProgram("ZELSWUpgrade.exe", "exit 0");
    world.LaunchAndSettle();
}

void Upgrade(World& world) {
    world.firmware.Send(MPM_ZEL_CMD_SOFTWARE_UPGRADE, "package 7");
    world.UntilLogged("ZELSWUpgrade executable launched successfully");
    world.Settle();
}

}  // namespace errands
