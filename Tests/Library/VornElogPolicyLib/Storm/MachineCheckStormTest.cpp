// Storms of machine checks, and the queue that remembers them.
#include <gtest/gtest.h>

#include "Library/VornElogBaseLib/RealTimeClock.h"
#include "Tests/Library/VornElogPolicyLib/Storm/StormMachine.h"

namespace {

constexpr UINT64 CORRECTED = 0;

struct Row {
    unsigned Second;
    UINT32 ApicId = 0;
    UINT64 Bank = 5;
    UINT64 Status = CORRECTED;
    const EFI_GUID* Section = &gCperSectionProcessorSpecificGuid;
};

TEST(MachineCheckStorm, TenErrorsOfOneKindWithinTenSecondsAreOne) {
    struct Case {
        const char* Name;
        unsigned Errors;
        Row (*Of)(unsigned Number);
        unsigned FirstStorm;  // number of the first error that is one too many; Errors: none
        UINT32 EntriesLeft;
    };
    for (const Case& Test : {
             Case{"nine", 9, [](unsigned N) { return Row{N}; }, 9, 9},
             Case{"ten, and every further one", 13, [](unsigned) { return Row{4}; }, 9, 13},
             Case{"the first and the tenth 9 s apart", 10, [](unsigned N) { return Row{N}; }, 9, 10},
             Case{"an entry exactly as old as the threshold has expired", 10,
                  [](unsigned N) { return Row{N == 9 ? 10 : N}; }, 10, 9},
             Case{"a second apart for a minute", 60, [](unsigned N) { return Row{N}; }, 9, 10},
             Case{"11 s apart", 30, [](unsigned N) { return Row{N * 11}; }, 30, 1},
             Case{"two classes", 19,
                  [](unsigned N) {
                      return Row{0, 0, 5, N % 2 == 0 ? CORRECTED : TRANSPARENT};
                  },
                  18, 19},
             Case{"two banks", 18,
                  [](unsigned N) {
                      return Row{0, 0, N % 2};
                  },
                  18, 18},
             Case{"two threads", 18,
                  [](unsigned N) {
                      return Row{0, 0x1A3 + 0x100 * (N % 2)};
                  },
                  18, 18},
             Case{"memory and processor records of one bank", 10,
                  [](unsigned N) {
                      const EFI_GUID* Sections[] = {&gCperSectionPlatformMemoryGuid,
                                                    &gCperSectionProcessorGenericGuid,
                                                    &gCperSectionProcessorSpecificGuid};
                      return Row{0, 0, 5, CORRECTED, Sections[N % 3]};
                  },
                  9, 10},
             Case{"a clock that was set back an hour keeps what it saw", 10,
                  [](unsigned N) { return Row{N < 5 ? 3600u : 0u}; }, 9, 10},
         }) {
        SCOPED_TRACE(Test.Name);
        StormMachine Machine;
        const std::uint64_t Blocks = Machine.Blocks();
        for (unsigned Number = 0; Number < Test.Errors; Number++) {
            const Row Error = Test.Of(Number);
            EXPECT_EQ(
                Machine.IsStorm(BankRecord(Error.ApicId, Error.Bank, Error.Status, *Error.Section), Error.Second),
                Number >= Test.FirstStorm)
                << "error " << Number + 1;
        }
        EXPECT_EQ(Machine.Entries(), Test.EntriesLeft);
        EXPECT_EQ(Machine.Blocks(), Blocks + 2 * Test.EntriesLeft);
    }
}

TEST(MachineCheckStorm, WhatIsNoRecordToCountIsRefused) {
    StormMachine Machine;
    BOOLEAN Storm = 0xEE;
    BankRecord Good(0, 5, CORRECTED), Informational(0, 5, CORRECTED), Short(0, 5, CORRECTED),
        FarBank(0, 5, CORRECTED);
    EXPECT_EQ(VornElogSmmCheckSmiStorm(nullptr, &Good.Data, &Storm), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogSmmCheckSmiStorm(Good.Cper(), nullptr, &Storm), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogSmmCheckSmiStorm(Good.Cper(), &Good.Data, nullptr), EFI_INVALID_PARAMETER);
    Informational.Cper()->Descriptor.Severity = 3;
    Short.Cper()->Header.RecordLength = 199;
    FarBank.Data.MachineCheck.McaBankIndex = 64;
    const struct {
        TestRecord& Record;
        EFI_STATUS Expected;
        const char* Text;
    } Refused[] = {
        {Informational, EFI_UNSUPPORTED, "VornElogSmmCheckSmiStorm: CPER severity 3 is unsupported, aborting..."},
        {Short, EFI_INVALID_PARAMETER, "VornElogSmmCheckSmiStorm: ERROR CPER RecordLength 199"},
        {FarBank, EFI_INVALID_PARAMETER, "VornElogSmmCheckSmiStorm: ERROR McaBankIndex 64 >= Max 64, aborting..."},
    };
    for (const auto& Test : Refused) {
        Storm = 0xEE;
        EXPECT_EQ(Machine.Check(Test.Record, 0, &Storm), Test.Expected);
        EXPECT_EQ(Storm, FALSE);
        EXPECT_TRUE(Machine.Traced(Test.Text)) << Test.Text;
    }
    EXPECT_EQ(Machine.Entries(), 0u);

    // A record of a kind that nobody counts is remembered all the same.
    TestRecord Other({1, 2, 3, {}}, 2, 16);
    EXPECT_FALSE(Machine.IsStorm(Other, 0));
    EXPECT_EQ(Machine.Entries(), 1u);
}

}  // namespace
