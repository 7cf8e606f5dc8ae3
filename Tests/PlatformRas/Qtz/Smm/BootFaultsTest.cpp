// Protocols that are missing and services that fail while the driver starts: what it returns, registers and still
// does.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "Tests/PlatformRas/Qtz/Smm/MachineCheckStory.h"

namespace {

using Texts = std::set<std::string>;

// Registrations by a short name each; root complexes count as one.
Texts Registered(BootedSimulation& Sim, const char* Kind = "register") {
    static const std::map<std::string, std::string> Names{
        {"notify gEfiSmmEndOfDxeProtocolGuid", "end-of-dxe"},
        {"handler gVornSmbiosType16HandleToSmramGuid", "type16"},
        {"handler gVornSmbiosType17HandleToSmramGuid", "type17"},
        {"handler gVornRasDxeSmiStormScalingDataHoistToSmram", "scaling"},
        {"handler gElogLogPOSTErrorToBMCGuid", "post"},
        {"notify gVornPciSlotDataSmmProtocolGuid", "slots"},
        {"software-smi 0xD5", "dpc-check"},
        {"software-smi ", "dpc-check"},  // an unregistration carries no value; only this one is ever taken back
        {"software-smi 0xD8", "dpc-config"},
        {"fch-software-smi 0x80", "mce"},
        {"fch-software-smi 0xD2", "cxl"},
        {"notify gEdkiiSmmReadyToBootProtocolGuid", "ready-to-boot"},
    };
    Texts Found;
    for (const Simulator::Event& One : Sim.Events(Kind)) {
        const std::string What = One.Fields.at("what");
        const std::string Key = What + " " + One.Fields.value("guid", "") + One.Fields.value("value", "");
        Found.insert(Names.contains(Key) ? Names.at(Key) : What);
    }
    return Found;
}

const Texts EVERYTHING{"scaling", "end-of-dxe", "type16", "type17",           "post",         "slots", "dpc-check",
                       "mce",     "dpc-config", "cxl",    "root-complex-smi", "ready-to-boot"};

Texts Without(const Texts& Absent) {
    Texts Left;
    std::ranges::set_difference(EVERYTHING, Absent, std::inserter(Left, Left.end()));
    return Left;
}

// What comes of one uncorrected error.
struct Report {
    std::size_t Sel, Sends, Logged, Mce;
    bool operator==(const Report&) const = default;
};
void PrintTo(const Report& One, std::ostream* Out) {
    *Out << "sel " << One.Sel << " sends " << One.Sends << " logged " << One.Logged << " mce " << One.Mce;
}
constexpr Report WHOLE{21, 1, 1, 1};
// The policy engine has no buffers; the scan itself works.
constexpr Report ONLY_EXCEPTION{0, 0, 0, 1};

struct MissingCase {
    const char* Guid;
    EFI_STATUS Entry;
    std::size_t Assertions;  // constructors that failed
    Texts Absent;            // registrations that do not come; of a failed start: all that is not taken back is wrong
    Report Came;
};

class MissingProtocol : public testing::TestWithParam<MissingCase> {};

TEST_P(MissingProtocol, IsReportedAndTheRestGoesOn) {
    const MissingCase& Case = GetParam();
    Simulator::Configuration Settings;
    Settings.Missing.insert(Case.Guid);
    BootedSimulation Sim(Settings);
    EXPECT_EQ(Sim.EntryStatus(), Case.Entry);
    EXPECT_EQ(Sim.Count("breakpoint"), Case.Assertions);
    EXPECT_EQ(Sim.Count("dangling"), 0u);
    if (EFI_ERROR(Case.Entry)) {
        EXPECT_EQ(Registered(Sim), Registered(Sim, "unregister")) << "destructors take back what constructors did";
        EXPECT_EQ(Sim->Pool().LiveBlocks, 0u);
        EXPECT_NO_THROW(Sim->RaiseSmi("machine-check")) << "nobody is called";
        return;
    }
    EXPECT_EQ(Registered(Sim), Without(Case.Absent));
    Sim.Fail(UncorrectedError());
    const std::map<std::string, std::string> Success{{"status", "EFI_SUCCESS"}};
    const Report Came{Sim.Count("sel"), Sim.Count("sel-send", Success), Sim.Count("ghes-log", Success),
                      Sim.Count("mce")};
    EXPECT_EQ(Came, Case.Came);
}

INSTANTIATE_TEST_SUITE_P(
    Each, MissingProtocol,
    testing::Values(
        // Without its system table no SMM service answers: all constructors that use one fail.
        MissingCase{"gEfiSmmBase2ProtocolGuid", EFI_NOT_FOUND, 9, {}, {}},
        MissingCase{"gKyrPlatformApeiDataProtocolGuid", EFI_NOT_FOUND, 1, {}, {}},
        MissingCase{"gKyrRasServiceSmmProtocolGuid", EFI_NOT_FOUND, 1, {}, {}},
        MissingCase{"gKyrRasInitDataSmmProtocolGuid", EFI_NOT_FOUND, 1, {}, {}},
        MissingCase{"gVornManufacturingModeProtocolGuid", EFI_SUCCESS, 0, {}, WHOLE},
        // The policy engine's last step fails; its buffers stand.
        MissingCase{"gEfiSmmSwDispatch2ProtocolGuid", EFI_SUCCESS, 1, {"dpc-check", "dpc-config"}, WHOLE},
        MissingCase{"gFchSmmSwDispatch2ProtocolGuid", EFI_SUCCESS, 0, {"mce", "cxl"}, {}},
        MissingCase{"gFchSmmApuRasDispatchProtocolGuid", EFI_SUCCESS, 0, {"root-complex-smi"}, WHOLE},
        MissingCase{"gEfiSmmCpuServiceProtocolGuid", EFI_SUCCESS, 1, {"post", "slots", "dpc-check"}, ONLY_EXCEPTION},
        MissingCase{"gEfiSmmVariableProtocolGuid", EFI_SUCCESS, 1, {"post", "slots", "dpc-check"}, ONLY_EXCEPTION},
        MissingCase{
            "gEfiVornApeiLoggingSmmProtocolGuid", EFI_SUCCESS, 1, {"post", "slots", "dpc-check"}, ONLY_EXCEPTION},
        MissingCase{
            "gVornKyrMemoryPPRSmmProtocolGuid", EFI_SUCCESS, 1, {"post", "slots", "dpc-check"}, ONLY_EXCEPTION},
        // Event log, records and policy all want the DIMM map.
        MissingCase{"gVornMemoryInterfaceMemorySmmProtocolGuid",
                    EFI_SUCCESS,
                    3,
                    {"type16", "type17", "post", "slots", "dpc-check"},
                    ONLY_EXCEPTION},
        MissingCase{"gPspMboxSmmBufferAddressProtocolGuid", EFI_SUCCESS, 0, {}, WHOLE},
        MissingCase{"gKyrSmmMemoryMapProtocolGuid", EFI_SUCCESS, 1, {}, WHOLE},
        MissingCase{"gKyrTalvoConfigSmmProtocolGuid", EFI_SUCCESS, 1, {}, WHOLE},
        MissingCase{"gKyrPspRasEinjSmmProtocolGuid", EFI_SUCCESS, 0, {}, WHOLE},
        MissingCase{"gKyrFabricRegisterSmmProtocolGuid", EFI_SUCCESS, 1, {}, WHOLE},
        MissingCase{"gKyrPcdSmmProtocolGuid", EFI_SUCCESS, 1, {}, WHOLE},
        MissingCase{"gVornAttributeSmmProtocolGuid", EFI_SUCCESS, 0, {}, WHOLE},
        MissingCase{"gVornElogIpmiSmmProtocolGuid", EFI_SUCCESS, 0, {}, Report{0, 0, 1, 1}},
        MissingCase{"gVornSmmSelRecordProtocolGuid", EFI_SUCCESS, 0, {}, Report{21, 0, 1, 1}},
        MissingCase{"gVornSmmIpmiSelSupportProtocolGuid", EFI_SUCCESS, 0, {}, Report{21, 0, 1, 1}},
        MissingCase{"gVornPciSlotDataSmmProtocolGuid", EFI_SUCCESS, 0, {}, WHOLE},
        MissingCase{"gEfiSmmEndOfDxeProtocolGuid", EFI_SUCCESS, 0, {}, WHOLE},
        // The CXL handler is registered when the platform is ready to boot.
        MissingCase{"gEdkiiSmmReadyToBootProtocolGuid", EFI_SUCCESS, 0, {"cxl"}, WHOLE}),
    [](const auto& Case) { return std::string(Case.param.Guid); });

struct FailingCase {
    const char* Member;
    std::uint64_t Skip;  // calls that succeed first
    EFI_STATUS Entry;
    Texts Absent;
    Texts Dangling;  // what the initialiser registered before it gave up
    std::size_t Records = 3;
};
void PrintTo(const FailingCase& One, std::ostream* Out) {
    *Out << One.Member;
}
void PrintTo(const MissingCase& One, std::ostream* Out) {
    *Out << One.Guid;
}

class FailingAtStart : public testing::TestWithParam<FailingCase> {};

TEST_P(FailingAtStart, IsReportedAndTheRestGoesOn) {
    const FailingCase& Case = GetParam();
    Simulator::Configuration Settings = DiagnosticConfiguration();
    Settings.OemThresholdMap.emplace();
    Settings.Pcd[0x37D] = 1;
    Settings.Pcd[0x2BD] = 1;
    Settings.Failing[Case.Member] = {EFI_DEVICE_ERROR, UINT64_MAX, Case.Skip};
    BootedSimulation Sim(Settings);
    EXPECT_EQ(Sim.EntryStatus(), Case.Entry);
    Texts Dangling;
    for (const Simulator::Event& One : Sim.Events("dangling")) {
        Dangling.insert(One.Fields.at("what").get<std::string>().substr(0, 12));
    }
    EXPECT_EQ(Dangling, Case.Dangling);
    if (EFI_ERROR(Case.Entry)) {
        for (const char* One : {"scaling", "end-of-dxe", "type16", "type17", "post", "slots", "dpc-check"}) {
            EXPECT_EQ(Registered(Sim).contains(One), Registered(Sim, "unregister").contains(One)) << One;
        }
        return;
    }
    EXPECT_EQ(Registered(Sim), Without(Case.Absent));
    Sim->SetFailure(Case.Member, std::nullopt);
    Sim.Forget();
    RunStory(Sim);
    EXPECT_EQ(Sim.Count("record"), Case.Records);
}

INSTANTIATE_TEST_SUITE_P(
    Each, FailingAtStart,
    testing::Values(
        FailingCase{"LocateProtocol", 0, EFI_DEVICE_ERROR, {}, {}},
        FailingCase{"SmmLocateProtocol", 0, EFI_DEVICE_ERROR, {}, {}},
        FailingCase{"GetSmstLocation", 0, EFI_NOT_FOUND, {}, {}}, FailingCase{"InSmm", 0, EFI_SUCCESS, {}, {}, 2},
        FailingCase{"GetMfgModeType", 0, EFI_SUCCESS, {}, {}},
        FailingCase{"GetAttributeValue", 0, EFI_SUCCESS, {}, {}, 2},
        FailingCase{"SetRasDiagnosticModeData", 0, EFI_SUCCESS, {}, {}, 2},  // nor here: its counter stays as it was
        FailingCase{"GetMemoryArrayPtr", 0, EFI_SUCCESS, {}, {}},            // no DIMM map, all else
        FailingCase{"GetSlotInfoPtr", 0, EFI_SUCCESS, {}, {}},
        // Nobody looks at its status; no machine check becomes an SMI then.
        FailingCase{"SetSmiTrigIoCycle", 0, EFI_SUCCESS, {}, {}, 0},
        FailingCase{"SetMcaThresholdMap", 0, EFI_SUCCESS, {}, {}},
        FailingCase{"AllocatePool", 0, EFI_SUCCESS, {}, {}}, FailingCase{"PspMboxRasEinj", 0, EFI_SUCCESS, {}, {}},
        FailingCase{"SetTalvoCfg8", 0, EFI_SUCCESS, {}, {}},
        FailingCase{"SmiHandlerRegister", 0, EFI_SUCCESS, {"scaling", "type16", "type17", "post"}, {}},
        FailingCase{"FchSwDispatch2.Register", 0, EFI_SUCCESS, {"mce", "cxl"}, {}, 0},
        FailingCase{"FchApuRasDispatch.Register", 0, EFI_SUCCESS, {"root-complex-smi"}, {}},
        // Both software SMIs are refused, or only the one of the initialiser. What it registered before stays; the
        // rest of the initialisation is skipped.
        FailingCase{
            "SwDispatch2.Register", 0, EFI_DEVICE_ERROR, {}, {"FCH software", "root-complex", "notification"}},
        FailingCase{
            "SwDispatch2.Register", 1, EFI_DEVICE_ERROR, {}, {"FCH software", "root-complex", "notification"}},
        // The initialiser's last step.
        FailingCase{
            "SmmRegisterProtocolNotify", 0, EFI_DEVICE_ERROR, {}, {"FCH software", "root-complex", "software SMI"}}),
    [](const auto& Case) {
        std::string Name = std::string(Case.param.Member) + "After" + std::to_string(Case.param.Skip);
        std::ranges::replace(Name, '.', '_');
        return Name;
    });

// A service that says success and leaves no interface: nobody follows it.
TEST(LocateWithoutInterface, CountsAsNotFound) {
    for (const char* Member : {"LocateProtocol", "SmmLocateProtocol"}) {
        Simulator::Configuration Settings;
        Settings.Failing[Member] = {EFI_SUCCESS};
        BootedSimulation Sim(Settings);
        EXPECT_EQ(Sim.EntryStatus(), EFI_NOT_FOUND) << Member;
    }
}

}  // namespace
