#include "Library/VornElogPolicyLib/Cxl/CxlProtocolError.h"

#include <gtest/gtest.h>

#include "Tests/Library/VornElogPolicyLib/Cxl/CxlMachine.h"

namespace {

TEST(CxlProtocolErrors, AreReportedByTheirWorstClass) {
    const struct {
        const char* What;
        UINT8 Fatal, NonFatal, Correctable;
        UINT8 DvsecValid, RasValid;
        std::vector<std::string> Records;
    } Cases[] = {
        {"fatal", 1, 1, 1, 1, 1, {"cxl-protocol 0x0 0x1 0x390"}},
        {"non-fatal", 0, 1, 1, 1, 1, {"cxl-protocol 0x0 0x0 0x390"}},
        {"correctable, no DVSEC", 0, 0, 1, 0, 1, {"cxl-protocol 0x2 0x2 0x354"}},
        {"no error log", 0, 0, 1, 1, 0, {"cxl-protocol 0x2 0x2 0x178"}},
        {"nothing to handle", 0, 0, 0, 1, 1, {}},
    };
    for (const auto& Case : Cases) {
        CxlMachine Machine;
        PCI_DEVICE_STATE State = Machine.Front();
        ASSERT_EQ(Machine.Capture(&State), EFI_SUCCESS);
        State.Cxl.ErrorStatus.HandleFatal = Case.Fatal;
        State.Cxl.ErrorStatus.HandleNonFatal = Case.NonFatal;
        State.Cxl.ErrorStatus.HandleCorrectable = Case.Correctable;
        State.Cxl.DvsecValid = Case.DvsecValid;
        State.Cxl.RasCapabilityValid = Case.RasValid;
        VornElogSmmHandleCxlProtocolError(&State);
        EXPECT_EQ(Machine.Records(), Case.Records) << Case.What;
    }
}

TEST(CxlProtocolErrors, AFunctionThatNoLongerAnsweredHasNone) {
    CxlMachine Machine;
    PCI_DEVICE_STATE State = Machine.Signaled();
    State.Cxl.ErrorStatus.HandleFatal = TRUE;
    State.PciHeader[PCI_STATUS] = State.PciHeader[PCI_STATUS + 1] = 0xFF;
    VornElogSmmHandleCxlProtocolError(&State);
    VornElogSmmHandleCxlProtocolError(nullptr);
    EXPECT_TRUE(Machine.Records().empty());
    EXPECT_TRUE(Machine.Traced("VornElogSmmHandleCxlProtocolError: PCI Status = 0xFFFF, aborting...\n"));
}

TEST(CxlProtocolErrors, AnEmptyPoolLeavesNothingBehind) {
    for (unsigned Skip = 0; Skip < 2; Skip++) {
        CxlMachine Machine;
        PCI_DEVICE_STATE State = Machine.Signaled();
        State.Cxl.ErrorStatus.HandleFatal = TRUE;
        const std::uint64_t Blocks = Machine.Blocks();
        Machine.Fail("SmmAllocatePool", EFI_OUT_OF_RESOURCES, 1, Skip);
        VornElogSmmHandleCxlProtocolError(&State);
        EXPECT_TRUE(Machine.Records().empty()) << Skip;
        EXPECT_EQ(Machine.Blocks(), Blocks) << Skip;
        EXPECT_TRUE(Machine.Traced("Unable to allocate EfiRuntimeServicesData memory")) << Skip;
    }
}

}  // namespace
