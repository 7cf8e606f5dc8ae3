#include "Library/RasLib/FabricTopology.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "Platform/Guids.h"
#include "Platform/Protocol/SiliconServices.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/FakeServices.h"

namespace {

struct HandMadeMap {
    RB_BUS_MAP Map;
    RB_BUS_ENTRY Entries[300];
};

// Socket, RbIndex, RbBusBase, Nbio, Iohc, RbSeg of each entry.
HandMadeMap MapOf(const std::vector<std::array<UINT8, 6>>& Rows) {
    HandMadeMap Made{};
    Made.Map.RbCount = Rows.size();
    for (size_t At = 0; At < Rows.size(); At++) {
        RB_BUS_ENTRY& Entry = Made.Entries[At];
        Entry.Socket = Rows[At][0];
        Entry.RbIndex = Rows[At][1];
        Entry.RbBusBase = Rows[At][2];
        Entry.Nbio = Rows[At][3];
        Entry.Iohc = Rows[At][4];
        Entry.RbSeg = Rows[At][5];
    }
    return Made;
}

const std::vector<std::array<UINT8, 6>> ROWS = {
    {0, 0, 0x00, 0, 0, 0}, {0, 3, 0x20, 0, 1, 0}, {0, 1, 0x40, 1, 3, 0},
    {1, 0, 0x80, 0, 0, 1}, {1, 6, 0xA5, 1, 2, 1}, {1, 6, 0xC0, 1, 2, 1},
};

class FabricTopology : public testing::Test {
 protected:
    FabricTopology() : Machine(WithoutFabricService()), Booted(Machine.Boot()) {}
    static Simulator::Configuration WithoutFabricService() {
        Simulator::Configuration Made;
        Made.Missing = {"gKyrFabricRegisterSmmProtocolGuid"};
        return Made;
    }
    Simulator::Simulation Machine;
    const EFI_STATUS Booted;
    FakeServices Smst;
};

TEST_F(FabricTopology, IoHubIsFoundBySocketAndItsPlaceInTheNbio) {
    HandMadeMap Made = MapOf(ROWS);
    const struct {
        UINT8 Socket, IoS;
        EFI_STATUS Status;
        UINT8 Bus, Segment;
    } Cases[] = {
        {0, 0, EFI_SUCCESS, 0x00, 0},
        {0, 7, EFI_SUCCESS, 0x40, 0},
        {1, 6, EFI_SUCCESS, 0xA5, 1},  // the first of two
        {1, 1, EFI_NOT_FOUND, 0xEE, 0xEE},
        {0, 8, EFI_NOT_FOUND, 0xEE, 0xEE},
        {0, 9, EFI_INVALID_PARAMETER, 0xEE, 0xEE},
        {2, 0, EFI_NOT_FOUND, 0xEE, 0xEE},
    };
    for (const auto& Case : Cases) {
        UINT8 Bus = 0xEE;
        UINT8 Segment = 0xEE;
        EXPECT_EQ(AcquireIoHubSSecSegBusNum(&Made.Map, Case.Socket, 0x55, Case.IoS, &Bus, &Segment), Case.Status);
        EXPECT_EQ(Bus, Case.Bus);
        EXPECT_EQ(Segment, Case.Segment);
    }
}

TEST_F(FabricTopology, PhysicalIoHubIsFoundByItsIndexInTheSocket) {
    HandMadeMap Made = MapOf(ROWS);
    HandMadeMap Long{};
    Long.Map.RbCount = 300;
    for (RB_BUS_ENTRY& Entry : Long.Entries) {
        Entry.RbIndex = 9;
    }
    Long.Entries[255].RbIndex = 5;
    Long.Entries[256].RbIndex = 6;
    const struct {
        const RB_BUS_MAP* Map;
        UINT8 Socket, Iom;
        EFI_STATUS Status;
        UINT8 Index;
    } Cases[] = {
        {&Made.Map, 0, 3, EFI_SUCCESS, 1},
        {&Made.Map, 1, 6, EFI_SUCCESS, 4},
        {&Made.Map, 1, 7, EFI_NOT_FOUND, 0xEE},
        {&Made.Map, 2, 0, EFI_INVALID_PARAMETER, 0xEE},
        {&Made.Map, 0, 8, EFI_INVALID_PARAMETER, 0xEE},
        {nullptr, 0, 0, EFI_INVALID_PARAMETER, 0xEE},
        {&Long.Map, 0, 5, EFI_SUCCESS, 255},
        {&Long.Map, 0, 6, EFI_NOT_FOUND, 0xEE},
    };
    for (const auto& Case : Cases) {
        UINT8 Index = 0xEE;
        EXPECT_EQ(GetIndexByIomFromRbBusMap(Case.Map, Case.Socket, Case.Iom, &Index), Case.Status);
        EXPECT_EQ(Index, Case.Index);
    }
}

std::vector<UINTN> FabricReads;

UINT32 ReadHandMadeFabric(UINTN Socket, UINTN Die, UINTN Function, UINTN Offset, UINTN Instance) {
    FabricReads.push_back(Instance);
    if (Socket == 0 && Die == 0 && Function == 0 && Offset == 0x50) {
        // Fabric IDs 0x10 to 0x16; instance 0x2A repeats the one before it.
        return static_cast<UINT32>(0xFF0000FF | (0x10 + (Instance - 0x28 - (Instance >= 0x2A ? 1 : 0))) << 8);
    }
    if (Die == 0 && Function == 0 && Offset == 0xC04) {
        return static_cast<UINT32>(0xABCDEF00 | Socket << 4 | Instance);
    }
    return 0xFFFFFFFF;
}

TEST_F(FabricTopology, IoStopIsSearchedInstanceByInstance) {
    UINT32 Broken = FabricRegisterAccRead(0, 0, 0, 0x50, 0x28);
    EXPECT_EQ(Broken, 0xFFFFFFFFu) << "no service, no instance";
    EXPECT_EQ(FabricTopologyLibConstructor(nullptr, nullptr), EFI_NOT_FOUND);

    const KYR_FABRIC_REGISTER_PROTOCOL Fabric{ReadHandMadeFabric};
    Smst.Install(gKyrFabricRegisterSmmProtocolGuid, &Fabric);
    ASSERT_EQ(FabricTopologyLibConstructor(nullptr, nullptr), EFI_SUCCESS);
    FabricReads.clear();
    EXPECT_EQ(GetIosInstanceIdFromFabricId(DEBUG_INFO, 0x11), 0x29);
    EXPECT_THAT(FabricReads, testing::ElementsAre(0x28, 0x29));
    FabricReads.clear();
    EXPECT_EQ(GetIosInstanceIdFromFabricId(DEBUG_INFO, 0x17), 0xFF);
    EXPECT_THAT(FabricReads, testing::ElementsAre(0x28, 0x29, 0x2A, 0x2B, 0x2C, 0x2D, 0x2E, 0x2F));
    EXPECT_EQ(GetIosInstanceIdFromFabricId(0x16), 0x2F);
    EXPECT_EQ(GetIosInstanceIdFromFabricId(0x111), 0xFF) << "an ID wider than the field matches nothing";
}

TEST_F(FabricTopology, IoLinkBusIsReadFromTheFabricOfAPresentNode) {
    const KYR_FABRIC_REGISTER_PROTOCOL Fabric{ReadHandMadeFabric};
    Smst.Install(gKyrFabricRegisterSmmProtocolGuid, &Fabric);
    ASSERT_EQ(FabricTopologyLibConstructor(nullptr, nullptr), EFI_SUCCESS);
    const struct {
        UINT8 Node, Link;
        EFI_STATUS Status;
        UINT8 Bus;
    } Cases[] = {
        {0, 0, EFI_SUCCESS, 0x20},           {1, 1, EFI_SUCCESS, 0x31},
        {0, 2, EFI_INVALID_PARAMETER, 0xEE}, {2, 0, EFI_INVALID_PARAMETER, 0xEE},  // two sockets: no third node
        {8, 0, EFI_INVALID_PARAMETER, 0xEE},
    };
    for (const auto& Case : Cases) {
        UINT8 Bus = 0xEE;
        EXPECT_EQ(AcquireNbioSecBusNum(Case.Node, Case.Link, &Bus), Case.Status);
        EXPECT_EQ(Bus, Case.Bus);
    }
}

}  // namespace
