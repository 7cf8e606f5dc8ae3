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

}  // namespace
