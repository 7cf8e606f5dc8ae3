// Who answers a configuration request: bridges by their bus numbers, links, power states; and what a request that
// nobody answers leaves at the port above.
#include <gtest/gtest.h>

#include "Tests/Support/PcieWorld.h"

namespace Simulator {
namespace {

std::uint32_t Vendor(PcieWorld& World, unsigned Bus, unsigned Device, unsigned Function = 0) {
    return World.Space.Read({0, Bus, Device, Function}, 0, 2);
}

TEST(PcieRouting, FollowsTheBusNumbersThatSoftwareWrites) {
    PcieWorld World;
    PcieFunction& Port = World["port0"];
    World.Write(Port, 0x18, 0x0A0900);
    EXPECT_EQ(Vendor(World, 1, 0), 0xFFFFu);
    EXPECT_EQ(Vendor(World, 9, 0), 0x1D9Bu);
    EXPECT_EQ(World["nic0"].RequesterId(), 0x0900);
    World.Write(Port, 0x18, 0);
    EXPECT_EQ(Vendor(World, 9, 0), 0xFFFFu);
    // A switch's ports lie as far as the root port above lets requests through.
    World.Write(World["port1"], 0x1A, 4, 1);
    EXPECT_EQ(Vendor(World, 4, 0), 0x1D9Bu);
    EXPECT_EQ(Vendor(World, 5, 0), 0xFFFFu);
    World.Write(World["port1"], 0x1A, 3, 1);
    EXPECT_EQ(Vendor(World, 3, 1), 0x1000u);
    EXPECT_EQ(Vendor(World, 4, 0), 0xFFFFu);
}

// What firmware does before it looks for functions, and what it finds when it looks back.
TEST(PcieRouting, ProbesRaiseAnErrorUnlessTheyAreKeptFromIt) {
    PcieWorld World;
    PcieFunction& Port = World["port0"];
    World.Fabric.Hub(0).FirmwareEvent(5);  // something to tell a set bit from
    Vendor(World, 1, 3);
    EXPECT_EQ(Port.Peek(0x130, 4), 0x1u) << "ERR_COR received";
    EXPECT_EQ(Port.Peek(0x134, 4), 0x00000008u) << "from the port itself";
    World.Write(Port, 0x130, 0x7F);
    World.Write(Port, 0x104, 0x00100000), World.Write(Port, 0x110, 0x2000), World.Write(Port, 0x52, 0x9, 2);

    World.Write(Port, 0x108, 0x00100000);
    World.Write(Port, 0x114, 0x00002000);
    World.Write(Port, 0x50, 0x2837, 2);  // unsupported requests unreported
    for (unsigned Device = 1; Device < 32; Device++) {
        Vendor(World, 1, Device);
    }
    EXPECT_EQ(Port.Peek(0x130, 4), 0u);
    EXPECT_EQ(Port.Peek(0x104, 4), 0u) << "masked advisory errors stay out of the uncorrectable status";
    EXPECT_EQ(Port.Peek(0x110, 4), 0x2000u);
    EXPECT_EQ(Port.Peek(0x52, 2), 0x9u) << "detected all the same";
}

TEST(PcieRouting, BuildsOnlyWhatFits) {
    EXPECT_THROW(PcieWorld(OnePort(
                     Described("port", PcieKind::RootPort,
                               {Described("card", PcieKind::Endpoint, {Described("child", PcieKind::Endpoint)})}))),
                 std::invalid_argument);
    PcieFunctionSetting Greedy = Described("port", PcieKind::RootPort);
    Greedy.SpareBuses = 40;
    EXPECT_THROW(PcieWorld(OnePort(Greedy)), std::invalid_argument);
    PcieFunctionSetting Twin = Described("port", PcieKind::RootPort,
                                         {Described("a", PcieKind::Endpoint), Described("b", PcieKind::Endpoint)});
    Twin.Below[1].Device = 0;
    EXPECT_THROW(PcieWorld(OnePort(Twin)), std::invalid_argument);
    PcieSettings Elsewhere = OnePort(Described("port", PcieKind::RootPort));
    Elsewhere.Ports[0].RootComplex = 8;
    EXPECT_THROW(PcieWorld{Elsewhere}, std::invalid_argument);
}

}  // namespace
}  // namespace Simulator
