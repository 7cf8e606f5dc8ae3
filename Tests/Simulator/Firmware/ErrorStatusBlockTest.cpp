// The bytes of a generic error status block, against ACPI 6.5, tables 18.11 and 18.12.
#include "Simulator/Firmware/ErrorStatusBlock.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "Include/Cper.h"
#include "Tests/Support/BootedSimulation.h"

namespace Simulator {
namespace {

std::vector<std::uint8_t> Record(std::uint32_t Severity, std::vector<std::uint8_t> Section) {
    CPER_RECORD Front{};
    std::memcpy(Front.Header.SignatureStart, "CPER", 4);
    Front.Header.ValidationBits = 2;
    Front.Header.TimeStamp = {59, 30, 12, 1, 24, 11, 26, 20};
    Front.Header.RecordLength = static_cast<UINT32>(sizeof(Front) + Section.size());
    Front.Header.ErrorSeverity = Severity;
    Front.Descriptor.SectionOffset = sizeof(Front);
    Front.Descriptor.SectionLength = static_cast<UINT32>(Section.size());
    Front.Descriptor.Flags = 0x81;
    Front.Descriptor.Severity = Severity;
    Front.Descriptor.SecValidMask = 2;
    Front.Descriptor.SectionType = gCperSectionProcessorSpecificGuid;
    std::strcpy(Front.Descriptor.FruString, "P0_CORE");
    std::vector<std::uint8_t> Bytes(sizeof(Front) + Section.size());
    std::memcpy(Bytes.data(), &Front, sizeof(Front));
    std::copy(Section.begin(), Section.end(), Bytes.begin() + sizeof(Front));
    return Bytes;
}

TEST(ErrorStatusBlock, LaysDownHeaderAndEntries) {
    ErrorStatusBlock Block(4096);
    ASSERT_EQ(Block.Add(Record(2, {0xDE, 0xAD, 0xBE, 0xEF, 1, 2, 3, 4}), 2), ErrorStatusBlock::AddResult::Added);
    const auto& Bytes = Block.Contents();
    ASSERT_EQ(Bytes.size(), 20u + 72 + 8);
    // Status: correctable (bit 1), one entry (bits 13:4). No raw data. 80 bytes of entries. Severity corrected.
    EXPECT_TRUE(BytesAre(Bytes, "12 00 00 00 00 00 00 00 00 00 00 00 50 00 00 00 02 00 00 00"));
    // Section type DC3EA0B0-A144-4797-B95B-53FA242B6E1D, severity, revision 0x0300, FRU text and time stamp valid,
    // flags, 8 bytes of data, no FRU ID, FRU text, time stamp in BCD.
    EXPECT_TRUE(BytesAre(Bytes, "B0 A0 3E DC 44 A1 97 47 B9 5B 53 FA 24 2B 6E 1D 02 00 00 00 00 03 06 81", 20));
    EXPECT_TRUE(BytesAre(Bytes, "08 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00", 44));
    EXPECT_TRUE(BytesAre(Bytes, "50 30 5F 43 4F 52 45 00 00 00 00 00 00 00 00 00 00 00 00 00", 64));
    EXPECT_TRUE(BytesAre(Bytes, "59 30 12 01 24 11 26 20 DE AD BE EF 01 02 03 04", 84));
}

TEST(ErrorStatusBlock, TheWorstEntryGivesTheSeverity) {
    const struct {
        std::vector<std::uint32_t> Severities;
        const char* Status;
        std::uint8_t Worst;
    } Cases[] = {
        {{2, 2}, "2A 00 00 00", 2},     // correctable, several of them
        {{2, 0}, "23 00 00 00", 0},     // both kinds
        {{0, 1, 2}, "37 00 00 00", 1},  // several uncorrectable
        {{3, 2}, "2A 00 00 00", 2},    {{1, 0}, "25 00 00 00", 1},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.Status);
        ErrorStatusBlock Block(4096);
        for (const std::uint32_t Severity : Case.Severities) {
            Block.Add(Record(Severity, std::vector<std::uint8_t>(8)), Severity);
        }
        EXPECT_TRUE(BytesAre(Block.Contents(), Case.Status));
        EXPECT_EQ(Block.Contents()[16], Case.Worst);
    }
}

TEST(ErrorStatusBlock, TakesOnlyWholeRecordsThatFit) {
    ErrorStatusBlock Block(20 + 72 + 8);
    std::vector<std::uint8_t> Good = Record(2, std::vector<std::uint8_t>(8));
    std::vector<std::uint8_t> Bad = Good;
    Bad[0] = 'X';
    EXPECT_EQ(Block.Add(Bad, 2), ErrorStatusBlock::AddResult::NotARecord);
    EXPECT_EQ(Block.Add({Good.data(), 199}, 2), ErrorStatusBlock::AddResult::NotARecord);
    EXPECT_EQ(Block.Add({Good.data(), 207}, 2), ErrorStatusBlock::AddResult::NotARecord) << "the section is cut";
    EXPECT_TRUE(Block.IsEmpty());
    EXPECT_EQ(Block.Add(Good, 2), ErrorStatusBlock::AddResult::Added);
    EXPECT_EQ(Block.Add(Good, 2), ErrorStatusBlock::AddResult::Full);
    EXPECT_EQ(Block.Contents().size(), 100u);
}

}  // namespace
}  // namespace Simulator
