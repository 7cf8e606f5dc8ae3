// Errors of a root port's own requests: when they are handled, and which AER errors they stand for.
#include "Library/VornElogPolicyLib/Pcie/RpPio.h"

#include <gtest/gtest.h>

#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"

namespace {

constexpr unsigned RP_EXTENSIONS = 1 << 5, FULL_LOG = 15 << 8;
constexpr std::uint32_t ALL_KINDS = 0x00070707;

class RpPioErrors : public testing::Test {
 protected:
    TestFunction& AddPort(unsigned PortType, unsigned DpcCapability) {
        return Machine.Add(PcieMachine::ROOT_BUS, 1, 0, PortType)
            .MakeBridge(PcieMachine::BUS, PcieMachine::BUS + 1)
            .AddDpc(DpcCapability);
    }
    PCI_DEVICE_STATE Capture() {
        return Machine.Capture(PcieMachine::ROOT_BUS, 1, 0);
    }
    // A function below the port that owns 0xFE000000.
    void AddOwner(UINT8 Bus, UINT8 Function, unsigned PowerState) {
        Machine.Add(Bus, 0, Function, PcieEndpoint)
            .SetBar(0, 0xFE000000, 0xFFFF0000)
            .Set(PCI_HEADER_TYPE, 1, 0x80)
            .Set(PM + PM_CONTROL_STATUS, 2, PowerState);
    }

    PcieMachine Machine;
};

TEST_F(RpPioErrors, UnmaskedOnesWithASystemErrorAreHandled) {
    const struct {
        const char* Name;
        std::uint32_t Status, Mask, SysError;
        const char* Expected;
        unsigned PortType = PcieRootPort;
        unsigned DpcCapability = RP_EXTENSIONS;
        bool IsHotRemoved = false;
    } Cases[] = {
        {"nothing", 0, 0, ALL_KINDS, ""},
        {"configuration read timed out", 0x00000004, 0, ALL_KINDS, "R.DCH"},
        {"masked", 0x00000004, 0x00000004, ALL_KINDS, "R.DC"},
        {"no system error", 0x00000004, 0, 0x00070703, "R.DC"},
        {"one of two masked", 0x00020004, 0x00000004, ALL_KINDS, "R.DCH"},
        {"removed", 0x00040000, 0, ALL_KINDS, "HOT R.DC", PcieRootPort, RP_EXTENSIONS, true},
        {"no RP extensions", 0x00000004, 0, ALL_KINDS, "", PcieRootPort, 0},
        {"switch downstream port", 0x00000004, 0, ALL_KINDS, "R.DCH", PcieSwitchDownstreamPort},
        {"gone", 0xFFFFFFFF, 0, ALL_KINDS, "R.DCH"},
    };
    for (const auto& Case : Cases) {
        auto& Port = AddPort(Case.PortType, Case.DpcCapability)
                         .Set(DPC + DPC_RP_PIO_MASK, 4, Case.Mask)
                         .Set(DPC + DPC_RP_PIO_SYS_ERROR, 4, Case.SysError);
        PCI_DEVICE_STATE State = Capture();
        State.Pcie.ErrorStatus.DetectedHotRemoval = Case.IsHotRemoved;
        Port.Set(DPC + DPC_RP_PIO_STATUS, 4, Case.Status);  // live
        EXPECT_EQ(VornElogSmmCheckRpPioErrors(&State), EFI_SUCCESS);
        EXPECT_EQ(Flags(State), Case.Expected) << Case.Name;
    }
    PCI_DEVICE_STATE WithoutDpc{};
    EXPECT_EQ(VornElogSmmCheckRpPioErrors(&WithoutDpc), EFI_SUCCESS);
    EXPECT_EQ(Flags(WithoutDpc), "");
    EXPECT_EQ(VornElogSmmCheckRpPioErrors(nullptr), EFI_INVALID_PARAMETER);
}

TEST_F(RpPioErrors, AreValidUnlessSomethingExplainsThem) {
    constexpr std::array<std::uint32_t, 4> Read = {0x00000001, 0xFF, 0xFE000040, 0};
    const struct {
        const char* Name;
        std::uint32_t Status;
        std::array<std::uint32_t, 4> Header;
        UINT8 OwnerBus, OwnerFunction;
        unsigned OwnerPowerState;
        bool Expected;
        unsigned DpcCapability = RP_EXTENSIONS | FULL_LOG;
    } Cases[] = {
        {"read that nobody owns", 0x00010000, {0x00000001, 0xFF, 0xFD000000, 0}, 0x0D, 0, 3, true},
        {"read of a sleeping function", 0x00010000, Read, 0x0D, 0, 3, false},
        {"of a function that is awake", 0x00010000, Read, 0x0D, 0, 0, true},
        {"on the last bus, function 5", 0x00010000, Read, 0x0E, 5, 3, false},
        {"on a bus outside", 0x00010000, Read, 0x0F, 0, 3, true},
        {"a completer abort", 0x00020000, Read, 0x0D, 0, 3, true},
        {"a write", 0x00010000, MemoryWrite(0xFE000040), 0x0D, 0, 3, true},
        {"management message", 0x00010000, DMTF_MESSAGE, 0x0D, 0, 0, false},
        // Meant: the log size counts doublewords, the capture takes as many bytes.
        {"an address that was not captured", 0x00010000, Read, 0x0D, 0, 3, true, RP_EXTENSIONS | 8 << 8},
    };
    for (const auto& Case : Cases) {
        Machine.Clear();
        AddPort(PcieRootPort, Case.DpcCapability)
            .Set(DPC + DPC_RP_PIO_STATUS, 4, Case.Status)
            .Set(DPC + DPC_RP_PIO_SYS_ERROR, 4, ALL_KINDS)
            .SetHeaderLog(Case.Header, DPC + DPC_RP_PIO_HEADER_LOG);
        AddOwner(Case.OwnerBus, 0, 0);
        AddOwner(Case.OwnerBus, Case.OwnerFunction, Case.OwnerPowerState);
        PCI_DEVICE_STATE State = Capture();
        BOOLEAN IsValid = 2;
        EXPECT_EQ(VornElogValidateRpPioError(&State, &IsValid), EFI_SUCCESS);
        EXPECT_EQ(IsValid, Case.Expected) << Case.Name;
        EXPECT_EQ(VornElogSmmCheckRpPioErrors(&State), EFI_SUCCESS);
        EXPECT_EQ(Flags(State), Case.Expected ? "R.DCH" : "R.DC") << Case.Name;

        State.Pcie.ErrorStatus.DetectedHotRemoval = TRUE;
        EXPECT_EQ(VornElogValidateRpPioError(&State, &IsValid), EFI_SUCCESS);
        EXPECT_EQ(IsValid, FALSE) << Case.Name;
    }
    PCI_DEVICE_STATE State = Capture();
    BOOLEAN IsValid = 2;
    EXPECT_EQ(VornElogValidateRpPioError(nullptr, &IsValid), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogValidateRpPioError(&State, nullptr), EFI_INVALID_PARAMETER);
    State.DpcOffset = 0;
    EXPECT_EQ(VornElogValidateRpPioError(&State, &IsValid), EFI_UNSUPPORTED);
    EXPECT_EQ(IsValid, FALSE);
}

TEST_F(RpPioErrors, AerErrorsThatTheyExplainAreNotReportedTwice) {
    constexpr std::uint32_t UR = 1 << 20, CA = 1 << 15, CTO = 1 << 14, MALFORMED = 1 << 18, ALL = 0xFFFFFFFF;
    const struct {
        const char* Name;
        std::uint32_t RpPioStatus, Uncorrectable, Mask, Severity;
        bool Expected;  // still handled
        bool IsDetected = true;
    } Cases[] = {
        {"memory UR", 0x00010000, UR, 0, ALL, false},
        {"configuration CA", 0x00000002, CA, 0, ALL, false},
        {"IO timeout", 0x00000400, CTO, 0, ALL, false},
        {"another kind", 0x00010000, CTO, 0, ALL, true},
        {"all kinds", 0x00020401, UR | CA | CTO, 0, ALL, false},
        {"one left", 0x00010000, UR | MALFORMED, 0, ALL, true},
        {"the other one masked", 0x00010000, UR | MALFORMED, MALFORMED, ALL, false},
        {"the other one of another severity", 0x00010000, UR | MALFORMED, 0, UR, false},
        {"nothing asserted", 0x00000020, UR, 0, ALL, true},
        {"gone when it was looked at", 0x00010000, UR, 0, ALL, true, false},
    };
    for (const auto& Case : Cases) {
        for (const bool IsFatal : {true, false}) {
            PCI_DEVICE_STATE State{};
            SetCapturedRegister16(State.DpcCapability, DPC_CAPABILITY, RP_EXTENSIONS);
            SetCapturedRegister32(State.DpcCapability, DPC_RP_PIO_STATUS, Case.RpPioStatus);
            SetCapturedRegister32(State.DpcCapability, DPC_RP_PIO_SYS_ERROR, ALL_KINDS);
            SetCapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_STATUS, Case.Uncorrectable);
            SetCapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_MASK, Case.Mask);
            SetCapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_SEVERITY,
                                  IsFatal ? Case.Severity : ~Case.Severity);
            PCIE_ERROR_STATUS& Errors = State.Pcie.ErrorStatus;
            Errors.DetectedRpPioFatal = Case.IsDetected;
            Errors.HandleFatal = IsFatal;
            Errors.HandleNonFatal = !IsFatal;
            EXPECT_EQ(VornElogSmmScreenPcieErrorFatalForDpRpPio(&State), EFI_SUCCESS);
            EXPECT_EQ(VornElogSmmScreenPcieErrorNonFatalForDpRpPio(&State), EFI_SUCCESS);
            EXPECT_EQ(IsFatal ? Errors.HandleFatal : Errors.HandleNonFatal, Case.Expected) << Case.Name << IsFatal;
        }
    }
    EXPECT_EQ(VornElogSmmScreenPcieErrorFatalForDpRpPio(nullptr), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogSmmScreenPcieErrorNonFatalForDpRpPio(nullptr), EFI_INVALID_PARAMETER);
}

}  // namespace
