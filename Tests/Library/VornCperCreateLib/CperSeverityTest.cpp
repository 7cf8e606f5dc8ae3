#include "Library/VornCperCreateLib/CperSeverity.h"

#include <gtest/gtest.h>

#include <string>

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
}

}  // namespace
