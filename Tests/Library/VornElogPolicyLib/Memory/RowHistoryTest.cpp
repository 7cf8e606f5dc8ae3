// Rows with errors: keys, counts, copies.
#include "Library/VornElogPolicyLib/Memory/RowHistory.h"

#include <gtest/gtest.h>

#include "Tests/Library/VornElogPolicyLib/Memory/MemoryMachine.h"

static EFI_STATUS Count(MemoryError& Error, UINT8 Rank = 0) {
    return VornElogSmmUpdateMemoryCeccHashTable(1, 4, 1, Rank, Error.Cper(), &Error.Data);
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
