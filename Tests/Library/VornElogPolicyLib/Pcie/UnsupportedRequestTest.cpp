// Which unsupported requests are errors, through every exit of the validation; and what a bus scan suppresses.
#include "Library/VornElogPolicyLib/Pcie/UnsupportedRequest.h"

#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/Pcie/VendorDefinedMessage.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"

namespace {

constexpr std::uint32_t UR = 1 << 20, MALFORMED = 1 << 18, POISON = 1 << 12;
constexpr std::uint32_t BAR = 0xFE000000, IN_BAR = 0xFE000040, ELSEWHERE = 0xFD000000;

class UnsupportedRequest : public testing::Test {
 protected:
    // A function below the root port that has logged an unsupported request, with one base address register.
    TestFunction& AddDevice(UINT8 Function = 0, bool HasAer = true, unsigned PortType = PcieEndpoint) {
        auto& Device = Machine.Add(PcieMachine::BUS, 0, Function, PortType, HasAer);
        Device.SetBar(0, BAR, 0xFFFF0000);
        return HasAer ? Device.Set(AER + AER_UNCORRECTABLE_STATUS, 4, UR).SetHeaderLog(MEMORY_READ) : Device;
    }
    TestFunction& AddRootPort(std::uint32_t RootErrorStatus = 0x24) {
        auto& Port = Machine.AddRootPort().Set(AER + AER_ROOT_ERROR_STATUS, 4, RootErrorStatus);
        RootPort = Machine.Capture(PcieMachine::ROOT_BUS, 1, 0);
        return Port;
    }
    PCI_DEVICE_STATE Capture(UINT8 Function = 0) {
        return Machine.Capture(PcieMachine::BUS, 0, Function, &RootPort);
    }
    bool IsHandled(PCI_DEVICE_STATE& State) {
        BOOLEAN Handle = 2;
        EXPECT_EQ(VornElogSmmValidatePcieUnsupportedRequest(&State, &Handle), EFI_SUCCESS);
        EXPECT_LE(Handle, 1);
        return Handle != FALSE;
    }
    bool IsHandled(UINT8 Function = 0) {
        PCI_DEVICE_STATE State = Capture(Function);
        return IsHandled(State);
    }

    PcieMachine Machine;
    PCI_DEVICE_STATE RootPort{};
};

TEST_F(UnsupportedRequest, EveryScreenHasItsExit) {
    const struct {
        const char* Name;
        void (*Set)(TestFunction& Device);
        bool Expected;
        const char* Trace = "";  // behind the SBDF
    } Cases[] = {
        {"memory read", [](auto&) {}, true},
        {"configuration write",
         [](auto& Device) {
             Device.SetHeaderLog({0x44000001, 0, IN_BAR, 0});
         },
         true},
        {"write inside", [](auto& Device) { Device.SetHeaderLog(MemoryWrite(IN_BAR)); }, true},
        {"write elsewhere", [](auto& Device) { Device.SetHeaderLog(MemoryWrite(ELSEWHERE)); }, false},
        {"management message", [](auto& Device) { Device.SetHeaderLog(DMTF_MESSAGE); }, false,
         "Error associated with PCIe VDM Type 1 Message, ignore associated errors\n"},
        {"asleep", [](auto& Device) { Device.Set(PM + PM_CONTROL_STATUS, 2, 3); }, false,
         "Device in D3Hot, ignore error and exit...\n"},
        {"other fatal errors beat the rest",
         [](auto& Device) {
             Device.Set(PM + PM_CONTROL_STATUS, 2, 3).Set(AER + AER_UNCORRECTABLE_STATUS, 4, UR | MALFORMED);
         },
         true, "one or more non-UR fatal errors detected, skipping further UR categorization\n"},
        {"other non-fatal errors do not",
         [](auto& Device) {
             Device.Set(PM + PM_CONTROL_STATUS, 2, 3).Set(AER + AER_UNCORRECTABLE_STATUS, 4, UR | POISON);
         },
         false, "Device in D3Hot, ignore error and exit...\n"},
        {"fatal severity of the request itself",
         [](auto& Device) {
             Device.Set(PM + PM_CONTROL_STATUS, 2, 3).Set(AER + AER_UNCORRECTABLE_SEVERITY, 4, 0x00562030);
         },
         false},
    };
    for (const auto& Case : Cases) {
        AddRootPort();
        Case.Set(AddDevice());
        EXPECT_EQ(IsHandled(), Case.Expected) << Case.Name;
        EXPECT_TRUE(Machine.TracedSince(std::string("SBDF 0000:0D:00.0 ") + Case.Trace) || *Case.Trace == 0)
            << Case.Name;
    }
}

TEST_F(UnsupportedRequest, MessagesAreIgnoredOnlyWhereTheErrorIsTheirs) {
    const struct {
        const char* Name;
        std::uint32_t RootErrorStatus;
        bool HasAer, HasLink;
        EFI_STATUS Status;
        bool IsIgnored;
    } Cases[] = {
        {"one error", 0x24, true, true, EFI_SUCCESS, true},
        {"several correctable ones", 0x27, true, true, EFI_SUCCESS, true},
        {"several errors", 0x2C, true, true, EFI_SUCCESS, false},
        {"root port without AER", 0x24, false, true, EFI_UNSUPPORTED, false},
        {"no link", 0x24, true, false, EFI_INVALID_PARAMETER, false},
    };
    for (const auto& Case : Cases) {
        AddRootPort(Case.RootErrorStatus);
        if (!Case.HasAer) {
            RootPort.AerOffset = 0;
        }
        AddDevice().SetHeaderLog(DMTF_MESSAGE);
        PCI_DEVICE_STATE State = Machine.Capture(PcieMachine::BUS, 0, 0, Case.HasLink ? &RootPort : nullptr);
        BOOLEAN Ignore = 2;
        EXPECT_EQ(VornElogSmmCheckPcieVdmType1DmtfMsg(&State, &Ignore), Case.Status) << Case.Name;
        EXPECT_EQ(Ignore, Case.IsIgnored) << Case.Name;
        EXPECT_EQ(IsHandled(State), !Case.IsIgnored) << Case.Name;
    }
    EXPECT_TRUE(
        Machine.Traced("ERROR pPciDeviceState->PcieRootPortData.pPciDeviceStateUpstreamRootPort NULL on entry, "
                       "aborting...\n"));
    AddRootPort();
    AddDevice(0, false);
    PCI_DEVICE_STATE State = Capture();
    BOOLEAN Ignore = 2;
    EXPECT_EQ(VornElogSmmCheckPcieVdmType1DmtfMsg(&State, &Ignore), EFI_UNSUPPORTED);
    EXPECT_EQ(Ignore, FALSE);
}

TEST_F(UnsupportedRequest, WithoutAerOnlyTheStatesOfTheFunctionCount) {
    AddRootPort();
    auto& Device = AddDevice(0, false);
    EXPECT_TRUE(IsHandled());
    Device.Set(PM + PM_CONTROL_STATUS, 2, 3);
    EXPECT_FALSE(IsHandled());
}

TEST_F(UnsupportedRequest, AWriteForASleepingNeighbourIsNamedButNeverHandled) {
    const char* const Named = "Device in D3Hot and BAR on device positively decodes UR MMIO address, ignore error\n";
    const struct {
        const char* Name;
        UINT8 Failing, Neighbour;
        unsigned HeaderType, PowerState;
        std::uint32_t Address;
        bool IsNamed;
    } Cases[] = {
        {"asleep", 0, 3, 0x80, 3, 0xFD000000, true},
        {"of function 0, which need not say so", 3, 0, 0x00, 3, 0xFD000000, true},
        {"awake", 0, 3, 0x80, 0, 0xFD000000, false},
        {"another address", 0, 3, 0x80, 3, 0xFD100000, false},
        {"single-function device", 0, 3, 0x00, 3, 0xFD000000, false},
    };
    for (const auto& Case : Cases) {
        Machine.Clear();
        Machine.AddRootPort().Set(AER + AER_ROOT_ERROR_STATUS, 4, 0x24);
        PCI_DEVICE_STATE Port = Machine.Capture(PcieMachine::ROOT_BUS, 1, 0);
        Machine.Add(PcieMachine::BUS, 0, Case.Failing, PcieEndpoint)
            .SetBar(0, BAR, 0xFFFF0000)
            .SetHeaderLog(MemoryWrite(Case.Address))
            .Set(PCI_HEADER_TYPE, 1, Case.HeaderType);
        auto& Neighbour = Machine.Add(PcieMachine::BUS, 0, Case.Neighbour, PcieEndpoint)
                              .SetBar(0, 0xFD000000, 0xFFF00000)
                              .Set(PM + PM_CONTROL_STATUS, 2, Case.PowerState);
        PCI_DEVICE_STATE State = Machine.Capture(PcieMachine::BUS, 0, Case.Failing, &Port);
        EXPECT_FALSE(IsHandled(State)) << Case.Name;
        EXPECT_EQ(Machine.TracedSince("SBDF 0000:0D:00." + std::to_string(Case.Neighbour) + " " + Named),
                  Case.IsNamed)
            << Case.Name;
        EXPECT_EQ(Neighbour.Peek(PCI_BASE_ADDRESS_0, 4), 0xFD000000u) << Case.Name;
    }
}

TEST_F(UnsupportedRequest, AWriteToAPulledDriveOfTheNvmeSwitchIsIgnored) {
    constexpr unsigned HOT_PLUG = 1 << 6, PRESENT = 1 << 6;
    constexpr UINT8 SWITCH_BUS = 0x0E;
    const struct {
        const char* Name;
        unsigned UpstreamMode;
        unsigned SlotStatus;
        unsigned DownstreamMode;
        bool IsPlatformSwitch, HasWindow, Expected;
    } Cases[] = {
        {"pulled", 1, 0, 1, true, true, false},
        {"there", 1, PRESENT, 1, true, true, true},
        {"another drive's address", 1, 0, 1, true, false, true},
        {"BSW mode", 0, 0, 0, true, true, true},
        {"unknown mode", 3, 0, 3, true, true, true},
        {"another switch", 1, 0, 1, false, true, true},
    };
    for (const auto& Case : Cases) {
        Machine.Clear();
        Machine.AddRootPort().MakeBridge(PcieMachine::BUS, SWITCH_BUS).Set(AER + AER_ROOT_ERROR_STATUS, 4, 0x24);
        PCI_DEVICE_STATE Port = Machine.Capture(PcieMachine::ROOT_BUS, 1, 0);
        auto& Upstream = Machine.Add(PcieMachine::BUS, 0, 0, PcieSwitchUpstreamPort)
                             .MakeBridge(SWITCH_BUS, SWITCH_BUS + 8)
                             .MakeNvmeSwitch(Case.UpstreamMode)
                             .Set(PCI_MEMORY_BASE, 4, 0xFE70FE00)
                             .Set(PCI_PREFETCHABLE_MEMORY_BASE, 4, 0x0001FFF1)
                             .SetHeaderLog(MemoryWrite(0xFE312340));
        if (!Case.IsPlatformSwitch) {
            Upstream.Set(SSVID + 4, 4, 0x00011000);
        }
        // Two drives: one with everything in order, and the last device of the bus.
        for (const UINT8 Device : {UINT8{2}, UINT8{31}}) {
            Machine.Add(SWITCH_BUS, Device, 0, PcieSwitchDownstreamPort)
                .MakeBridge(SWITCH_BUS + 1 + Device % 4, SWITCH_BUS + 1 + Device % 4)
                .MakeNvmeSwitch(Case.DownstreamMode)
                .Set(PCIE + PCIE_SLOT_CAPABILITIES, 4, HOT_PLUG)
                .Set(PCIE + PCIE_SLOT_STATUS, 2, Device == 2 ? PRESENT : Case.SlotStatus)
                .Set(PCI_MEMORY_BASE, 4, Device == 2 || !Case.HasWindow ? 0xFE10FE00 : 0xFE30FE20)
                .Set(PCI_PREFETCHABLE_MEMORY_BASE, 4, 0x0001FFF1);
        }
        PCI_DEVICE_STATE State = Machine.Capture(PcieMachine::BUS, 0, 0, &Port);
        EXPECT_EQ(IsHandled(State), Case.Expected) << Case.Name;
        EXPECT_EQ(Machine.TracedSince("SBDF 0000:0E:1F.0 PCIe SSD Surprise Removal detected, ignore error\n"),
                  !Case.Expected)
            << Case.Name;
    }
}

TEST_F(UnsupportedRequest, AScanLeavesNoTraceAtTheRootPort) {
    const struct {
        std::uint32_t Control, UncorrectableMask, CorrectableMask;
        bool HasAer;
        BOOLEAN Answers[3];  // control, UR, advisory
    } Cases[] = {
        {0x281F, 0x00010000, 0x0000C000, true, {1, 1, 1}},
        {0x2817, 0x00110000, 0x0000E000, true, {0, 0, 0}},
        {0x281F, 0x00110000, 0x0000C000, true, {1, 0, 1}},
        {0x281F, 0, 0, false, {1, 0, 0}},
    };
    for (const auto& Case : Cases) {
        auto& Port = Machine.Add(PcieMachine::ROOT_BUS, 1, 0, PcieRootPort, Case.HasAer);
        Port.MakeBridge(PcieMachine::BUS, PcieMachine::BUS)
            .Set(PCIE + PCIE_DEVICE_CONTROL, 2, Case.Control)
            .Set(AER + AER_UNCORRECTABLE_MASK, 4, Case.UncorrectableMask)
            .Set(AER + AER_CORRECTABLE_MASK, 4, Case.CorrectableMask);
        Port.SetWritable(PCIE + PCIE_DEVICE_CONTROL, 4, 0x0000FFFF);
        Port.SetWritable(AER + AER_UNCORRECTABLE_MASK, 4, 0xFFFFFFFF);
        Port.SetWritable(AER + AER_CORRECTABLE_MASK, 4, 0xFFFFFFFF);
        Port.SetWriteOneToClear(PCIE + PCIE_DEVICE_STATUS, 2, 0x000F);
        Port.SetWriteOneToClear(AER + AER_UNCORRECTABLE_STATUS, 4, 0xFFFFFFFF);
        Port.SetWriteOneToClear(AER + AER_CORRECTABLE_STATUS, 4, 0xFFFFFFFF);
        const PCI_DEVICE_STATE State = Machine.Capture(PcieMachine::ROOT_BUS, 1, 0);

        BOOLEAN Answers[3] = {2, 2, 2};
        EXPECT_EQ(VornElogSuppressUnsupportedRequest(&State, &Answers[0], &Answers[1], &Answers[2]), EFI_SUCCESS);
        for (int Index = 0; Index < 3; Index++) {
            EXPECT_EQ(Answers[Index], Case.Answers[Index]) << Index;
        }
        EXPECT_EQ(Port.Peek(PCIE + PCIE_DEVICE_CONTROL, 2), 0x2817u);
        EXPECT_EQ(Port.Peek(AER + AER_UNCORRECTABLE_MASK, 4), Case.HasAer ? 0x00110000u : 0u);
        EXPECT_EQ(Port.Peek(AER + AER_CORRECTABLE_MASK, 4), Case.HasAer ? 0x0000E000u : 0u);

        Port.Set(PCIE + PCIE_DEVICE_STATUS, 2, 0x000F)
            .Set(AER + AER_UNCORRECTABLE_STATUS, 4, 0x00104010)
            .Set(AER + AER_CORRECTABLE_STATUS, 4, 0x00002001);
        EXPECT_EQ(VornElogRestoreUnsupportedRequest(&State, Answers[0], Answers[1], Answers[2]), EFI_SUCCESS);
        EXPECT_EQ(Port.Peek(PCIE + PCIE_DEVICE_CONTROL, 2), Case.Control);
        EXPECT_EQ(Port.Peek(AER + AER_UNCORRECTABLE_MASK, 4), Case.UncorrectableMask);
        EXPECT_EQ(Port.Peek(AER + AER_CORRECTABLE_MASK, 4), Case.CorrectableMask);
        // Only what the scan caused is cleared.
        EXPECT_EQ(Port.Peek(PCIE + PCIE_DEVICE_STATUS, 2), 0x0007u);
        EXPECT_EQ(Port.Peek(AER + AER_UNCORRECTABLE_STATUS, 4), Case.HasAer ? 0x00004010u : 0x00104010u);
        EXPECT_EQ(Port.Peek(AER + AER_CORRECTABLE_STATUS, 4), Case.HasAer ? 0x00000001u : 0x00002001u);
    }
}

}  // namespace
