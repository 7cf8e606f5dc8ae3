// Filing and location of memory records.
#include "Library/VornElogPolicyLib/Memory/MemoryRecord.h"

#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/ProcessErrorRecord.h"
#include "Tests/Library/VornElogPolicyLib/Memory/MemoryMachine.h"

static VORN_ELOG_POLICY_PRIVATE_DATA& Policy = mPrivateDataVornElogPolicyLib;

TEST(MemoryRecord, EveryClassIsKeptInEveryMode) {
    struct Case {
        UINT64 Status;
        UINT32 Class;
        BUFFER_HEADER* (*Buffer)();
        bool IsStormCheckSkipped;  // in production mode
    };
    const auto Uncorrected = []() -> BUFFER_HEADER* { return Policy.pMcaUncorrectedFiniteBuffer; };
    const auto Deferred = []() -> BUFFER_HEADER* { return Policy.pMcaDeferredCircularBuffer; };
    const auto Corrected = []() -> BUFFER_HEADER* { return Policy.pMcaCorrectedFiniteBuffer; };
    for (const Case& Test : {
             Case{0xBE00200000000000, 0, Uncorrected, false},
             Case{0xBC80200000000000, 2, Uncorrected, false},
             Case{0xBC00200000000000, 3, Uncorrected, false},
             Case{0x9C00300000000000, 4, Deferred, false},
             Case{0x9C2040000000011B, 1, Corrected, true},
             Case{0x9C2040000004011B, 1, Corrected, false},
             Case{0x9C3040000000011B, 5, Corrected, false},
         }) {
        for (const bool IsDiagnostic : {false, true}) {
            SCOPED_TRACE(testing::Message() << "class " << Test.Class << " diagnostic " << IsDiagnostic);
            MemoryMachine Machine(100, IsDiagnostic ? DiagnosticConfiguration() : Simulator::Configuration{});
            MemoryError Error;
            Error.Bank().McaStatus = Test.Status;
            const UINT32 Tail = Test.Buffer()->Tail;
            const auto Blocks = Machine.Sim->Pool().LiveBlocks;
            EXPECT_EQ(VornElogSmmProcessErrorRecord(Error.Cper(), &Error.Data), EFI_SUCCESS);
            ASSERT_EQ(Test.Buffer()->Tail, Tail + 1);
            const auto& Entry = *BufferSlot<ERROR_RECORD_BUFFER_ENTRY>(Test.Buffer(), Tail);
            EXPECT_EQ(Entry.MceClass, Test.Class);
            EXPECT_EQ(std::memcmp(Entry.pCper, Error.Bytes.data(), Error.Bytes.size()), 0);
            EXPECT_EQ(std::memcmp(Entry.pKyrChipsetSupportData, &Error.Data, sizeof(Error.Data)), 0);
            // Storm control remembers what it counts: an entry and its node.
            const bool MayStorm = (Test.Class == 1 || Test.Class == 5) && (IsDiagnostic || !Test.IsStormCheckSkipped);
            EXPECT_EQ(Machine.Sim->Pool().LiveBlocks, Blocks + (MayStorm ? 4 : 2));
            EXPECT_EQ(Machine.Sim.Traced("UMC ECC corrected machine check deteced in threshold mode, skip SMI storm "
                                         "check"),
                      Test.IsStormCheckSkipped && !IsDiagnostic);
        }
    }
}

TEST(MemoryRecord, TheLocationIsTheLowBytesOfAValidSection) {
    struct Case {
        const char* Name;
        void (*Break)(MemoryError& Error);
        EFI_STATUS Expected;
    };
    for (const Case& Test : {
             Case{"all there", [](auto&) {}, EFI_SUCCESS},
             Case{"no node", [](auto& Error) { Error.Section().ValidationBits &= ~UINT64{0x08}; }, EFI_NOT_FOUND},
             Case{"no card", [](auto& Error) { Error.Section().ValidationBits &= ~UINT64{0x10}; }, EFI_NOT_FOUND},
             Case{"no module", [](auto& Error) { Error.Section().ValidationBits &= ~UINT64{0x20}; }, EFI_NOT_FOUND},
             Case{"cut short", [](auto& Error) { Error.Cper()->Header.RecordLength = 279; }, EFI_NOT_FOUND},
             Case{"another section", [](auto& Error) { Error.Cper()->Descriptor.SectionType = gCperSectionPcieGuid; },
                  EFI_NOT_FOUND},
         }) {
        SCOPED_TRACE(Test.Name);
        MemoryMachine Machine;
        MemoryError Error;
        Error.Section().Node = 0x1211;
        Error.Section().Card = 0x2221;
        Error.Section().Module = 0x3231;
        Error.Section().RankNumber = 0x4241;
        Test.Break(Error);
        EXPECT_EQ(VornElogSmmGetMemErrorLocation(Error.Cper()), Test.Expected);
        const UINT8 Found[] = {0x11, 0x21, 0x31, 0x41}, Left[] = {1, 4, 1, 0};
        EXPECT_EQ(std::memcmp(&Policy.MemErrLocation, EFI_ERROR(Test.Expected) ? Left : Found, 4), 0);
    }
    MemoryMachine Machine;
    EXPECT_EQ(VornElogSmmGetMemErrorLocation(nullptr), EFI_INVALID_PARAMETER);
}
