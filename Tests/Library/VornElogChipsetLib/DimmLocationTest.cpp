#include "Library/VornElogChipsetLib/DimmLocation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Platform/Guids.h"
#include "Platform/Protocol/VendorServices.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/FakeServices.h"

namespace {

DIMM_MAP_ENTRY Dimm(UINT8 Socket, UINT8 UmcChannel, UINT8 OnChannel, const CHAR16* Label) {
    return {Socket, UmcChannel, 0xEE, OnChannel, {0xEE, 0xEE, 0xEE, 0xEE}, Label};
}

VORN_MEMORY_SLOT_INFO Slot(UINT8 Socket, UINT8 UmcChannel, UINT8 OnChannel) {
    VORN_MEMORY_SLOT_INFO Made{};
    Made.Socket = Socket;
    Made.UmcChannel = UmcChannel;
    Made.Dimm = OnChannel;
    return Made;
}

// A driver that has started without a memory interface; a hand-made one comes later.
class DimmLocation : public testing::Test {
 protected:
    DimmLocation() {
        Array.NumDimmSlot = static_cast<UINT16>(Dimms.size());
        Array.DimmMap = Dimms.data();
        Interface.GetMemoryArrayPtr = [](VORN_MEMORY_ARRAY** MemoryArray) {
            Made->Calls += "A";
            *MemoryArray = Made->Calls.size() > 2 ? &Made->Array : nullptr;
            return Made->Calls.size() == 1 ? EFI_NOT_READY : EFI_SUCCESS;
        };
        Interface.GetSlotInfoPtr = [](UINT8 DimmIndex, VORN_MEMORY_SLOT_INFO** SlotInfo) {
            Made->Calls += std::to_string(DimmIndex);
            *SlotInfo = DimmIndex == 2 ? nullptr : &Made->Slots.at(DimmIndex);
            return DimmIndex == 1 ? EFI_DEVICE_ERROR : EFI_SUCCESS;
        };
        Made = this;
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

    static inline DimmLocation* Made = nullptr;
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
    // The array is not ready at first, then it is NULL; slot 1 cannot be read and slot 2 has no record.
    VORN_MEMORY_INTERFACE_SMM_PROTOCOL Interface{};
    std::vector<VORN_MEMORY_SLOT_INFO> Slots;
    std::string Calls;
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

TEST_F(DimmLocation, FindsTheSlotOfADimm) {
    // Slots 1 and 2 are skipped; slot 4 is a second one of slot 3's place.
    Slots = {Slot(0, 0, 0), Slot(1, 11, 1), Slot(1, 11, 1), Slot(1, 11, 1), Slot(1, 11, 1)};
    Array.NumDimmSlot = 5;
    const struct {
        const char* Name;
        UINT8 Socket, UmcChannel, OnChannel;
        EFI_STATUS Status;
        UINT8 Index;
        const char* Calls;
    } Cases[] = {
        {"no interface", 0, 0, 0, EFI_NOT_FOUND, 255, ""},
        {"no array: it fails", 0, 0, 0, EFI_NOT_READY, 255, "A"},
        {"no array: it is NULL", 0, 0, 0, EFI_NOT_FOUND, 255, "A"},
        {"the first slot", 0, 0, 0, EFI_SUCCESS, 0, "A0"},
        {"the last place of a board; the array is kept", 1, 11, 1, EFI_SUCCESS, 3, "0123"},
        {"a place without a slot", 1, 11, 0, EFI_NOT_FOUND, 255, "01234"},
        {"no such socket", 2, 0, 0, EFI_INVALID_PARAMETER, 0xEE, ""},
        {"no such channel", 0, 12, 0, EFI_INVALID_PARAMETER, 0xEE, ""},
        {"no such DIMM", 0, 0, 2, EFI_INVALID_PARAMETER, 0xEE, ""},
    };
    std::string Before;
    for (const auto& Case : Cases) {
        VORN_MEMORY_SLOT_INFO* Info = &Slots[0];
        UINT8 Index = 0xEE;
        EXPECT_EQ(Case.Status,
                  VornElogGetDimmSlotInfoPointer(Case.Socket, Case.UmcChannel, Case.OnChannel, &Info, &Index))
            << Case.Name;
        EXPECT_EQ(Case.Index, Index) << Case.Name;
        EXPECT_EQ(Case.Status == EFI_SUCCESS             ? &Slots[Case.Index]
                  : Case.Status == EFI_INVALID_PARAMETER ? &Slots[0]
                                                         : nullptr,
                  Info)
            << Case.Name;
        Before += Case.Calls;
        EXPECT_EQ(Before, Calls) << Case.Name;
        Services.Install(gVornMemoryInterfaceMemorySmmProtocolGuid, &Interface);
    }
    for (const char* Message :
         {"ERROR Not Found matching DIMM @ Skt 1 Ch 11 Dimm 0, check caller boundary conditions, exiting...\n",
          "ERROR Socket 2 >= Max 2, aborting...\n", "ERROR UmcChannel 12 >= Max 12, aborting...\n",
          "ERROR Dimm 2 >= Max 2, aborting...\n"}) {
        EXPECT_THAT(Machine.TraceLog(),
                    testing::HasSubstr(std::string("VornElogGetDimmSlotInfoPointer: ") + Message));
    }

    VORN_MEMORY_SLOT_INFO* Info = nullptr;
    UINT8 Index = 0;
    EXPECT_EQ(EFI_INVALID_PARAMETER, VornElogGetDimmSlotInfoPointer(0, 0, 0, nullptr, &Index));
    EXPECT_EQ(EFI_INVALID_PARAMETER, VornElogGetDimmSlotInfoPointer(0, 0, 0, &Info, nullptr));
    for (const UINT16 Count : {0, 49}) {
        Array.NumDimmSlot = Count;
        EXPECT_EQ(EFI_NOT_FOUND, VornElogGetDimmSlotInfoPointer(0, 0, 0, &Info, &Index));
    }
    Array.NumDimmSlot = 48;
    EXPECT_EQ(EFI_SUCCESS, VornElogGetDimmSlotInfoPointer(0, 0, 0, &Info, &Index));
    EXPECT_THAT(Machine.TraceLog(),
                testing::HasSubstr("pVornMemoryArrayInfo->nSlots is zero or > Max 0x0030 (48)\n"));
}

}  // namespace
