// Thresholds, the leak, pages and refusals.
#include "Library/VornElogPolicyLib/Memory/LeakyBucket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/Memory/PageRetire.h"
#include "Tests/Library/VornElogPolicyLib/Memory/MemoryMachine.h"

using testing::ElementsAre;
using testing::IsEmpty;

static VORN_ELOG_POLICY_PRIVATE_DATA& Policy = mPrivateDataVornElogPolicyLib;

TEST(LeakyBucket, OneErrorCrossesTheWarningAndOnlyALaterOneTheCriticalThreshold) {
    MemoryMachine Machine;
    EXPECT_THAT(Machine.Post(MemoryError().Errors(160)),
                ElementsAre("health 02", "retire 0x45670000C0 at 0xC", "ghes EFI_SUCCESS", "ppr 1 row 2abcd",
                            "ppr saved", "health 02", "sci 0x30000000"));
    // The history is empty: the record itself stands in.
    Machine.MapStatus = EFI_DEVICE_ERROR;
    EXPECT_THAT(Machine.Post(MemoryError().Row(0x77)),
                ElementsAre("ppr 2 row 77", "ppr saved", "health 02", "counters off 1 4 1", "ghes EFI_SUCCESS",
                            "sci 0x20000000"));
    EXPECT_TRUE(Machine.Sim.Traced("ERROR Substituting error data @ critical threshold instead"));
    EXPECT_FALSE(Machine.Sim.Traced("ERROR Substituting error data @ warning threshold instead"));
}

TEST(LeakyBucket, TheWarningDoesNotCountAsThePreviousError) {
    MemoryMachine Machine;
    Machine.Post(MemoryError().At(0).Errors(49));
    EXPECT_THAT(Machine.Post(MemoryError().At(300).Errors(1)), testing::Contains("ppr 1 row 2abcd"));
    Machine.Post(MemoryError().At(600).Errors(1));
    EXPECT_EQ(Machine.Rank().CeccPfaCurrentErrorCount, 1u) << "ten minutes after the error before the warning";
}

TEST(LeakyBucket, CountsSaturateAndADeltaOf0Saturates) {
    struct Case {
        UINT32 Before;
        UINT16 Errors;
        UINT32 After;
    };
    for (const Case& Test : {Case{0, 0, 0xFFFFFFFF}, Case{5, 0, 0xFFFFFFFF}, Case{0xFFFFFFFE, 1, 0xFFFFFFFF},
                             Case{0xFFFFFFFF, 1, 0xFFFFFFFF}, Case{0xFFFFFFFE, 0xFFFF, 0xFFFFFFFF},
                             Case{0xFFFF0000, 0xFFFE, 0xFFFFFFFE}, Case{0, 0xBEEF, 0xBEEF}}) {
        SCOPED_TRACE(testing::Message() << Test.Before << " + " << Test.Errors);
        MemoryMachine Machine(0xFFFFFFFF);
        Machine.Rank().CeccPfaCurrentErrorCount = Test.Before;
        Machine.Post(MemoryError().Errors(Test.Errors));
        EXPECT_EQ(Machine.Rank().CeccPfaCurrentErrorCount, Test.After);
    }
    // No errors at all: the warning at once, with the row counted at 0; no page was counted, so none is retired.
    MemoryMachine Machine;
    EXPECT_THAT(Machine.Post(MemoryError().Errors(0)), ElementsAre("ppr 1 row 2abcd", "ppr saved", "health 02"));
}

TEST(PageRetire, APageIsLookedUpAmongThe400ThatAreTracked) {
    MemoryMachine Machine(1000);
    for (UINT64 Page = 1; Page <= 400; Page++) {
        ASSERT_EQ(VornElogSmmEsxiMemoryPageRetireUpdateCeccCount(5, Page, Page == 400 ? 125 : 3), EFI_SUCCESS);
    }
    EXPECT_EQ(VornElogSmmEsxiMemoryPageRetireUpdateCeccCount(5, 401, 3), EFI_BUFFER_TOO_SMALL);
    const std::tuple<UINT64, EFI_STATUS, UINT32, BOOLEAN> Cases[] = {
        {400, EFI_SUCCESS, 399, TRUE}, {7, EFI_SUCCESS, 6, FALSE}, {401, EFI_NOT_FOUND, 0xDEADBEEF, FALSE}};
    for (const auto& [Page, Status, Index, IsExceeded] : Cases) {
        UINT32 Found = 0;
        BOOLEAN Exceeded = 7;
        ESXI_PAGE_RETIRE_ENTRY* Entry = nullptr;
        EXPECT_EQ(VornElogSmmIsEsxiMemoryPageRetireThresholdExceeded(5, Page, &Found, &Entry, &Exceeded), Status);
        EXPECT_EQ(Found, Index);
        EXPECT_EQ(Exceeded, IsExceeded);
        EXPECT_EQ(Entry, Policy.pOsEsxiPageRetireInfo) << "the first entry, whichever matched";
    }
}

TEST(LeakyBucket, RefusesWhatItCannotCount) {
    struct Case {
        const char* Name;
        void (*Break)(MemoryMachine& Machine, MemoryError& Error);
        const char* Text;
    };
    const char* const Inactive = "ERROR mPrivateDataVornElogPolicyLib.DimmData[Skt ";
    for (const Case& Test : {
             Case{"no scan", [](auto&, auto&Error) { Error.Data.MachineCheck.ValidRasMcaErrorInfo = 0; },
                  "ERROR RasMcaErrorInfo not valid, aborting..."},
             Case{"other error", [](auto&, auto&Error) { Error.Bank().McaStatus |= 0x10000; },
                  "ERROR Non ECC error detected, aborting..."},
             Case{"not corrected", [](auto&, auto&Error) { Error.Bank().McaStatus &= ~(UINT64{1} << 46); },
                  "ERROR Non ECC error detected, aborting..."},
             Case{"absent", [](auto&Machine, auto&) { Machine.Dimm->Flags.Present = 0; },
                  "DimmData[Skt 1][Ch 4][Dimm 1].Flags Present 0 Enabled 1, aborting..."},
             Case{"socket 2", [](auto&, auto&Error) { Error.Section().Node = 2; }, Inactive},
             Case{"DIMM 2", [](auto&, auto&Error) { Error.Section().Module = 2; },
                  "DimmData[Skt 1][Ch 4][Dimm 2].Flags Present 0 Enabled 0, aborting..."},
             Case{"no module", [](auto&, auto&Error) { Error.Section().ValidationBits = 0x801A; },
                  "ERROR Not Found returned while decoding DIMM location, aborting..."},
         }) {
        SCOPED_TRACE(Test.Name);
        MemoryMachine Machine;
        MemoryError Error;
        Test.Break(Machine, Error.Errors(200));
        EXPECT_THAT(Machine.Post(Error), IsEmpty());
        EXPECT_TRUE(Machine.Sim.Traced(Test.Text));
        for (unsigned Rank = 0; Rank < 2; Rank++) {
            EXPECT_EQ(Machine.Rank(Rank).CeccPfaCurrentErrorCount, 0u);
            EXPECT_EQ(Machine.Rank(Rank).CeccPfaTimestampCurrentError.Year, 0);
        }
        EXPECT_EQ(Policy.pOsEsxiPageRetireInfo[0].CeccErrorCount, 0u);
        EXPECT_EQ(Machine.Rows(), 0u);
    }
}
