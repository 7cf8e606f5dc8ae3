// What the platform's firmware tells the driver of PCI Express, byte for byte: the port map and slot numbers; and how
// root complexes get their SMI.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Include/PciDeviceState.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/ServiceTables.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/BootedSimulation.h"

namespace {

using namespace Simulator;

TEST(PciePlatform, PortMapHoldsAnEntryOf34BytesForEachRootPort) {
    Configuration Settings;
    Settings.Pcie.IsDefault = false;
    Settings.Pcie.Ports.resize(2);
    Settings.Pcie.Ports[0].Function.Kind = PcieKind::RootPort;
    Settings.Pcie.Ports[0].Function.Below.resize(1);
    PciePortSetting& Second = Settings.Pcie.Ports[1];
    Second.RootComplex = 3;
    Second.Port = 8;
    Second.Function.Kind = PcieKind::RootPort;
    Second.Function.Device = 5;
    Second.Function.Function = 2;
    Second.CxlCapable = true;
    Second.CxlMode = 2;
    Simulation Run(Settings);
    const auto& Apei = Run.Firmware().Data.Apei;
    EXPECT_EQ(Apei.PciMapValid, 1);
    const auto* Bytes = reinterpret_cast<const std::uint8_t*>(Apei.KyrPciePortMap);
    EXPECT_TRUE(BytesAre({Bytes, Bytes + 2 + 2 * 34},
                         "02 00 "
                         "00 00 00 00 00 00 00 01 00 80 00 00 00 00 00 80 00 00 "
                         "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                         "00 00 00 00 00 00 08 00 00 A0 02 06 01 02 00 A0 02 06 "
                         "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"));
}

TEST(PciePlatform, SlotsHaveNumbersOrBays) {
    Simulation Run{Configuration()};
    const struct {
        const char* What;
        UINT8 Bus, Device;
        EFI_STATUS Status;
        const char* Bytes;
    } Cases[] = {
        {"a drive", 4, 0, EFI_SUCCESS, "01 00 00 00 00 01 00 00 00"},
        {"the port of the other bay", 3, 1, EFI_SUCCESS, "01 00 00 00 00 01 01 00 00"},
        {"a card's port", 0x20, 1, EFI_SUCCESS, "01 01 00 00 00 04 00 00 00"},
        {"the card", 0x21, 0, EFI_SUCCESS, "01 01 00 00 00 04 00 00 00"},
        {"on board", 1, 0, EFI_NOT_FOUND, ""},
        {"nobody", 9, 0, EFI_NOT_FOUND, ""},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        PCI_SLOT_NUMBER_DATA Data{};
        EXPECT_EQ(PciSlotDataTable()->GetSlotNumberData(0, Case.Bus, Case.Device, 0, &Data), Case.Status);
        if (Case.Status == EFI_SUCCESS) {
            const auto* Bytes = reinterpret_cast<const std::uint8_t*>(&Data);
            EXPECT_TRUE(BytesAre({Bytes, Bytes + sizeof(Data)}, Case.Bytes));
        }
    }
    EXPECT_EQ(PciSlotDataTable()->GetSlotNumberData(0, 4, 0, 0, nullptr), EFI_INVALID_PARAMETER);
}

// The hardware asks until its status is clear, whatever the handlers did.
TEST(PciePlatform, RootComplexesAskUntilTheirStatusIsClear) {
    Configuration Settings;
    Settings.Missing = {"gFchSmmApuRasDispatchProtocolGuid"};
    BootedSimulation Run(Settings);
    EXPECT_FALSE(Run->IsRootComplexSmiPending());
    Machine& Hardware = Run->Machine();
    Hardware.Pcie().Inject(*Hardware.Pcie().Find("nic0"), {PcieError::Source::Uncorrectable, 18});
    Run->RaiseSmi("root-complex");
    EXPECT_TRUE(Run->IsRootComplexSmiPending());
    const auto Enters = Run.Events("smi-enter", {{"kind", "root-complex"}});
    ASSERT_EQ(Enters.size(), 1u);
    EXPECT_EQ(Enters[0].Fields["sources"].dump(), R"([{"root-complex":"0x0","status":"0x0","ports":"0x1"}])");
}

}  // namespace
