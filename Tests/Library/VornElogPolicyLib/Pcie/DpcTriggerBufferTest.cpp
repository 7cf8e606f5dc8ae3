// The memory shared with the ACPI code, byte for byte, and the counting of a port's errors.
#include "Library/VornElogPolicyLib/Pcie/DpcTriggerBuffer.h"

#include <gtest/gtest.h>

#include "Include/PcieUceCounter.h"
#include "Library/VornElogPolicyLib/Pcie/DpcEvent.h"
#include "Library/VornElogPolicyLib/Pcie/PcieUceCount.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/DpcMachine.h"

namespace {

constexpr const char* EMPTY = "00 00 00 00 00 00 00 00 00";

// Port 3:21:03.1 below root port 3:20:01.2.
UINT8 Do(UINT8 Operation) {
    return GetSetDpcTriggerBuffer(3, 0x21, 3, 1, 0x20, 1, 2, Operation);
}

TEST(DpcTriggerBuffer, AnEntryAtEachStageOfARecovery) {
    struct Step {
        const char* About;
        int OstStatus, EdrStatus;  // what the ACPI code wrote before; -1: nothing
        UINT8 Operation, Index;
        const char* Entry;
        UINT32 UceCount;
    };
    DpcMachine Machine;
    std::memset(Machine.Shared().Producer0, 0xEE, sizeof(Machine.Shared().Producer0));
    std::memset(Machine.Shared().Producer5F1, 0xEE, sizeof(Machine.Shared().Producer5F1));
    IncrementPcieUceCount(3, 0x21, 3, 1);
    for (const Step& Test : {
             Step{"unknown port", -1, -1, 0, 0xFF, EMPTY, 1},
             Step{"nothing to remove", -1, -1, REMOVE_BDF, 0xFF, EMPTY, 1},
             Step{"software DPC of an unknown port", -1, -1, SOFTWARE_DPC, 0xFF, EMPTY, 1},
             Step{"added", -1, -1, ADD_BDF, 0, "01 19 21 03 0A 20 03 00 02", 1},
             Step{"added again", -1, -1, ADD_BDF, 0, "01 19 21 03 0A 20 03 00 02", 1},
             Step{"OS not told", -1, -1, REMOVE_BDF, 0, "01 19 21 03 0A 20 03 00 02", 1},
             Step{"OS told", -1, 0x03, 0, 0, "01 19 21 03 0A 20 03 00 03", 1},
             Step{"recovered, next event", 0x80, -1, ADD_BDF, 0, "01 19 21 03 0A 20 03 80 03", 1},
             Step{"given up, look-up", 0x81, -1, 0, 0, "01 19 21 03 0A 20 03 81 03", 1},
             Step{"given up, OS not told, removal", 0x81, 0x04, REMOVE_BDF, 0, "01 19 21 03 0A 20 03 81 04", 1},
             Step{"given up, error", 0x81, 0x87, ADD_BDF, 0, "01 19 21 03 0A 20 03 00 02", 0},
             Step{"given up, the firmware's trigger", 0x81, 0x85, ADD_BDF | SOFTWARE_DPC, 0,
                  "01 19 21 03 0A 20 03 81 05", 0},
             Step{"given up, the user's trigger", 0x81, 0x05, ADD_BDF | SOFTWARE_DPC, 0, "01 19 21 03 0A 20 03 00 04",
                  0},
             Step{"the same without an addition", 0x81, 0x7F, SOFTWARE_DPC, 0, "01 19 21 03 0A 20 03 00 7E", 0},
             Step{"other outcome", 0x82, 0x03, ADD_BDF | SOFTWARE_DPC, 0, "01 19 21 03 0A 20 03 82 03", 0},
             Step{"removed", -1, -1, REMOVE_BDF, 0xFF, EMPTY, 0},
             Step{"software DPC added", -1, -1, ADD_BDF | SOFTWARE_DPC, 0, "01 19 21 03 0A 20 03 00 82", 0},
         }) {
        DPC_TRIGGER_ENTRY& Entry = Machine.Shared().DPC_Triggered[0];
        if (Test.OstStatus >= 0) {
            Entry.OstStatus = static_cast<UINT8>(Test.OstStatus);
        }
        if (Test.EdrStatus >= 0) {
            Entry.EDRStatus = static_cast<UINT8>(Test.EdrStatus);
        }
        EXPECT_EQ(Do(Test.Operation), Test.Index) << Test.About;
        EXPECT_TRUE(Machine.EntryIs(0, Test.Entry)) << Test.About;
        EXPECT_EQ(PcieUceCounter(Policy.pPcieUceCounterList->ForwardLink)->UceCount, Test.UceCount) << Test.About;
    }
    for (UINT8 Byte : Machine.Shared().Producer0) {
        EXPECT_EQ(Byte, 0xEE);
    }
    EXPECT_EQ(Machine.Shared().Producer5F1[0], 0xEE);
    EXPECT_TRUE(Machine.EntryIs(1, EMPTY));
    EXPECT_TRUE(
        Machine.Traced("GetSetDpcTriggerBuffer: Remove SBDF 0003:21:03.1 from DPC_Triggered buffer. Flag 1, OST "
                       "Status 0x82, EdrSent "
                       "1 EdrCount 1\n"));
    EXPECT_TRUE(Machine.Traced("Clear SBDF 0003:21:03.1 OST, EDR status, and error count\n"));
}

TEST(DpcTriggerBuffer, The33rdPortFindsNoEntryUntilAnotherLeaves) {
    DpcMachine Machine;
    for (UINT8 Port = 0; Port < 32; Port++) {
        EXPECT_EQ(GetSetDpcTriggerBuffer(0, 0x30, Port, 0, 0x20, 1, 0, ADD_BDF), Port);
    }
    const std::vector<UINT8> Before(reinterpret_cast<UINT8*>(&Machine.Shared()),
                                    reinterpret_cast<UINT8*>(&Machine.Shared() + 1));
    EXPECT_EQ(GetSetDpcTriggerBuffer(0, 0x31, 0, 0, 0x20, 1, 0, ADD_BDF), 0xFF);
    EXPECT_EQ(std::memcmp(Before.data(), &Machine.Shared(), Before.size()), 0);
    // The same place on another segment is another port.
    EXPECT_EQ(GetSetDpcTriggerBuffer(1, 0x30, 5, 0, 0x20, 1, 0, DpcTriggerLookUp), 0xFF);
    EXPECT_EQ(GetSetDpcTriggerBuffer(0, 0x30, 31, 0, 0x20, 1, 0, DpcTriggerLookUp), 31);

    Machine.Shared().DPC_Triggered[7].EDRStatus = 0x03;
    EXPECT_EQ(GetSetDpcTriggerBuffer(0, 0x30, 7, 0, 0x20, 1, 0, REMOVE_BDF), 0xFF);
    EXPECT_TRUE(Machine.EntryIs(7, EMPTY));
    EXPECT_EQ(GetSetDpcTriggerBuffer(0, 0x31, 0, 0, 0x20, 1, 0, ADD_BDF), 7);
    EXPECT_TRUE(Machine.EntryIs(7, "01 00 31 00 08 20 00 00 02"));
    EXPECT_TRUE(Machine.EntryIs(31, "01 F8 30 00 08 20 00 00 02"));

    Policy.pKyrRasAcpiSmmData = nullptr;
    EXPECT_EQ(GetSetDpcTriggerBuffer(0, 0x31, 0, 0, 0x20, 1, 0, ADD_BDF), 0xFF);
    EXPECT_EQ(DpcOstStatus(0, 0x31, 0, 0), 0);
    EXPECT_EQ(IsDpcAwareOs(0, 0x31, 0, 0), FALSE);
}

TEST(DpcAwareOs, TheTableEndsAtItsFirstEmptyEntryAndAfter256) {
    DpcMachine Machine;
    auto* Table = reinterpret_cast<UINT8*>(&Machine.Shared()) + 33;
    const auto Put = [&](unsigned Index, UINT8 Segment, UINT8 Bus, UINT8 DevFunc) {
        Table[3 * Index] = DevFunc;
        Table[3 * Index + 1] = Bus;
        Table[3 * Index + 2] = Segment;
    };
    EXPECT_EQ(IsDpcAwareOs(0, 0, 0, 0), FALSE);  // the end is no port
    Put(0, 0, 0x21, 4 << 3 | 2);
    Put(1, 1, 0x00, 0x00);  // only its segment is not zero
    Put(2, 0, 0x22, 0x00);
    Put(4, 0, 0x24, 0x08);  // behind the end
    struct Case {
        UINT8 Seg, Bus, Dev, Func;
        bool IsAware;
    };
    for (const Case& Test : {Case{0, 0x21, 4, 2, true}, Case{1, 0x21, 4, 2, false}, Case{0, 0x21, 4, 3, false},
                             Case{0, 0x21, 5, 2, false}, Case{1, 0, 0, 0, true}, Case{0, 0x22, 0, 0, true},
                             Case{0, 0x24, 1, 0, false}}) {
        EXPECT_EQ(IsDpcAwareOs(Test.Seg, Test.Bus, Test.Dev, Test.Func), Test.IsAware ? TRUE : FALSE) << +Test.Bus;
    }
    for (unsigned Index = 0; Index < 400; Index++) {
        Put(Index, 2, static_cast<UINT8>(Index), 0x08 + (Index > 255));
    }
    EXPECT_EQ(IsDpcAwareOs(2, 255, 1, 0), TRUE);
    EXPECT_EQ(IsDpcAwareOs(2, 0, 1, 1), FALSE);  // the 257th entry
}

TEST(PcieUceCount, PortsThatDifferInTheirSegmentShareACounter) {
    DpcMachine Machine;
    const std::uint64_t Blocks = Machine.Blocks();
    EXPECT_EQ(GetPcieUceLimitStatus(0, 0x21, 3, 1, FALSE), PcieUceUnderLimit);
    EXPECT_EQ(GetPcieUceLimitStatus(0, 0x21, 3, 1, TRUE), PcieUceUnderLimit);
    for (UINT32 Count = 1; Count <= 18; Count++) {
        EXPECT_EQ(IncrementPcieUceCount(static_cast<UINT8>(Count % 2), 0x21, 3, 1), EFI_SUCCESS);
        EXPECT_EQ(GetPcieUceLimitStatus(7, 0x21, 3, 1, FALSE), Count < 16    ? PcieUceUnderLimit
                                                               : Count == 16 ? PcieUceAtLimit
                                                                             : PcieUceOverLimit);
    }
    EXPECT_EQ(IncrementPcieUceCount(0, 0x21, 3, 2), EFI_SUCCESS);
    EXPECT_EQ(IncrementPcieUceCount(0, 0x22, 3, 1), EFI_SUCCESS);
    EXPECT_EQ(GetPcieUceLimitStatus(0, 0x22, 3, 1, FALSE), PcieUceUnderLimit);
    EXPECT_EQ(Machine.Blocks(), Blocks + 3);
    EXPECT_EQ(GetPcieUceLimitStatus(3, 0x21, 3, 1, TRUE), PcieUceUnderLimit);
    EXPECT_EQ(GetPcieUceLimitStatus(0, 0x21, 3, 1, FALSE), PcieUceUnderLimit);

    // In order of the ports' first errors: "UCEC", bus, device, function, count.
    const auto* Node = reinterpret_cast<const UINT8*>(Policy.pPcieUceCounterList->ForwardLink) - 8;
    EXPECT_TRUE(BytesAre(std::vector<UINT8>(Node, Node + 4), "55 43 45 43"));
    EXPECT_TRUE(BytesAre(std::vector<UINT8>(Node + 24, Node + 32), "21 03 01 00 00 00 00 00"));
}

}  // namespace
