// Filing and location of memory records.
#include "Library/VornElogPolicyLib/Memory/MemoryRecord.h"

#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/ProcessErrorRecord.h"
#include "Tests/Library/VornElogPolicyLib/Memory/MemoryMachine.h"

static VORN_ELOG_POLICY_PRIVATE_DATA& Policy = mPrivateDataVornElogPolicyLib;

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
