// Storms of PCIe, CXL and PCI errors: which errors are alike, which functions are counted together, what is marked.
#include <gtest/gtest.h>

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
void SetRas(PCI_DEVICE_STATE& State, const Uncorrectable& Registers, UINT32 Correctable, UINT32 CorrectableMask) {
    State.Cxl.IsCxl = State.Cxl.RasCapabilityValid = TRUE;
    UINT32* const Ras = State.Cxl.RasCapability;
    const UINT32 Words[] = {Registers.Status, Registers.Mask, Registers.Severity, Correctable, CorrectableMask};
    std::copy(std::begin(Words), std::end(Words), Ras);
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

enum Class : unsigned {
    FATAL = 1,
    NON_FATAL = 2,
    CORRECTABLE = 4,
    RP_PIO = 8,
    SERR = 16,
    PERR = 32,
    CXL_FATAL = 64,
    CXL_NON_FATAL = 128,
    CXL_CORRECTABLE = 256
};
struct Error {
    unsigned Detected;  // classes
    // Of AER, or of the RAS capability for CXL classes.
    Uncorrectable Registers{};
    UINT32 CorrectableStatus = 0, CorrectableMask = 0;
    UINT16 Command = 0;

    void Show(PCI_DEVICE_STATE& State) const {
        PCIE_ERROR_STATUS& Pcie = State.Pcie.ErrorStatus;
        CXL_ERROR_STATUS& Cxl = State.Cxl.ErrorStatus;
        const std::pair<UINT8&, unsigned> Flags[] = {{Pcie.DetectedFatal, FATAL},
                                                     {Pcie.DetectedNonFatal, NON_FATAL},
                                                     {Pcie.DetectedCorrectable, CORRECTABLE},
                                                     {Pcie.DetectedRpPioFatal, RP_PIO},
                                                     {State.LegacyPci.DetectedSerr, SERR},
                                                     {State.LegacyPci.DetectedPerr, PERR},
                                                     {Cxl.DetectedFatal, CXL_FATAL},
                                                     {Cxl.DetectedNonFatal, CXL_NON_FATAL},
                                                     {Cxl.DetectedCorrectable, CXL_CORRECTABLE}};
        for (const auto& [Flag, Bit] : Flags) {
            Flag |= (Detected & Bit) != 0 ? TRUE : FALSE;
        }
        if (Detected >= CXL_FATAL) {
            SetRas(State, Registers, CorrectableStatus, CorrectableMask);
        } else {
            SetAer(State, Registers);
            SetAerCorrectable(State, CorrectableStatus, CorrectableMask);
        }
        State.PciHeader[4] = static_cast<UINT8>(Command);
        State.PciHeader[5] = static_cast<UINT8>(Command >> 8);
    }
};

// Ten errors in ten seconds, each in an SMI of its own: Errors by turns, or all of them at once. Returns the marks
// after each.
std::vector<std::string> RunErrors(StormMachine& Machine, const std::vector<Error>& Errors, bool AtOnce = false,
                                   unsigned Times = 10) {
    std::vector<std::string> After;
    for (unsigned Number = 0; Number < Times; Number++) {
        PCI_DEVICE_STATE State = EndpointState(BUS);
        for (std::size_t At = 0; At < Errors.size(); At++) {
            if (AtOnce || At == Number % Errors.size()) {
                Errors[At].Show(State);
            }
        }
        Machine.Capture({&State});
        const bool Storm = State.Cxl.IsCxl != FALSE && !AtOnce ? Machine.IsStorm(CxlProtocolStormRecord(BUS), Number)
                                                               : Machine.IsStorm(PcieStormRecord(BUS), Number);
        After.push_back(Marks(Machine.Captured()));
        EXPECT_EQ(Storm, !After.back().empty()) << "error " << Number + 1;
    }
    return After;
}

TEST(PciStorm, TenErrorsThatShareABitOfTheirClassAreOne) {
    const struct {
        const char* Name;
        std::vector<Error> Errors;  // by turns
        const char* MarksOfTenth;
    } Cases[] = {
        {"correctable", {{CORRECTABLE, {}, 0x41, 0x2000}}, " pcie all correctable"},
        {"correctable, one bit shared", {{CORRECTABLE, {}, 0x41}, {CORRECTABLE, {}, 0xC0}}, " pcie all correctable"},
        {"correctable, disjoint bits", {{CORRECTABLE, {}, 0x01}, {CORRECTABLE, {}, 0x40}}, ""},
        {"the shared bit is masked", {{CORRECTABLE, {}, 0x41, 0x40}, {CORRECTABLE, {}, 0xC0}}, ""},
        {"bits without the class's detection", {{0, {}, 0x41}}, ""},
        {"fatal", {{FATAL, {0x00040010, 0, 0x00040000}}}, " uncorrected pcie all fatal"},
        {"the shared bit is fatal in one of them only",
         {{FATAL, {0x00040010, 0, 0x00040000}}, {FATAL, {0x00040010, 0, 0x00000010}}},
         ""},
        {"non-fatal", {{NON_FATAL, {0x00104000, 0x00100000, 0}}}, " uncorrected pcie all non-fatal"},
        {"all three at once",
         {{FATAL | NON_FATAL | CORRECTABLE, {0x00044000, 0, 0x00040000}, 0x1000}},
         " uncorrected pcie all fatal non-fatal correctable"},
        {"two classes by turns", {{FATAL, {0x40000, 0, 0x40000}}, {NON_FATAL, {0x4000, 0, 0x40000}}}, ""},
        {"RP PIO", {{RP_PIO}}, " uncorrected pcie all rp-pio"},
        {"system errors, enabled", {{SERR, {}, 0, 0, 0x0100}}, " legacy"},
        {"system errors, not enabled", {{SERR}}, ""},
        {"parity errors, answered", {{PERR, {}, 0, 0, 0x0040}}, " legacy"},
        {"system and parity errors by turns", {{SERR, {}, 0, 0, 0x0140}, {PERR, {}, 0, 0, 0x0140}}, ""},
        {"CXL fatal", {{CXL_FATAL, {0x4001, 0, 0x4000}}}, " cxl-uncorrected cxl cxl-all cxl-fatal"},
        {"CXL non-fatal", {{CXL_NON_FATAL, {0x4001, 0, 0x4000}}}, " cxl-uncorrected cxl cxl-all cxl-non-fatal"},
        {"CXL, disjoint bits", {{CXL_FATAL, {0x4000, 0, 0x4001}}, {CXL_FATAL, {0x0001, 0, 0x4001}}}, ""},
        {"CXL correctable, masked", {{CXL_CORRECTABLE, {}, 0x40, 0x40}}, ""},
    };
    for (const auto& Test : Cases) {
        SCOPED_TRACE(Test.Name);
        StormMachine Machine;
        const std::vector<std::string> After = RunErrors(Machine, Test.Errors);
        EXPECT_EQ(After[8], "") << "the ninth";
        EXPECT_EQ(After[9], Test.MarksOfTenth);
    }
    // A function that has both: the CXL class takes the place of the PCIe class of its severity.
    StormMachine Machine;
    EXPECT_EQ(RunErrors(Machine, {{FATAL | CORRECTABLE, {0x40000, 0, 0x40000}, 0x4000}, {CXL_CORRECTABLE, {}, 3, 1}},
                        true)[9],
              " uncorrected pcie all fatal cxl cxl-all cxl-correctable");
}

TEST(PciStorm, OneMoreOfADisjointErrorStartsItsOwnCount) {
    StormMachine Machine;
    EXPECT_EQ(RunErrors(Machine, {{CORRECTABLE, {}, 0x01}})[9], " pcie all correctable");
    // All within the same ten seconds: nine of the other bit are no storm.
    EXPECT_EQ(RunErrors(Machine, {{CORRECTABLE, {}, 0x80}}, false, 9)[8], "");
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

}  // namespace
