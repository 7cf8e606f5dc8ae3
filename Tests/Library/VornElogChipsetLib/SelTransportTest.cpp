#include "Library/VornElogChipsetLib/SelTransport.h"

#include "Library/VornElogChipsetLib/DimmLocation.h"
#include "Tests/Library/VornElogChipsetLib/EventLogFixture.h"

namespace {

const ELOG_SEL_DATA Event{1, 2, 3, 4, 5, 6};

TEST_F(VornElogChipset, SendsTheStoreAndKeepsItUntilItWentOut) {
    struct {
        const char* Name;
        std::vector<std::string> Failing;
        bool HasStore;
        UINT8 Stored;
        EFI_STATUS Status;
        const char* Calls;
        std::size_t Sent;
        std::size_t Left;
    } Cases[] = {
        {"all well", {}, true, 2, EFI_SUCCESS, "get display send clear", 2, 0},
        {"nothing stored", {}, true, 0, EFI_SUCCESS, "get", 0, 0},
        {"no store", {}, false, 2, EFI_NOT_FOUND, "get", 0, 2},
        {"no store, nothing stored", {}, false, 0, EFI_NOT_FOUND, "get", 0, 0},
        {"get fails", {"get"}, true, 2, EFI_DEVICE_ERROR, "get", 0, 2},
        {"display fails", {"display"}, true, 2, EFI_SUCCESS, "get display send clear", 2, 0},
        {"send fails", {"send"}, true, 2, EFI_DEVICE_ERROR, "get display send", 0, 2},
        {"clear fails", {"clear"}, true, 2, EFI_DEVICE_ERROR, "get display send clear", 2, 0},
    };
    for (const auto& Case : Cases) {
        Calls = "";
        Failures.clear();
        Sent.clear();
        Store.assign(Case.Stored, Event);
        HasStore = Case.HasStore;
        for (const std::string& Member : Case.Failing) {
            Failures[Member] = EFI_DEVICE_ERROR;
        }
        EXPECT_EQ(Case.Status, ElogSendSelLog()) << Case.Name;
        EXPECT_EQ(Case.Calls, Calls) << Case.Name;
        EXPECT_EQ(Case.Sent, Sent.size()) << Case.Name;
        EXPECT_EQ(Case.Left, Store.size()) << Case.Name;
    }
}

TEST_F(VornElogChipset, TakesTheDimmMapWhileItStarts) {
    EXPECT_EQ(EFI_SUCCESS, VornELogIpmiLibConstructor(nullptr, nullptr));
    struct {
        UINT16 Socket, UmcChannel, Dimm;
        UINT32 Location;
    } Cases[] = {
        {0, 0, 0, 0},           // A1
        {1, 11, 0, 75},         // A12: 64 + 12 - 1
        {1, 11, 1, 63},         // no label
        {0, 3, 1, 0xFFFFFFFF},  // no digit: one below the first location
        {1, 2, 0, 85},          // f is 15, X counts 0, the 9 is ignored: 150 & 63 = 22, then 64 + 22 - 1
        {0, 0, 1, 0},           // not in the map
        {256, 0, 0, 0},         // does not pass for socket 0
    };
    for (const auto& Case : Cases) {
        EXPECT_EQ(Case.Location, ElogGetDimmLocation(Case.Socket, Case.UmcChannel, Case.Dimm));
    }
    EXPECT_EQ(UINT32{ApplyPprTypeHard}, mPrivateDataVornElogIpmi.ApplyPprType);
}

}  // namespace
