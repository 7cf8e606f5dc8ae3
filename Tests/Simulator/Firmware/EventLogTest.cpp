// The store of event bodies and the BMC's log behind it.
#include "Simulator/Firmware/EventLog.h"

#include <gtest/gtest.h>

#include "Simulator/Firmware/SelMessage.h"
#include "Simulator/Firmware/ServiceTables.h"
#include "Tests/Support/BootedSimulation.h"

namespace Simulator {
namespace {

constexpr ELOG_SEL_DATA MACHINE_CHECK{0x07, 0x0D, 0x07, 0xA6, 0x01, 0x05};

TEST(EventLog, TheBmcKeepsStandardRecords) {
    Simulation Run{Configuration{}};
    Run.Wait(3'500'000);
    EXPECT_EQ(ElogIpmiTable()->LogBmcData(&MACHINE_CHECK), EFI_SUCCESS);
    EXPECT_EQ(ElogIpmiTable()->LogBmcData(&MACHINE_CHECK), EFI_SUCCESS);
    EXPECT_TRUE(Run.SelRaw().empty()) << "stored, not sent";
    UINT8 Count = 0;
    ELOG_SEL_DATA* Records = nullptr;
    ASSERT_EQ(SelRecordTable()->GetSelRecords(SelRecordTable(), &Count, &Records), EFI_SUCCESS);
    ASSERT_EQ(Count, 2);
    EXPECT_EQ(SelSupportTable()->SendConsolidatedOemCommand(SelSupportTable(), Count, Records), EFI_SUCCESS);
    // Record ID, type 2, 2026-11-24 12:00:03 UTC = 0x6B057C43 seconds, generator 0x0020, revision 4, the body.
    const std::vector<std::uint8_t> Raw = Run.SelRaw();
    ASSERT_EQ(Raw.size(), 32u);
    EXPECT_TRUE(BytesAre(Raw, "01 00 02 43 7C 05 6B 20 00 04 07 0D 07 A6 01 05"));
    EXPECT_TRUE(BytesAre(Raw, "02 00 02 43 7C 05 6B 20 00 04 07 0D 07 A6 01 05", 16));
}

// The count is a byte: what does not fit stays for the next transmission.
TEST(EventLog, HandsOutTheOldestBodiesAndDropsOnlyThose) {
    Simulation Run{Configuration{}};
    for (unsigned Index = 0; Index < 300; Index++) {
        const ELOG_SEL_DATA Body{0xC1, 0x28, 0x7E, static_cast<UINT8>(Index), static_cast<UINT8>(Index >> 8), 0};
        ElogIpmiTable()->LogBmcData(&Body);
    }
    UINT8 Count = 0;
    ELOG_SEL_DATA* Records = nullptr;
    SelRecordTable()->GetSelRecords(SelRecordTable(), &Count, &Records);
    EXPECT_EQ(Count, 255);
    EXPECT_EQ(Records[0].EventData1, 0);
    SelRecordTable()->ClearSelRecords(SelRecordTable());
    SelRecordTable()->GetSelRecords(SelRecordTable(), &Count, &Records);
    EXPECT_EQ(Count, 45);
    EXPECT_EQ(Records[0].EventData1, 255);
    SelRecordTable()->ClearSelRecords(SelRecordTable());
    SelRecordTable()->GetSelRecords(SelRecordTable(), &Count, &Records);
    EXPECT_EQ(Count, 0);
    EXPECT_NE(Records, nullptr) << "an empty log is not a missing one";
}

}  // namespace
}  // namespace Simulator
