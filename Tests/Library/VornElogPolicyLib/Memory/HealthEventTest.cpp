// Every byte of the health events.
#include "Library/VornElogPolicyLib/Memory/HealthEvent.h"

#include <gtest/gtest.h>

#include "Tests/Library/VornElogPolicyLib/Memory/MemoryMachine.h"

static std::string Payload(MemoryMachine& Machine) {
    const EventList Sent = Machine.Sim.Events("health");
    EXPECT_EQ(Sent.size(), 1u);
    return Sent.empty()
               ? ""
               : Sent[0].Fields.at("kind").get<std::string>() + ": " + Sent[0].Fields.at("bytes").get<std::string>();
}

TEST(HealthEvent, HostEccHoldsPlaceHistoryAndBank) {
    MemoryMachine Machine;
    Machine.Rank().CeccPfaCurrentErrorCount = 0x12345;
    Machine.Rank().CeccPfaTimestampPreviousError = {10, 0, 12, 1, 23, 11, 26, 20};
    Machine.Rank().CeccPfaTimestampCurrentError = {45, 2, 13, 1, 24, 11, 26, 20};  // a day, 1:02:35 later
    MemoryError Error;
    MCA_BANK_ERROR_INFO& Bank = Error.Bank();
    Bank.McaBankNumber = 0x0123456789ABCDEF;
    Bank.McaCtl = 0x1011121314151617;
    Bank.McaAddr = 0x2021222324252627;
    Bank.McaMisc0 = 0x3031323334353637;
    Bank.McaConfig = 0x4041424344454647;
    Bank.McaSynd = 0x5051525354555657;
    Bank.McaDeStat = 0x6061626364656667;
    Bank.McaDeAddr = 0x7071727374757677;
    Error.Data.MachineCheck.DimmInfo.RankOnDimm = 1;
    Error.Data.MachineCheck.NormalizedAddressInfo.UmcChannel = 2;  // of die 1: channel 4
    const auto Blocks = Machine.Sim->Pool().LiveBlocks;
    EXPECT_EQ(VornElogSmmProcessMemoryHealthEventHostEcc(&Error.Data, HostEccPoisonCreation), EFI_SUCCESS);
    EXPECT_EQ(Machine.Sim->Pool().LiveBlocks, Blocks);
    // 0x12345 errors: 0x2345. 90155 seconds = 0x1602B: 0x602B.
    EXPECT_EQ(Payload(Machine),
              "0x2: 01 15 02 04 01 01 05 03 02 CD AB 02 00 F8 03 00 00 01 45 23 2B 60 10 EF "
              "17 16 15 14 13 12 11 10 1B 01 00 00 00 40 20 9C 27 26 25 24 23 22 21 20 "
              "37 36 35 34 33 32 31 30 47 46 45 44 43 42 41 40 57 56 55 54 53 52 51 50 "
              "67 66 65 64 63 62 61 60 77 76 75 74 73 72 71 70");
}

TEST(HealthEvent, RuntimeRepairHoldsPlaceAndResult) {
    struct Case {
        const char* Name;
        UINT8 Socket, Channel, ChipSelect, Device, Result;
        const char* Bytes;
    };
    for (const Case& Test : {
             Case{"passed", 1, 11, 3, 9, RuntimePprPassed,
                  "0x2: 01 30 00 02 00 00 01 03 00 05 02 CD AB 02 00 01 02 01 00 00 00 00 00"},
             Case{"failed, chip select beyond the channel's", 0, 3, 5, 31, RuntimePprFailed,
                  "0x2: 00 07 00 00 00 80 01 05 00 05 02 CD AB 02 00 01 02 02 00 00 00 00 00"},
             Case{"no such slot, no such device", 0, 12, 0, 32, RuntimePprFailed,
                  "0x2: 00 00 00 00 00 00 01 00 00 05 02 CD AB 02 00 01 02 02 00 00 00 00 00"},
         }) {
        SCOPED_TRACE(Test.Name);
        MemoryMachine Machine;
        RUNTIME_PPR_CHECK_ENTRY Entry{};
        Entry.Socket = Test.Socket;
        Entry.UmcChannel = Test.Channel;
        Entry.ChipSelect = Test.ChipSelect;
        Entry.DramDevice = Test.Device;
        Entry.SubChannel = 1;
        Entry.Bank = 0xF6;  // group 5, address 2
        Entry.Row = 0x2ABCD;
        EXPECT_EQ(VornElogSmmProcessMemoryHealthEventRtPpr(&Entry, Test.Result), EFI_SUCCESS);
        EXPECT_EQ(Payload(Machine), Test.Bytes);
    }
    MemoryMachine Machine;
    EXPECT_EQ(VornElogSmmProcessMemoryHealthEventRtPpr(nullptr, RuntimePprPassed), EFI_INVALID_PARAMETER);
}
