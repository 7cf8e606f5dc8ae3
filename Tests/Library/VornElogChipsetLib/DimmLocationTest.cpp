#include "Library/VornElogChipsetLib/DimmLocation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Platform/Protocol/VendorServices.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/FakeServices.h"

namespace {

DIMM_MAP_ENTRY Dimm(UINT8 Socket, UINT8 UmcChannel, UINT8 OnChannel, const CHAR16* Label) {
    return {Socket, UmcChannel, 0xEE, OnChannel, {0xEE, 0xEE, 0xEE, 0xEE}, Label};
}

// A driver that has started without a memory interface: its table is the test's.
class DimmLocation : public testing::Test {
 protected:
    DimmLocation() {
        Array.NumDimmSlot = static_cast<UINT16>(Dimms.size());
        Array.DimmMap = Dimms.data();
    }
    ~DimmLocation() override {
        FreeDimmMappingTable();
    }
    static Simulator::Configuration WithoutMemoryInterface() {
        Simulator::Configuration Settings;
        Settings.Missing = {"gVornMemoryInterfaceMemorySmmProtocolGuid"};
        return Settings;
    }

    // What the label of a DIMM is as text; its status when it has none.
    std::string Label(UINT8 Socket, UINT8 UmcChannel, UINT8 OnChannel) {
        CHAR8* Text = reinterpret_cast<CHAR8*>(1);
        const EFI_STATUS Status = VornGetDimmLocationString(Socket, UmcChannel, OnChannel, &Text);
        if (EFI_ERROR(Status)) {
            EXPECT_EQ(nullptr, Text);
            return Status == EFI_NOT_FOUND ? "not found" : "another status";
        }
        EXPECT_EQ(std::strlen(Text) + 1, Services.Blocks[Text]) << "no more than the text needs";
        const std::string Result = Text;
        EXPECT_EQ(EFI_SUCCESS, Services.Table.SmmFreePool(Text));
        return Result;
    }

    Simulator::Simulation Machine{WithoutMemoryInterface()};
    const EFI_STATUS Booted = Machine.Boot();  // before the hand-made services stand
    FakeServices Services;
    std::vector<DIMM_MAP_ENTRY> Dimms = {
        Dimm(0, 0, 0, u"A1"),
        Dimm(1, 11, 1, u"B24"),
        Dimm(1, 11, 1, u"second"),                // the first entry wins
        Dimm(0, 2, 0, u"fourteen------"),         // fills the FRU text of 20 bytes
        Dimm(0, 2, 1, u"fifteen--------"),        //
        Dimm(0, 3, 0, u"twenty--------------"),   //
        Dimm(0, 3, 1, u"twenty-one-----------"),  //
        Dimm(0, 4, 0, u"Ä1\x4E00"),               // labels are ASCII
        Dimm(0, 4, 1, u""),
        Dimm(0, 5, 0, nullptr),
    };
    VORN_MEMORY_ARRAY Array{};
};

TEST_F(DimmLocation, KnowsLabelsAndFruTextsOfTheDimmsInItsTable) {
    const struct {
        UINT8 Socket, UmcChannel, OnChannel;
        std::string Label, FruText;
    } Cases[] = {
        {0, 0, 0, "A1", "DIMM_A1"},
        {1, 11, 1, "B24", "DIMM_B24"},
        {0, 2, 0, "fourteen------", "DIMM_fourteen------"},
        {0, 2, 1, "fifteen--------", "DIMM_fifteen-------"},
        {0, 3, 0, "twenty--------------", "DIMM_twenty--------"},
        {0, 3, 1, "twenty-one----------", "DIMM_twenty-one----"},
        {0, 4, 0, "?1?", "DIMM_?1?"},
        {0, 4, 1, "", "DIMM_"},
        {0, 5, 0, "not found", ""},
        {0, 0, 1, "not found", ""},
        {1, 0, 0, "not found", ""},
    };
    EXPECT_EQ("not found", Label(0, 0, 0)) << "no table yet";
    ASSERT_EQ(EFI_SUCCESS, BuildDimmMappingTable(&Array, DEBUG_INIT));
    EXPECT_THAT(Machine.TraceLog(), testing::HasSubstr("DIMM mapping table entry  1 => Socket 1 UmcChannel 11 Dimm 1 "
                                                       "=> DIMM label B24\n"));
    Dimms.assign(Dimms.size(), Dimm(9, 9, 9, u"gone"));  // the table is a copy
    for (const auto& Case : Cases) {
        EXPECT_EQ(Case.Label, Label(Case.Socket, Case.UmcChannel, Case.OnChannel));
        CHAR8 FruText[21];
        std::memset(FruText, 0x7F, sizeof(FruText));
        const EFI_STATUS Status = VornGetDimmFruInfo(Case.Socket, Case.UmcChannel, Case.OnChannel, 20, FruText);
        EXPECT_EQ(Case.FruText.empty() ? EFI_NOT_FOUND : EFI_SUCCESS, Status);
        EXPECT_EQ(0x7F, FruText[20]);
        if (!EFI_ERROR(Status)) {
            EXPECT_EQ(Case.FruText, FruText);
        }
        EXPECT_EQ(1u, Services.LiveBlocks) << "the table alone";
    }
    EXPECT_EQ(EFI_SUCCESS, FreeDimmMappingTable());
    EXPECT_EQ(EFI_SUCCESS, FreeDimmMappingTable());
    EXPECT_EQ(0u, Services.LiveBlocks);
}

}  // namespace
