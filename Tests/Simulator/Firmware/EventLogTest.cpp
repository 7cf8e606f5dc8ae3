// The store of event bodies.
#include "Simulator/Firmware/EventLog.h"

#include <gtest/gtest.h>

#include "Simulator/Firmware/ServiceTables.h"
#include "Simulator/Simulation.h"

namespace Simulator {
namespace {

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
