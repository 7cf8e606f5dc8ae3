// Storms of PCIe, CXL and PCI errors: which errors are alike, which functions are counted together, what is marked.
#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/Storm/StormCount.h"
#include "Tests/Library/VornElogPolicyLib/Storm/StormMachine.h"

namespace {

constexpr UINT8 BUS = 0x41;

// Offsets within the AER and the CXL RAS capability, as the standards number them.
struct Uncorrectable {
    UINT32 Status, Mask, Severity;
};
void SetAer(PCI_DEVICE_STATE& State, const Uncorrectable& Registers) {
    Put32(State.AerCapability, 0x04, Registers.Status);
    Put32(State.AerCapability, 0x08, Registers.Mask);
    Put32(State.AerCapability, 0x0C, Registers.Severity);
}
void SetAerCorrectable(PCI_DEVICE_STATE& State, UINT32 Status, UINT32 Mask) {
    Put32(State.AerCapability, 0x10, Status);
    Put32(State.AerCapability, 0x14, Mask);
}
void SetRas(PCI_DEVICE_STATE& State, const Uncorrectable& Registers) {
    State.Cxl.IsCxl = State.Cxl.RasCapabilityValid = TRUE;
    State.Cxl.RasCapability[0] = Registers.Status;
    State.Cxl.RasCapability[1] = Registers.Mask;
    State.Cxl.RasCapability[2] = Registers.Severity;
}
void SetRasCorrectable(PCI_DEVICE_STATE& State, UINT32 Status, UINT32 Mask) {
    State.Cxl.IsCxl = State.Cxl.RasCapabilityValid = TRUE;
    State.Cxl.RasCapability[3] = Status;
    State.Cxl.RasCapability[4] = Mask;
}

// The marks as text, those that are set: one letter each, in the order of the fields.
std::string Marks(const PCI_DEVICE_STATE& State) {
    std::string Set;
    const auto Mark = [&](UINT8 Flag, const char* Name) { Set += Flag != 0 ? std::string(" ") + Name : ""; };
    Mark(State.LegacyPci.SmiStorm, "legacy");
    Mark(State.Pcie.SmiStorm.UncorrectedError, "uncorrected");
    Mark(State.Pcie.SmiStorm.Pcie, "pcie");
    Mark(State.Pcie.SmiStorm.AllFunctions, "all");
    Mark(State.Pcie.SmiStorm.DpcRpPio, "rp-pio");
    Mark(State.Pcie.SmiStorm.Fatal, "fatal");
    Mark(State.Pcie.SmiStorm.NonFatal, "non-fatal");
    Mark(State.Pcie.SmiStorm.Correctable, "correctable");
    Mark(State.Cxl.SmiStorm.ProtocolUncorrectedError, "cxl-uncorrected");
    Mark(State.Cxl.SmiStorm.Protocol, "cxl");
    Mark(State.Cxl.SmiStorm.ProtocolAllFunctions, "cxl-all");
    Mark(State.Cxl.SmiStorm.ProtocolFatal, "cxl-fatal");
    Mark(State.Cxl.SmiStorm.ProtocolNonFatal, "cxl-non-fatal");
    Mark(State.Cxl.SmiStorm.ProtocolCorrectable, "cxl-correctable");
    Mark(State.Cxl.SmiStorm.ComponentFatalOrFailure, "component-uncorrected");
    Mark(State.Cxl.SmiStorm.ComponentSeverities, "component");
    return Set;
}

// Ten errors in ten seconds, each in an SMI of its own with the state that Errors[Number % size] makes. Returns the
// marks after each.
using Make = void (*)(PCI_DEVICE_STATE&);
std::vector<std::string> RunErrors(StormMachine& Machine, const std::vector<Make>& Errors, bool IsCxlRecord,
                                   unsigned Times = 10) {
    std::vector<std::string> After;
    for (unsigned Number = 0; Number < Times; Number++) {
        PCI_DEVICE_STATE State = EndpointState(BUS);
        Errors[Number % Errors.size()](State);
        Machine.Capture({&State});
        const bool Storm = IsCxlRecord ? Machine.IsStorm(CxlProtocolStormRecord(BUS), Number)
                                       : Machine.IsStorm(PcieStormRecord(BUS), Number);
        After.push_back(Marks(Machine.Captured()));
        EXPECT_EQ(Storm, !After.back().empty()) << "error " << Number + 1;
    }
    return After;
}

TEST(PciStorm, TenErrorsThatShareABitOfTheirClassAreOne) {
    struct Case {
        const char* Name;
        bool IsCxlRecord;
        std::vector<Make> Errors;
        const char* MarksOfTenth;
    };
    const std::vector<Case> Cases{
        {"correctable",
         false,
         {[](auto& S) { S.Pcie.ErrorStatus.DetectedCorrectable = 1, SetAerCorrectable(S, 0x41, 0x2000); }},
         " pcie all correctable"},
        {"correctable, two errors that share one bit",
         false,
         {[](auto& S) { S.Pcie.ErrorStatus.DetectedCorrectable = 1, SetAerCorrectable(S, 0x41, 0); },
          [](auto& S) { S.Pcie.ErrorStatus.DetectedCorrectable = 1, SetAerCorrectable(S, 0xC0, 0); }},
         " pcie all correctable"},
        {"correctable, disjoint bits",
         false,
         {[](auto& S) { S.Pcie.ErrorStatus.DetectedCorrectable = 1, SetAerCorrectable(S, 0x01, 0); },
          [](auto& S) { S.Pcie.ErrorStatus.DetectedCorrectable = 1, SetAerCorrectable(S, 0x40, 0); }},
         ""},
        {"correctable, the shared bit is masked",
         false,
         {[](auto& S) { S.Pcie.ErrorStatus.DetectedCorrectable = 1, SetAerCorrectable(S, 0x41, 0x40); },
          [](auto& S) { S.Pcie.ErrorStatus.DetectedCorrectable = 1, SetAerCorrectable(S, 0xC0, 0x00); }},
         ""},
        {"bits without the class's detection", false, {[](auto& S) { SetAerCorrectable(S, 0x41, 0); }}, ""},
        {"fatal",
         false,
         {[](auto& S) {
             S.Pcie.ErrorStatus.DetectedFatal = 1, SetAer(S, {0x00040010, 0, 0x00040000});
         }},
         " uncorrected pcie all fatal"},
        {"fatal, the shared bit is fatal in one of them only",
         false,
         {[](auto& S) {
              S.Pcie.ErrorStatus.DetectedFatal = 1, SetAer(S, {0x00040010, 0, 0x00040000});
          },
          [](auto& S) {
              S.Pcie.ErrorStatus.DetectedFatal = 1, SetAer(S, {0x00040010, 0, 0x00000010});
          }},
         ""},
        {"non-fatal",
         false,
         {[](auto& S) {
             S.Pcie.ErrorStatus.DetectedNonFatal = 1, SetAer(S, {0x00104000, 0x00100000, 0});
         }},
         " uncorrected pcie all non-fatal"},
        {"fatal and non-fatal and correctable at once",
         false,
         {[](auto& S) {
             S.Pcie.ErrorStatus.DetectedFatal = S.Pcie.ErrorStatus.DetectedNonFatal = 1;
             S.Pcie.ErrorStatus.DetectedCorrectable = 1;
             SetAer(S, {0x00044000, 0, 0x00040000});
             SetAerCorrectable(S, 0x1000, 0);
         }},
         " uncorrected pcie all fatal non-fatal correctable"},
        {"two classes by turns",
         false,
         {[](auto& S) {
              S.Pcie.ErrorStatus.DetectedFatal = 1, SetAer(S, {0x00040000, 0, 0x00040000});
          },
          [](auto& S) {
              S.Pcie.ErrorStatus.DetectedNonFatal = 1, SetAer(S, {0x00004000, 0, 0x00040000});
          }},
         ""},
        {"RP PIO",
         false,
         {[](auto& S) { S.Pcie.ErrorStatus.DetectedRpPioFatal = 1; }},
         " uncorrected pcie all rp-pio"},
        {"system errors, enabled",
         false,
         {[](auto& S) { S.LegacyPci.DetectedSerr = 1, S.PciHeader[5] = 0x01; }},
         " legacy"},
        {"system errors, not enabled", false, {[](auto& S) { S.LegacyPci.DetectedSerr = 1; }}, ""},
        {"parity errors, answered",
         false,
         {[](auto& S) { S.LegacyPci.DetectedPerr = 1, S.PciHeader[4] = 0x40; }},
         " legacy"},
        {"system and parity errors by turns",
         false,
         {[](auto& S) { S.LegacyPci.DetectedSerr = 1, S.PciHeader[4] = 0x40, S.PciHeader[5] = 0x01; },
          [](auto& S) { S.LegacyPci.DetectedPerr = 1, S.PciHeader[4] = 0x40, S.PciHeader[5] = 0x01; }},
         ""},
        {"CXL fatal",
         true,
         {[](auto& S) {
             S.Cxl.ErrorStatus.DetectedFatal = 1, SetRas(S, {0x4001, 0, 0x4000});
         }},
         " cxl-uncorrected cxl cxl-all cxl-fatal"},
        {"CXL non-fatal",
         true,
         {[](auto& S) {
             S.Cxl.ErrorStatus.DetectedNonFatal = 1, SetRas(S, {0x4001, 0, 0x4000});
         }},
         " cxl-uncorrected cxl cxl-all cxl-non-fatal"},
        {"CXL fatal, disjoint bits",
         true,
         {[](auto& S) {
              S.Cxl.ErrorStatus.DetectedFatal = 1, SetRas(S, {0x4000, 0, 0x4001});
          },
          [](auto& S) {
              S.Cxl.ErrorStatus.DetectedFatal = 1, SetRas(S, {0x0001, 0, 0x4001});
          }},
         ""},
        {"CXL correctable, masked",
         true,
         {[](auto& S) { S.Cxl.ErrorStatus.DetectedCorrectable = 1, SetRasCorrectable(S, 0x40, 0x40); }},
         ""},
        {"CXL correctable takes the PCIe class's place",
         true,
         {[](auto& S) {
             S.Cxl.ErrorStatus.DetectedCorrectable = S.Pcie.ErrorStatus.DetectedCorrectable = 1;
             SetRasCorrectable(S, 0x43, 0x40);
             SetAerCorrectable(S, 0x4000, 0);
             S.Pcie.ErrorStatus.DetectedFatal = 1;
             SetAer(S, {0x00040000, 0, 0x00040000});
         }},
         " uncorrected pcie all fatal cxl cxl-all cxl-correctable"},
    };
    for (const Case& Test : Cases) {
        SCOPED_TRACE(Test.Name);
        StormMachine Machine;
        const std::vector<std::string> After = RunErrors(Machine, Test.Errors, Test.IsCxlRecord);
        EXPECT_EQ(After[8], "") << "the ninth";
        EXPECT_EQ(After[9], Test.MarksOfTenth);
    }
}

TEST(PciStorm, OneMoreOfADisjointErrorStartsItsOwnCount) {
    StormMachine Machine;
    const std::vector<Make> Corrected{
        [](auto& S) { S.Pcie.ErrorStatus.DetectedCorrectable = 1, SetAerCorrectable(S, 0x01, 0); }};
    EXPECT_EQ(RunErrors(Machine, Corrected, false)[9], " pcie all correctable");
    // All within the same ten seconds: nine of the other bit are no storm.
    const std::vector<Make> Other{
        [](auto& S) { S.Pcie.ErrorStatus.DetectedCorrectable = 1, SetAerCorrectable(S, 0x80, 0); }};
    EXPECT_EQ(RunErrors(Machine, Other, false, 9)[8], "");
}

TEST(PciStorm, FunctionsOfADeviceAreCountedTogetherUnlessOneStandsForItself) {
    struct Case {
        const char* Name;
        void (*Shape)(PCI_DEVICE_STATE&);
        const char* MarksOfTenth;  // of ten errors that two functions have by turns
    };
    for (const Case& Test : {
             Case{"endpoint", [](auto&) {}, " pcie all correctable"},
             Case{"the header says one function", [](auto& S) { S.PciHeader[0x0E] = 0; }, ""},
             Case{"root port", [](auto& S) { S.Pcie.Characteristics.IsRootPort = 1; }, ""},
             Case{"event collector", [](auto& S) { S.Pcie.Characteristics.IsRootComplexEventCollector = 1; }, ""},
             Case{"integrated endpoint", [](auto& S) { S.Pcie.Characteristics.IsRootComplexIntegratedEndpoint = 1; },
                  ""},
             Case{"switch upstream port", [](auto& S) { S.Pcie.Characteristics.IsSwitchUpstreamPort = 1; }, ""},
             Case{"switch downstream port", [](auto& S) { S.Pcie.Characteristics.IsSwitchDownstreamPort = 1; }, ""},
             Case{"PCIe-to-PCI bridge", [](auto& S) { S.Pcie.IsPcieToPciBridge = 1; }, ""},
             Case{"role-based reporting is no port type",
                  [](auto& S) { S.Pcie.Characteristics.IsRoleBasedErrorReporting = 1; }, " pcie all correctable"},
         }) {
        SCOPED_TRACE(Test.Name);
        StormMachine Machine;
        for (unsigned Number = 0; Number < 10; Number++) {
            PCI_DEVICE_STATE State = EndpointState(BUS, 2, Number % 2);
            State.Pcie.ErrorStatus.DetectedCorrectable = 1;
            SetAerCorrectable(State, 1, 0);
            Test.Shape(State);
            Machine.Capture({&State});
            Machine.IsStorm(PcieStormRecord(BUS, 2, Number % 2), 0);
        }
        EXPECT_EQ(Marks(Machine.Captured()), Test.MarksOfTenth);
        EXPECT_EQ(Machine.Traced("Override to scan for single function only"), *Test.MarksOfTenth == 0);
        // Five of one function are there; five more of it alone make ten in either scope.
        for (unsigned Number = 0; Number < 5; Number++) {
            PCI_DEVICE_STATE State = EndpointState(BUS, 2, 1);
            State.Pcie.ErrorStatus.DetectedCorrectable = 1;
            SetAerCorrectable(State, 1, 0);
            Test.Shape(State);
            Machine.Capture({&State});
            EXPECT_EQ(Machine.IsStorm(PcieStormRecord(BUS, 2, 1), 0), *Test.MarksOfTenth != 0 || Number == 4);
        }
        EXPECT_EQ(Machine.Captured().Pcie.SmiStorm.AllFunctions, *Test.MarksOfTenth != 0);
    }
}

TEST(PciStorm, OtherDevicesAndOtherKindsOfRecordsAreNotCounted) {
    StormMachine Machine;
    PCI_DEVICE_STATE State = EndpointState(BUS), Neighbour = EndpointState(BUS, 1), Far = EndpointState(BUS + 1);
    for (PCI_DEVICE_STATE* Each : {&State, &Neighbour, &Far}) {
        Each->Pcie.ErrorStatus.DetectedCorrectable = Each->Cxl.ErrorStatus.DetectedCorrectable = 1;
        SetAerCorrectable(*Each, 1, 0);
    }
    for (unsigned Number = 0; Number < 9; Number++) {
        Machine.Capture({&State, &Neighbour, &Far});
        EXPECT_FALSE(Machine.IsStorm(PcieStormRecord(BUS), 0));
        EXPECT_FALSE(Machine.IsStorm(PcieStormRecord(BUS, 1), 0));
        EXPECT_FALSE(Machine.IsStorm(PcieStormRecord(BUS + 1), 0));
        EXPECT_FALSE(Machine.IsStorm(CxlProtocolStormRecord(BUS), 0));
        EXPECT_FALSE(Machine.IsStorm(BankRecord(0, 5, 0), 0));
    }
    EXPECT_TRUE(Machine.IsStorm(PcieStormRecord(BUS), 9));
    EXPECT_EQ(Marks(Machine.Captured()), " pcie all correctable");
}

TEST(PciStorm, AFunctionThatWasNotCapturedEndsTheCheckWithItsError) {
    StormMachine Machine;
    const PCI_DEVICE_STATE State = EndpointState(BUS);
    Machine.Capture({&State});
    PcieStormRecord Elsewhere(BUS, 0, 1);
    CxlProtocolStormRecord Cxl(BUS + 1);
    CxlComponentStormRecord Component(BUS + 1, 0);
    for (TestRecord* Record : {static_cast<TestRecord*>(&Elsewhere), static_cast<TestRecord*>(&Cxl),
                               static_cast<TestRecord*>(&Component)}) {
        BOOLEAN Storm = 0xEE;
        EXPECT_EQ(Machine.Check(*Record, 0, &Storm), EFI_NOT_FOUND);
        EXPECT_EQ(Storm, FALSE);
    }
    EXPECT_TRUE(
        Machine.Traced("VornElogSmmCheckSmiStorm: ERROR Not Found unable to retrieve PCIe device state ptr for "
                       "SBDF 0000:41:00.1, aborting..."));
    EXPECT_EQ(Machine.Entries(), 0u);
}

TEST(PciStorm, PciComponentRecordsAreAlikeBySeverity) {
    StormMachine Machine;
    const PCI_DEVICE_STATE State = EndpointState(BUS);
    Machine.Capture({&State});
    for (unsigned Number = 0; Number < 9; Number++) {
        EXPECT_FALSE(Machine.IsStorm(PciComponentStormRecord(BUS, 0, 0, 1), 0));
        EXPECT_FALSE(Machine.IsStorm(PciComponentStormRecord(BUS, 0, 0, 2), 0));
    }
    EXPECT_EQ(Marks(Machine.Captured()), "");
    // Function 1 counts as well, for a device with several functions.
    const PCI_DEVICE_STATE Second = EndpointState(BUS, 0, 1);
    Machine.Capture({&Second});
    EXPECT_TRUE(Machine.IsStorm(PciComponentStormRecord(BUS, 0, 1, 1), 9));
    EXPECT_EQ(Marks(Machine.Captured()), " legacy");
}

TEST(PciStorm, ComponentEventsAreCountedBySeverity) {
    const struct {
        UINT8 Severity;
        const char* Marks;
    } Cases[] = {{0, " component"},
                 {1, " component"},
                 {2, " component-uncorrected component"},
                 {3, " component-uncorrected component"}};
    for (const auto& Test : Cases) {
        SCOPED_TRACE(Test.Severity + 0u);
        StormMachine Machine;
        PCI_DEVICE_STATE State = EndpointState(BUS);
        State.Cxl.IsCxl = TRUE;
        Machine.Capture({&State});
        for (unsigned Number = 0; Number < 9; Number++) {
            EXPECT_FALSE(Machine.IsStorm(CxlComponentStormRecord(BUS, Test.Severity), Number));
            EXPECT_FALSE(Machine.IsStorm(CxlComponentStormRecord(BUS, (Test.Severity + 1) % 4), Number));
        }
        EXPECT_EQ(Marks(Machine.Captured()), "");
        EXPECT_TRUE(Machine.IsStorm(CxlComponentStormRecord(BUS, Test.Severity), 9));
        EXPECT_EQ(Marks(Machine.Captured()), Test.Marks);
        EXPECT_EQ(Machine.Captured().Cxl.SmiStorm.ComponentSeverities, 1 << Test.Severity);
    }
}

TEST(PciStorm, CountsRefuseWhatTheyDoNotCount) {
    StormMachine Machine;
    PCI_DEVICE_STATE State = EndpointState(BUS);
    Machine.Capture({&State});
    const EFI_GUID Dram = CxlComponentStormRecord::DramEvent;
    const auto Pci = [](const EFI_GUID* Type) {
        return VornElogSmmCheckPciSmiStormPostProcess(Type, 0, BUS, 0, 0, 2) != FALSE;
    };
    const auto Component = [](const EFI_GUID* Type, UINT8 Severity) {
        return VornElogSmmCheckCxlComponentSmiStormPostProcess(Type, 0, BUS, 0, 0, Severity) != FALSE;
    };
    EXPECT_FALSE(Pci(&gCperSectionPcieGuid)) << "an empty queue";
    for (unsigned Number = 0; Number < 10; Number++) {
        EXPECT_FALSE(Machine.IsStorm(CxlComponentStormRecord(BUS, 0), 0)) << "no CXL function";
    }
    EXPECT_TRUE(
        Machine.Traced("VornElogSmmCheckCxlComponentSmiStormPostProcess: ERROR current device does not support "
                       "CXL @ SBDF 0000:41:00.0, aborting..."));
    EXPECT_FALSE(Pci(nullptr));
    EXPECT_FALSE(Pci(&Dram));
    EXPECT_TRUE(
        Machine.Traced("VornElogSmmCheckPciSmiStormPostProcess: ERROR pErrorTypeGuid is a CXL Component event "
                       "record type, aborting..."));
    EXPECT_FALSE(Pci(&gCperSectionPlatformMemoryGuid));
    Machine.Captured().Cxl.IsCxl = TRUE;
    EXPECT_TRUE(Component(&Dram, 0));
    EXPECT_FALSE(Component(&Dram, 4));
    EXPECT_FALSE(Component(nullptr, 0));
    EXPECT_FALSE(Component(&gCperSectionCxlProtocolGuid, 0));
}

}  // namespace
