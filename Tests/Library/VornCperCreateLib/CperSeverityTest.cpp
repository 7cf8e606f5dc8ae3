#include "Library/VornCperCreateLib/CperSeverity.h"

#include <gtest/gtest.h>

#include <string>

#include "Library/VornCperCreateLib/CperRecord.h"
#include "Simulator/Simulation.h"

namespace {

class CperSeverity : public testing::Test {
 protected:
    Simulator::Simulation Machine{Simulator::Configuration{}};
};

TEST_F(CperSeverity, FoldsByTheTableAndNotByMaximum) {
    struct {
        UINT16 Current;
        UINT16 Folded[4];  // by new severity
    } Rows[] = {
        {0xFFFF, {0, 1, 2, 3}}, {0, {0, 0, 2, 3}}, {1, {1, 1, 1, 1}},
        {2, {2, 2, 2, 3}},      {3, {3, 3, 3, 3}}, {7, {7, 7, 7, 7}},
    };
    for (const auto& Row : Rows) {
        for (UINT16 New = 0; New < 4; New++) {
            UINT16 Severity = Row.Current;
            EXPECT_EQ(EFI_SUCCESS, VornCperGetHighestCperSeverity(DEBUG_VERBOSE, New, &Severity));
            EXPECT_EQ(Row.Folded[New], Severity) << Row.Current << " and " << New;
        }
    }
    for (const UINT16 New : {UINT16{4}, UINT16{0xFFFF}}) {
        UINT16 Severity = CperSeverityCorrected;
        EXPECT_EQ(EFI_INVALID_PARAMETER, VornCperGetHighestCperSeverity(DEBUG_VERBOSE, New, &Severity));
        EXPECT_EQ(CperSeverityCorrected, Severity);
    }
    EXPECT_EQ(EFI_INVALID_PARAMETER, VornCperGetHighestCperSeverity(DEBUG_VERBOSE, 0, nullptr));
}

TEST_F(CperSeverity, OfAMachineCheckFollowsItsClass) {
    constexpr UINT64 UC = 1ull << 61, PCC = 1ull << 57, TCC = 1ull << 55, TRANSPARENT = 1ull << 52,
                     DEFERRED = 1ull << 44;
    struct {
        UINT64 McaStatus;
        UINT32 Severity;
    } Cases[] = {{PCC, 1},      {PCC | UC | TCC | DEFERRED, 1}, {UC | TCC, 0}, {UC | TRANSPARENT, 0},
                 {DEFERRED, 0}, {DEFERRED | TRANSPARENT, 0},    {0, 2},        {TRANSPARENT, 2}};
    for (const auto& Case : Cases) {
        EXPECT_EQ(Case.Severity, VornCperGetMachineCheckSeverity(Case.McaStatus)) << std::hex << Case.McaStatus;
    }
}

TEST_F(CperSeverity, OfErrorClassesSplitsHeaderAndDescriptor) {
    struct {
        UINT32 Type;
        EFI_STATUS Status;
        UINT16 Header, Descriptor;
        std::string Text;
    } Cases[] = {
        {0, EFI_SUCCESS, 2, 2, "CXL Protocol Correctable"},
        {1, EFI_SUCCESS, 0, 1, "CXL Protocol Uncorrectable Non-Fatal"},
        {2, EFI_SUCCESS, 0, 1, "CXL Protocol Uncorrectable Fatal"},
        {3, EFI_SUCCESS, 2, 2, "PCIe Correctable"},
        {4, EFI_SUCCESS, 0, 1, "PCIe Uncorrectable Non-Fatal"},
        {5, EFI_SUCCESS, 0, 1, "PCIe Uncorrectable Fatal"},
        {6, EFI_INVALID_PARAMETER, 9, 9, "Unrecognized Type"},
    };
    for (const auto& Case : Cases) {
        UINT16 Header = 9, Descriptor = 9;
        EXPECT_EQ(Case.Status, VornCperGetErrorSeverities(DEBUG_VERBOSE, Case.Type, &Header, &Descriptor));
        EXPECT_EQ(Case.Header, Header) << Case.Type;
        EXPECT_EQ(Case.Descriptor, Descriptor) << Case.Type;
        EXPECT_EQ(Case.Text, ConvertIoErrorTypeToString(Case.Type));
    }
    UINT16 Severity = 9;
    EXPECT_EQ(EFI_INVALID_PARAMETER, VornCperGetErrorSeverities(DEBUG_VERBOSE, 0, nullptr, &Severity));
    EXPECT_EQ(EFI_INVALID_PARAMETER, VornCperGetErrorSeverities(DEBUG_VERBOSE, 0, &Severity, nullptr));
    // A class that does not exist leaves the running values, and is no failure of the fold.
    UINT16 Header = 2, Descriptor = 2;
    EXPECT_EQ(EFI_SUCCESS, VornCperGetCperSeverityPcieOrCxlError(DEBUG_VERBOSE, 6, &Header, &Descriptor));
    EXPECT_EQ(2, Header);
    EXPECT_EQ(2, Descriptor);
}

TEST_F(CperSeverity, OfADeviceFoldsWhatIsToBeHandled) {
    struct {
        const char* Handled;  // letters: C N F of CXL, c n f of PCIe
        bool IsCxl;
        UINT16 Header, Descriptor;
    } Cases[] = {
        {"", false, 0xFFFF, 0xFFFF}, {"c", false, 2, 2},  {"n", false, 0, 1},
        {"cf", false, 2, 2},         {"nf", false, 0, 1}, {"CF", false, 0xFFFF, 0xFFFF},
        {"CF", true, 2, 2},          {"NF", true, 0, 1},  {"Nc", true, 2, 1},
        {"Cn", true, 2, 2},
    };
    for (const auto& Case : Cases) {
        PCI_DEVICE_STATE State{};
        const std::string Handled = Case.Handled;
        const auto Has = [&](char Letter) { return Handled.find(Letter) != std::string::npos ? TRUE : FALSE; };
        State.Cxl.IsCxl = Case.IsCxl;
        State.Cxl.ErrorStatus.HandleCorrectable = Has('C');
        State.Cxl.ErrorStatus.HandleNonFatal = Has('N');
        State.Cxl.ErrorStatus.HandleFatal = Has('F');
        State.Pcie.ErrorStatus.HandleCorrectable = Has('c');
        State.Pcie.ErrorStatus.HandleNonFatal = Has('n');
        State.Pcie.ErrorStatus.HandleFatal = Has('f');
        State.Pcie.ErrorStatus.DetectedFatal = TRUE;  // detected alone does not count
        UINT16 Header = 9, Descriptor = 9;
        EXPECT_EQ(EFI_SUCCESS,
                  VornCperGetHighestCperSeverityAllPcieOrCxlErrors(DEBUG_VERBOSE, &State, &Header, &Descriptor));
        EXPECT_EQ(Case.Header, Header) << Case.Handled;
        EXPECT_EQ(Case.Descriptor, Descriptor) << Case.Handled;
    }
    UINT16 Severity = 9;
    EXPECT_EQ(EFI_INVALID_PARAMETER,
              VornCperGetHighestCperSeverityAllPcieOrCxlErrors(DEBUG_VERBOSE, nullptr, &Severity, &Severity));
    EXPECT_EQ(9, Severity);
}

TEST_F(CperSeverity, FlagsOfHeaderAndDescriptor) {
    struct {
        UINT32 Severity;
        BOOLEAN PreviousError, Simulated;
        UINT32 Flags;
    } Headers[] = {
        {2, FALSE, FALSE, 1}, {0, FALSE, FALSE, 0}, {1, TRUE, FALSE, 2}, {3, FALSE, TRUE, 4}, {2, TRUE, TRUE, 7}};
    for (const auto& Case : Headers) {
        UINT32 Flags = 0xFFFFFFFF;
        EXPECT_EQ(EFI_SUCCESS, VornUpdateCperHeaderFlags(Case.Severity, Case.PreviousError, Case.Simulated, &Flags));
        EXPECT_EQ(Case.Flags, Flags);
    }
    const std::pair<UINT64, UINT32> Descriptors[] = {
        {0, 0x01}, {1ull << 44, 0x21}, {1ull << 43, 0x41}, {1ull << 62, 0x81}, {~0ull, 0xE1}};
    for (const auto& [McaStatus, Expected] : Descriptors) {
        MCA_BANK_ERROR_INFO Bank{};
        Bank.McaStatus = McaStatus;
        UINT32 Flags = 0xFFFFFFFF;
        EXPECT_EQ(EFI_SUCCESS, VornUpdateCperDescriptorFlagsMachineCheck(&Bank, &Flags));
        EXPECT_EQ(Expected, Flags);
    }
    UINT32 Flags = 5;
    MCA_BANK_ERROR_INFO Bank{};
    EXPECT_EQ(EFI_INVALID_PARAMETER, VornUpdateCperHeaderFlags(2, TRUE, FALSE, nullptr));
    EXPECT_EQ(EFI_INVALID_PARAMETER, VornUpdateCperDescriptorFlagsMachineCheck(nullptr, &Flags));
    EXPECT_EQ(EFI_INVALID_PARAMETER, VornUpdateCperDescriptorFlagsMachineCheck(&Bank, nullptr));
    EXPECT_EQ(5u, Flags);
}

}  // namespace
