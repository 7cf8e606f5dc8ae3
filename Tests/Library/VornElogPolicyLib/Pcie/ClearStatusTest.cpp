// Clearing: what is written to which register for hand-worked states of status, mask, severity and flags.
#include "Library/VornElogPolicyLib/Pcie/ClearStatus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Library/VornElogBaseLib/Queue.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr unsigned SECONDARY_PCIE = 0x240;

// Every write to configuration space since the machine forgot: register and value.
std::vector<std::string> Writes(PcieMachine& Machine) {
    std::vector<std::string> Found;
    const auto Spaces = Machine.Events("write", "space"), Values = Machine.Events("write", "value"),
               Addresses = Machine.Events("write", "address");
    for (std::size_t At = 0; At < Spaces.size(); At++) {
        const unsigned Register = static_cast<unsigned>(std::stoull(Addresses[At], nullptr, 16) & 0xFFF);
        char Text[8];
        std::snprintf(Text, sizeof(Text), "%X=", Register);
        Found.push_back((Spaces[At] == "pci" ? "" : Spaces[At] + " ") + Text + Values[At]);
    }
    return Found;
}

using Flag = UINT8 PCIE_ERROR_STATUS::*;
struct Case {
    const char* Name;
    unsigned PortType;
    void (*Set)(TestFunction& Function);  // captured and live
    std::vector<Flag> Asked;
    std::vector<std::string> Expected;
};

// Status: completion timeout (masked), poisoned TLP and unsupported request (non-fatal), malformed TLP (fatal); bad
// TLP (masked) and advisory non-fatal. Device Status: all four.
void Everything(TestFunction& Function) {
    Function.Set(AER + AER_UNCORRECTABLE_STATUS, 4, 0x00145000);
    Function.Set(AER + AER_UNCORRECTABLE_MASK, 4, 0x00004000);
    Function.Set(AER + AER_UNCORRECTABLE_SEVERITY, 4, 0x00040000);
    Function.Set(AER + AER_CORRECTABLE_STATUS, 4, 0x00002040);
    Function.Set(AER + AER_CORRECTABLE_MASK, 4, 0x00000040);
    Function.Set(PCIE + PCIE_DEVICE_STATUS, 2, 0x000F);
}
void EverythingWithDpc(TestFunction& Function) {
    Everything(Function);
    Function.AddDpc(0x0020);
    Function.MakeBridge(0x0D, 0x0D);
}

void Dpc(TestFunction& Function) {
    Function.AddDpc().MakeBridge(0x0D, 0x0D);
}
void SecondaryErrors(TestFunction& Function) {
    Function.Set(AER + AER_SECONDARY_UNCORRECTABLE_STATUS, 4, 0x00000181);
}
void MaskedPoison(TestFunction& Function) {
    Function.Set(AER + AER_UNCORRECTABLE_STATUS, 4, 0x00001000).Set(AER + AER_UNCORRECTABLE_MASK, 4, 0x00001000);
}
// What is no error class: lanes, link and PME.
void LanesLinkAndPme(TestFunction& Function) {
    Function.MakeBridge(0x0D, 0x0D);
    Function.Set(AER, 4, SECONDARY_PCIE << 20 | 0x00020001);
    Function.Set(SECONDARY_PCIE, 4, 0x00010019).Set(SECONDARY_PCIE + 8, 4, 0x0000A5A5);
    Function.Set(PCIE + PCIE_LINK_STATUS, 2, 0x5043).Set(PCIE + PCIE_ROOT_STATUS, 4, 0x00030D00);
}

void LanesBeyondConfigurationSpace(TestFunction& Function) {
    Function.MakeBridge(0x0D, 0x0D).Set(AER, 4, 0xFFC << 20 | 0x00020001).Set(0xFFC, 4, 0x00010019);
}

constexpr Flag FATAL = &PCIE_ERROR_STATUS::ClearFatal, NON_FATAL = &PCIE_ERROR_STATUS::ClearNonFatal,
               UNSUPPORTED = &PCIE_ERROR_STATUS::ClearUnsupportedRequest,
               CORRECTABLE = &PCIE_ERROR_STATUS::ClearCorrectable, REMOVED = &PCIE_ERROR_STATUS::DetectedHotRemoval,
               CONTAINED = &PCIE_ERROR_STATUS::DetectedDpcEvent, CONTAINMENT = &PCIE_ERROR_STATUS::ClearDpcEvent,
               RP_PIO_SEEN = &PCIE_ERROR_STATUS::DetectedRpPioFatal, RP_PIO = &PCIE_ERROR_STATUS::ClearRpPioFatal;

const Case Cases[] = {
    {"nothing asked", 0, Everything, {}, {}},
    {"fatal", 0, Everything, {FATAL}, {"104=0x44000", "5A=0x4"}},
    {"non-fatal", 0, Everything, {NON_FATAL}, {"104=0x105000", "5A=0x2"}},
    {"unsupported request", 0, Everything, {UNSUPPORTED}, {"104=0x104000", "110=0x2040", "5A=0x8"}},
    {"correctable", 0, Everything, {CORRECTABLE}, {"110=0x2040", "5A=0x1"}},
    // The two bits that a removal leaves behind are written whether or not they are set.
    {"hot removal", 0, Everything, {REMOVED}, {"104=0x4020", "110=0x40"}},
    {"clearing without an event", 4, EverythingWithDpc, {CONTAINMENT}, {"104=0x4000", "110=0x40"}},
    {"containment",
     4,
     EverythingWithDpc,
     {CONTAINED, CONTAINMENT},
     {"104=0x145000", "110=0x2040", "5A=0xF", "188=0x1", "18C=0xFFF8F8F8"}},
    {"RP PIO", 6, EverythingWithDpc, {RP_PIO_SEEN, RP_PIO}, {"188=0x1", "18C=0xFFF8F8F8"}},
    {"containment of a port without RP extensions", 6, Dpc, {CONTAINED, CONTAINMENT}, {"188=0x1"}},
    {"masked errors of the other severity", 0, MaskedPoison, {FATAL}, {"104=0x1000"}},
    {"PCIe-to-PCI bridge", 7, SecondaryErrors, {NON_FATAL}, {"12C=0x181"}},
    {"PCIe-to-PCI bridge, only correctable asked", 7, SecondaryErrors, {CORRECTABLE}, {}},
    {"cleared unasked", 4, LanesLinkAndPme, {}, {"248=0xA5A5", "62=0x5043", "70=0x10000"}},
    {"lanes beyond configuration space", 4, LanesBeyondConfigurationSpace, {}, {}},
    {"PME of a switch port is no root's", 6, LanesLinkAndPme, {}, {"248=0xA5A5", "62=0x5043"}},
};

TEST(ClearPcieStatus, WritesWhatTheFlagsAskFor) {
    for (const Case& Test : Cases) {
        SCOPED_TRACE(Test.Name);
        PcieMachine Machine;
        TestFunction& Function = Machine.Add(0x0D, 0, 0, Test.PortType);
        Test.Set(Function);
        PCI_DEVICE_STATE State = Machine.Capture(0x0D, 0, 0);
        for (const Flag One : Test.Asked) {
            State.Pcie.ErrorStatus.*One = TRUE;
        }
        Machine.Forget();
        EXPECT_EQ(VornElogClearPcieDeviceStatus(&State, DEBUG_VERBOSE), EFI_SUCCESS);
        EXPECT_EQ(Writes(Machine), Test.Expected);
    }
}

TEST(ClearLegacyStatus, WritesBackErrorBitsOfStatusAndOfABridgesSecondaryStatus) {
    const struct {
        bool IsBridge;
        unsigned Status, SecondaryStatus;
        std::vector<std::string> Expected;
    } Tests[] = {
        {false, 0x0010, 0xFFFF, {}},           {false, 0x06FF, 0xFFFF, {}},
        {false, 0x8110, 0xFFFF, {"6=0x8110"}}, {true, 0x4010, 0x2000, {"1E=0x2000", "6=0x4010"}},
        {true, 0x0010, 0x0100, {"1E=0x100"}},  {true, 0x0810, 0x06FF, {"6=0x810"}},
    };
    for (const auto& Test : Tests) {
        PcieMachine Machine;
        TestFunction& Function = Machine.Add(0x0D, 0, 0, 0u);
        if (Test.IsBridge) {
            Function.MakeBridge(0x0E, 0x0E);
        }
        PCI_DEVICE_STATE State = Machine.Capture(0x0D, 0, 0);
        State.LegacyPci.Clear = TRUE;
        Function.Set(PCI_STATUS, 2, Test.Status);
        Function.Set(PCI_SECONDARY_STATUS, 2, Test.SecondaryStatus);
        Machine.Forget();
        EXPECT_EQ(VornElogClearLegacyPciDeviceStatus(&State, DEBUG_INFO), EFI_SUCCESS);
        EXPECT_EQ(Writes(Machine), Test.Expected);
    }
}

// A root port, a switch of one upstream and two downstream ports, and an endpoint below the second of them.
class BelowASwitch : public testing::Test {
 protected:
    BelowASwitch() {
        Machine.Add(0x0C, 1, 0, PcieRootPort).MakeBridge(0x0D, 0x10);
        Upstream = &Machine.Add(0x0D, 0, 0, PcieSwitchUpstreamPort).MakeBridge(0x0E, 0x10);
        Other = &Machine.Add(0x0E, 0, 0, PcieSwitchDownstreamPort).MakeBridge(0x0F, 0x0F);
        Downstream = &Machine.Add(0x0E, 1, 3, PcieSwitchDownstreamPort).MakeBridge(0x10, 0x10);
        Machine.Add(0x10, 0, 0, PcieEndpoint);
        RootPort = Machine.Capture(0x0C, 1, 0);
        PCI_DEVICE_STATE Queued = Machine.Capture(0x0E, 1, 3);
        QueueAdd(Policy.pQueuePciDeviceData, &Queued, sizeof(Queued));
        for (TestFunction* Bridge : {Upstream, Other, Downstream}) {
            Bridge->Set(PCI_STATUS, 2, 0x6010).Set(PCI_SECONDARY_STATUS, 2, 0x4000);
        }
        Endpoint = Machine.Capture(0x10, 0, 0, &RootPort);
        Endpoint.LegacyPci.Clear = TRUE;
        Endpoint.Pcie.ErrorStatus.ClearUnsupportedRequest = TRUE;
        Machine.Forget();
    }
    std::vector<std::string> Addresses() {
        VornElogClearLegacyPciDeviceStatus(&Endpoint, DEBUG_INFO);
        return Machine.Events("write", "address");
    }

    PcieMachine Machine;
    TestFunction *Upstream, *Other, *Downstream;
    PCI_DEVICE_STATE RootPort{}, Endpoint{};
};

TEST_F(BelowASwitch, AnUnsupportedRequestsSystemErrorsAreClearedOnTheWayDown) {
    Machine.Add(0x0E, 1, 0, PcieEndpoint);  // without function 0 nobody looks at function 3
    EXPECT_THAT(Addresses(),
                ElementsAre("0xD00006", "0xD0001E", "0xE0B006", "0xE0B01E"));  // not the port beside the way
    EXPECT_THAT(Machine.Events("write", "value"), ElementsAre("0x6010", "0x4000", "0x6010", "0x4000"));
    PCI_DEVICE_STATE* Queued = nullptr;
    ASSERT_EQ(VornElogRetrievePciDeviceState(0, 0x0E, 1, 3, &Queued), EFI_SUCCESS);
    EXPECT_EQ(Queued->LegacyPci.Clear, TRUE);
    EXPECT_EQ(CapturedRegister16(Queued->PciHeader, PCI_STATUS), 0x0010);
    EXPECT_EQ(CapturedRegister16(Queued->PciHeader, PCI_SECONDARY_STATUS), 0x0000);
}

TEST_F(BelowASwitch, BridgesAreLeftAloneWithoutTheSignalTheLinkOrTheAsk) {
    Endpoint.PcieRootPortData.pPciDeviceStateUpstreamRootPort = nullptr;
    EXPECT_THAT(Addresses(), IsEmpty());
    Endpoint.PcieRootPortData.pPciDeviceStateUpstreamRootPort = &RootPort;
    Endpoint.Pcie.ErrorStatus.ClearUnsupportedRequest = FALSE;
    EXPECT_THAT(Addresses(), IsEmpty());
    Endpoint.Pcie.ErrorStatus.ClearUnsupportedRequest = TRUE;
    Upstream->Set(PCI_STATUS, 2, 0xA010).Set(PCI_SECONDARY_STATUS, 2, 0xA000);
    EXPECT_THAT(Addresses(), IsEmpty());  // function 0 of the second device is absent
}

TEST(ClearRootErrorStatus, WritesBackWhatStopsTheSmi) {
    const struct {
        unsigned PortType;
        bool HasAer;
        unsigned Status;
        EFI_STATUS Expected;
        std::vector<std::string> Written;
    } Tests[] = {
        {4, true, 0x0800007F, EFI_SUCCESS, {"130=0x800007F"}},
        {10, true, 0x00000040, EFI_SUCCESS, {"130=0x40"}},
        {4, true, 0x08000000, EFI_SUCCESS, {}},
        {4, false, 0x7F, EFI_UNSUPPORTED, {}},
        {6, true, 0x7F, EFI_INVALID_PARAMETER, {}},
    };
    for (const auto& Test : Tests) {
        PcieMachine Machine;
        Machine.Add(0x0C, 1, 0, Test.PortType, Test.HasAer).Set(AER + AER_ROOT_ERROR_STATUS, 4, Test.Status);
        const PCI_DEVICE_STATE State = Machine.Capture(0x0C, 1, 0);
        Machine.Forget();
        EXPECT_EQ(VornElogClearPcieAerRootPortErrorStatus(&State, DEBUG_INFO), Test.Expected);
        EXPECT_EQ(Writes(Machine), Test.Written);
    }
}

}  // namespace
