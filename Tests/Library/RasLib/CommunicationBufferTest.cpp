#include "Library/RasLib/CommunicationBuffer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/Guids.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/FakeServices.h"

namespace {

class CommunicationBuffer : public testing::Test {
 protected:
    CommunicationBuffer() {
        VornSmmSecurityMitigationEnabled = FALSE;
        Smst.Install(gKyrSmmMemoryMapProtocolGuid, &Map);
        EXPECT_EQ(SmmMemLibConstructor(nullptr, nullptr), EFI_SUCCESS);
    }

    // SMRAM at 0x80000000 and up to the end of the address space; regions below and beside it.
    const KYR_MEMORY_REGION Smram[3] = {{0x80000000, 0x1000}, {0x9000, 0}, {0xFFFFFFFFFFFFF000, 0x1000}};
    const KYR_MEMORY_REGION Valid[3] = {{0x10000, 0x1000}, {0x11000, 0x1000}, {0x7FFFF000, 0x3000}};
    const KYR_SMM_MEMORY_MAP_PROTOCOL Map{Smram, 3, Valid, 3};
    Simulator::Simulation Machine{{}};
    FakeServices Smst;
};

TEST_F(CommunicationBuffer, LiesOutsideSmramAndWhenAskedInsideOneRegion) {
    const struct {
        UINT64 Buffer, Length;
        BOOLEAN Plain, Mitigated;
    } Cases[] = {
        {0x10000, 0x1000, TRUE, TRUE},
        {0x10000, 0x1001, TRUE, FALSE},  // two regions that touch are still two
        {0x0FFFF, 2, TRUE, FALSE},
        {0x9000, 1, TRUE, FALSE},  // an empty SMRAM region holds nothing
        {0x7FFFFFFF, 1, TRUE, TRUE},
        {0x7FFFFFFF, 2, FALSE, FALSE},
        {0x80000000, 1, FALSE, FALSE},
        {0x80000FFF, 1, FALSE, FALSE},
        {0x80001000, 0x1000, TRUE, TRUE},
        {0x7FFFF000, 0x3000, FALSE, FALSE},  // swallows SMRAM whole
        {0x80001000, 0x1001, TRUE, FALSE},
        {0xFFFFFFFFFFFFEFFF, 1, TRUE, FALSE},
        {0xFFFFFFFFFFFFEFFF, 2, FALSE, FALSE},
        {0xFFFFFFFFFFFFFFFF, 1, FALSE, FALSE},
        {0x10000, 0xFFFFFFFFFFFFFFFF, FALSE, FALSE},  // wraps around
        {0x10000, 0, FALSE, FALSE},
    };
    for (const auto& Case : Cases) {
        VornSmmSecurityMitigationEnabled = FALSE;
        EXPECT_EQ(SmmIsBufferOutsideSmmValid(Case.Buffer, Case.Length), Case.Plain) << std::hex << Case.Buffer;
        VornSmmSecurityMitigationEnabled = TRUE;
        EXPECT_EQ(SmmIsBufferOutsideSmmValid(Case.Buffer, Case.Length), Case.Mitigated) << std::hex << Case.Buffer;
    }
    EXPECT_THAT(Machine.TraceLog(),
                testing::HasSubstr("SmmIsBufferOutsideSmmValid: Not in ValidCommunicationRegion: Buffer (0xffff) - "
                                   "Length (0x2)\n"));
}

}  // namespace
