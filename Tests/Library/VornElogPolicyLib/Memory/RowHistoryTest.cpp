// Rows with errors: keys, counts, copies.
#include "Library/VornElogPolicyLib/Memory/RowHistory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Library/VornElogPolicyLib/Memory/MemoryMachine.h"

static EFI_STATUS Count(MemoryError& Error, UINT8 Rank = 0) {
    return VornElogSmmUpdateMemoryCeccHashTable(1, 4, 1, Rank, Error.Cper(), &Error.Data);
}

static UNIQUE_ROW_INSTANCE_NODE& Newest(MemoryMachine& Machine) {
    return *RowInstance(Machine.Dimm->pUniqueRowIdentifierList->BackLink);
}

TEST(RowHistory, EveryFieldOfTheKeyMakesARowOfItsOwn) {
    MemoryMachine Machine;
    MemoryError First;
    ASSERT_EQ(Count(First), EFI_SUCCESS);
    const struct {
        const char* Name;
        void (*Change)(MemoryMachine& Changed, DIMM_INFO& Info);
        bool IsNew;
    } Cases[] = {
        {"same", [](auto&, auto&) {}, false},
        {"chip select", [](auto&, auto& Info) { Info.ChipSelect = 3; }, true},
        {"rank multiplier", [](auto&, auto& Info) { Info.RankMul = 4; }, true},
        {"bank", [](auto&, auto& Info) { Info.Bank = 0x0C; }, true},
        {"row", [](auto&, auto& Info) { Info.Row = 0x1ABCD; }, true},
        {"devices", [](auto& Changed, auto&) { Changed.DeviceStart = 7; }, true},
        {"column, sub-channel and rank", [](auto&, auto& Info) { Info.Column++, Info.SubChannel = 0; }, false},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.Name);
        const std::size_t Rows = Machine.Rows();
        MemoryError Error;
        Machine.DeviceStart = 6;
        Case.Change(Machine, Error.Data.MachineCheck.DimmInfo);
        EXPECT_EQ(Count(Error, 1), EFI_SUCCESS);
        EXPECT_EQ(Machine.Rows(), Rows + (Case.IsNew ? 1 : 0));
        // The devices were filled in on the way.
        EXPECT_EQ(Error.Data.MachineCheck.DimmInfo.DeviceStart, Machine.DeviceStart);
        EXPECT_EQ(Error.Data.MachineCheck.DimmInfo.DeviceEnd, Machine.DeviceStart + 1);
    }
    EXPECT_EQ(RowInstance(Machine.Dimm->pUniqueRowIdentifierList->ForwardLink)->NumberCecc, 3u);
}

TEST(RowHistory, ANodeHoldsItsKeyAndCopiesOfTheLatestRecord) {
    MemoryMachine Machine;
    MemoryError First, Second;
    ASSERT_EQ(Count(First.Errors(0xFFFF)), EFI_SUCCESS);
    UNIQUE_ROW_INSTANCE_NODE& Node = Newest(Machine);
    EXPECT_EQ(Node.Signature, 0xDEADDEADu);
    EXPECT_EQ(Node.ChipSelect, 2);
    EXPECT_EQ(Node.RankMul, 5);
    EXPECT_EQ(Node.DeviceStart, 6u);
    EXPECT_EQ(Node.DeviceEnd, 7u);
    EXPECT_EQ(Node.Bank, 0x0D);
    EXPECT_EQ(Node.Row, 0x2ABCDu);
    Node.NumberCecc = 0xFFFFFFF0;
    ASSERT_EQ(Count(Second.At(90).Errors(0x20)), EFI_SUCCESS);
    EXPECT_EQ(Node.NumberCecc, 0x10u);
    EXPECT_EQ(std::memcmp(Node.Cper, Second.Bytes.data(), 280), 0);
    EXPECT_THAT(std::vector<UINT8>(Node.Cper + 280, Node.Cper + 408), testing::Each(0));
    EXPECT_EQ(std::memcmp(&Node.ChipsetSupportData, &Second.Data, sizeof(Second.Data)), 0);

    // A record that is longer than its copy is cut, and says so.
    MemoryError Long;
    Long.Bytes.resize(500, 0xEE);
    Long.Cper()->Header.RecordLength = 500;
    ASSERT_EQ(Count(Long), EFI_SUCCESS);
    EXPECT_EQ(Node.Cper[407], 0xEE);
    EXPECT_EQ(reinterpret_cast<CPER_RECORD*>(Node.Cper)->Header.RecordLength, 408u);
}

TEST(RowHistory, TheNewerOfTheRowsWithMostErrorsIsRetrieved) {
    MemoryMachine Machine;
    CPER_RECORD* Cper = nullptr;
    KYR_CHIPSET_SUPPORT_DATA* Data = nullptr;
    const auto Retrieve = [&] {
        return VornElogSmmRetrieveMemoryCeccHashTableHighestRowCount(1, 4, 1, 0, &Cper, &Data);
    };
    EXPECT_EQ(Retrieve(), EFI_NOT_FOUND);
    EXPECT_EQ(VornElogSmmRetrieveMemoryCeccHashTableHighestRowCount(1, 4, 1, 0, nullptr, &Data),
              EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogSmmRetrieveMemoryCeccHashTableHighestRowCount(1, 4, 1, 0, &Cper, nullptr),
              EFI_INVALID_PARAMETER);
    const struct {
        UINT32 Row;
        UINT16 Errors;
        UINT32 Highest;
    } Steps[] = {{1, 5, 1}, {2, 4, 1}, {3, 5, 3}, {2, 1, 3}, {4, 5, 4}, {1, 1, 1}, {4, 0, 1}};
    for (const auto& Step : Steps) {
        Count(MemoryError().Row(Step.Row).Errors(Step.Errors));
        ASSERT_EQ(Retrieve(), EFI_SUCCESS);
        EXPECT_EQ(Data->MachineCheck.DimmInfo.Row, Step.Highest);
        EXPECT_EQ(Cper->Header.RecordLength, 280u);
    }
    VornElogSmmDisplayMemoryCeccHashTable(1, 4, 1, 0);
    EXPECT_TRUE(Machine.Sim.Traced("DeviceStart 6 DeviceEnd 7 Bank 13 Row 0x1 NumberCecc 6"));
}

TEST(RowHistory, ClearingTakesTheRowsOfBothRanksAndFreesThem) {
    MemoryMachine Machine;
    const auto Blocks = Machine.Sim->Pool().LiveBlocks;
    MemoryError Rank0, Rank1;
    Rank1.Data.MachineCheck.DimmInfo.ChipSelect = 3;
    Count(Rank0, 0);
    Count(Rank1, 1);
    EXPECT_EQ(Machine.Sim->Pool().LiveBlocks, Blocks + 2);
    VornElogSmmClearMemoryCeccHashTable(1, 4, 1, 1);
    EXPECT_EQ(Machine.Rows(), 0u);
    EXPECT_EQ(Machine.Sim->Pool().LiveBlocks, Blocks);
    // What the pool refuses to take back is forgotten all the same.
    Count(Rank0, 0);
    Machine.Sim->SetFailure("SmmFreePool", Simulator::Failure{EFI_NOT_FOUND, 1});
    VornElogSmmClearMemoryCeccHashTable(1, 4, 1, 0);
    EXPECT_EQ(Machine.Rows(), 0u);
    EXPECT_TRUE(Machine.Sim.Traced("VornElogSmmClearMemoryCeccHashTable: ERROR Not Found from SmmFreePool"));
}

TEST(RowHistory, OnlyErrorsThatNameASymbolCanBeDecoded) {
    struct Case {
        const char* Name;
        UINT64 Status;  // beside Val and CECC
        UINT64 Synd;
        EFI_STATUS Expected;
    };
    const UINT64 UC = UINT64{1} << 61, UECC = UINT64{1} << 45, Deferred = UINT64{1} << 44;
    for (const Case& Test : {
             Case{"corrected", 0, 0x3FFF, EFI_SUCCESS},
             Case{"corrected, bit 14", 0, 0x4000, EFI_UNSUPPORTED},
             Case{"corrected, bit 15", 0, 0x8000, EFI_UNSUPPORTED},
             Case{"corrected, above the syndrome", 0, 0xFFFC0000, EFI_SUCCESS},
             Case{"corrected, UECC", UECC, 0, EFI_UNSUPPORTED},
             Case{"deferred", Deferred | UECC, 0x4000, EFI_SUCCESS},
             Case{"deferred, bit 15", Deferred, 0x8000, EFI_UNSUPPORTED},
             Case{"uncorrected", UC | UECC, 0xC000, EFI_SUCCESS},
             Case{"uncorrected and deferred, bit 15", UC | Deferred, 0x8000, EFI_UNSUPPORTED},
             Case{"another error", 0x10000, 0, EFI_UNSUPPORTED},
         }) {
        SCOPED_TRACE(Test.Name);
        MemoryMachine Machine;
        MemoryError Error;
        Error.Bank().McaStatus = 0x8000400000000000 | Test.Status;
        Error.Bank().McaSynd = Test.Synd;
        BOOLEAN IsSupported = 7;
        EXPECT_EQ(VornElogSmmIsDeviceDecodeSupported(&Error.Data, &IsSupported), Test.Expected);
        EXPECT_EQ(IsSupported, Test.Expected == EFI_SUCCESS);
        EXPECT_EQ(Count(Error), Test.Expected);
        EXPECT_EQ(Machine.Rows(), Test.Expected == EFI_SUCCESS ? 1u : 0u);
    }
}
