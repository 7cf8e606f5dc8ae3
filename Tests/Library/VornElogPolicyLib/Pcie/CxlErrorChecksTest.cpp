// CXL protocol errors by mask and severity, what they take out of the AER status, and component events.
#include "Library/VornElogPolicyLib/Pcie/CxlErrorChecks.h"

#include <gtest/gtest.h>

#include "Include/CxlRegisters.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"

namespace {

constexpr std::uint64_t RAS = 0xF0001200;
constexpr std::uint32_t UIE = 1 << 22, CIE = 1 << 14, MALFORMED = 1 << 18;

class CxlErrors : public testing::Test {
 protected:
    CxlErrors() {
        Machine.Sim.Machine().Mmio().Map(RAS & ~0xFFFull, 0x1000, "CXL component registers");
    }
    void SetLive(std::uint64_t Register, std::uint32_t Value) {
        Machine.Sim.Machine().Mmio().Write(RAS + Register, 4, Value);
    }
    static PCI_DEVICE_STATE Function() {
        PCI_DEVICE_STATE State{};
        State.Cxl.IsCxl = TRUE;
        State.Cxl.CxlRevision = 1;
        State.Cxl.RasCapabilityAddress = RAS;
        SetCapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_STATUS, UIE | CIE | MALFORMED);
        return State;
    }
    static std::string Check(PCI_DEVICE_STATE& State) {
        EXPECT_EQ(VornElogSmmCheckCxlProtocolErrorFatal(&State), EFI_SUCCESS);
        EXPECT_EQ(VornElogSmmCheckCxlProtocolErrorNonFatal(&State), EFI_SUCCESS);
        EXPECT_EQ(VornElogSmmCheckCxlProtocolErrorCorrectable(&State), EFI_SUCCESS);
        return Flags(State);
    }

    PcieMachine Machine;
};

TEST_F(CxlErrors, ProtocolErrorsAreSortedByMaskAndSeverity) {
    const struct {
        const char* Name;
        std::uint32_t Status, Mask, Severity, Correctable, CorrectableMask;
        bool IsHotRemoved;
        const char* Expected;
    } Cases[] = {
        {"nothing", 0, 0, 0xFFFFFFFF, 0, 0, false, ""},
        {"fatal", 0x0001, 0, 0x0001, 0, 0, false, "XF.DCH"},
        {"non-fatal", 0x0400, 0, 0x0001, 0, 0, false, "XN.DCH"},
        {"both", 0x4401, 0, 0x4001, 0, 0, false, "XF.DCH XN.DCH"},
        {"fatal, masked", 0x0001, 0x0001, 0x0001, 0, 0, false, "XF.DC"},
        {"non-fatal, one of two masked", 0x0600, 0x0200, 0, 0, 0, false, "XN.DCH"},
        {"correctable", 0, 0, 0, 0x0002, 0, false, "XK.DCH"},
        {"correctable, masked", 0, 0, 0, 0x0002, 0x0002, false, "XK.DC"},
        {"removed", 0x4401, 0, 0x4001, 0x0040, 0, true, "HOT XF.DC XN.DC XK.DC"},
    };
    for (const auto& Case : Cases) {
        PCI_DEVICE_STATE State = Function();
        State.Cxl.RasCapability[1] = Case.Mask;
        State.Cxl.RasCapability[2] = Case.Severity;
        State.Cxl.RasCapability[4] = Case.CorrectableMask;
        State.Pcie.ErrorStatus.DetectedHotRemoval = Case.IsHotRemoved;
        SetLive(0x00, Case.Status);
        SetLive(0x0C, Case.Correctable);
        EXPECT_EQ(Check(State), Case.Expected) << Case.Name;
        // Only an uncorrectable error takes its internal error with it.
        EXPECT_EQ(CapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_STATUS),
                  Case.Status == 0 ? UIE | CIE | MALFORMED : CIE | MALFORMED)
            << Case.Name;
    }
}

TEST_F(CxlErrors, OnlyFunctionsWithCxl2RegistersHaveThem) {
    SetLive(0x00, 0x4401);
    SetLive(0x0C, 0x0002);
    PCI_DEVICE_STATE NoCxl = Function(), Cxl1 = Function(), NoRegisters = Function();
    NoCxl.Cxl.IsCxl = FALSE;
    Cxl1.Cxl.CxlRevision = 0;
    NoRegisters.Cxl.RasCapabilityAddress = 0;
    for (PCI_DEVICE_STATE* State : {&NoCxl, &Cxl1, &NoRegisters}) {
        EXPECT_EQ(Check(*State), "");
    }
}

TEST_F(CxlErrors, EachEventLogIsASeverityInAllThreeSets) {
    for (std::uint64_t EventStatus = 0; EventStatus < 32; EventStatus++) {
        PCI_DEVICE_STATE State = Function();
        State.Cxl.DeviceEventStatus = EventStatus;
        EXPECT_EQ(VornElogSmmCheckCxlComponentErrorStatus(&State), EFI_SUCCESS);
        const CXL_ERROR_STATUS& Errors = State.Cxl.ErrorStatus;
        EXPECT_EQ(Errors.ComponentDetected, (EventStatus & 0xF) != 0) << EventStatus;
        for (const CXL_COMPONENT_SEVERITIES& Set :
             {Errors.ComponentDetectedSeverity, Errors.ComponentClearSeverity, Errors.ComponentHandleSeverity}) {
            EXPECT_EQ(Set.Info | Set.Warn << 1 | Set.Failure << 2 | Set.Fatal << 3,
                      static_cast<int>(EventStatus & 0xF));
        }
    }
}

}  // namespace
