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

TEST(PcieRouting, RequestsThatNobodyAnswersAreLoggedWhereTheyEnd) {
    constexpr std::uint32_t NO_COMPLETER = 0x2000;  // received master abort
    const struct {
        const char* What;
        const char* Port;
        unsigned Bus, Device, Function;
        bool IsRoot;
        bool IsCompleter;
    } Cases[] = {
        {"a link has no device but 0: its port completes", "port0", 1, 1, 0, true, true},
        {"a function that device 0 does not have", "port0", 1, 0, 5, true, false},
        {"an empty slot", "port2", 6, 0, 0, true, true},
        {"a switch has no such downstream port", "switch", 3, 7, 0, false, true},
        {"below a switch's port", "bay1", 5, 2, 0, false, true},
        {"a function below a switch's port", "bay1", 5, 0, 2, false, false},
    };
    for (const auto& Case : Cases) {
        for (const ProbeLogging Probes : {ProbeLogging::None, ProbeLogging::RootPorts, ProbeLogging::All}) {
            SCOPED_TRACE(testing::Message() << Case.What << ", " << static_cast<int>(Probes));
            PcieSettings Settings;
            Settings.Probes = Probes;
            PcieWorld World(Settings);
            PcieFunction& Port = World[Case.Port];
            Port.Poke(0x114, 4, 0);
            EXPECT_EQ(Vendor(World, Case.Bus, Case.Device, Case.Function), 0xFFFFu);
            const bool Logs = Probes == ProbeLogging::All || (Probes == ProbeLogging::RootPorts && Case.IsRoot);
            const bool Completes = Logs && Case.IsCompleter;
            EXPECT_EQ(Port.Peek(0x52, 2), Completes ? 0x9u : 0u);
            EXPECT_EQ(Port.Peek(0x104, 4), Completes ? 0x100000u : 0u);
            EXPECT_EQ(Port.Peek(0x110, 4), Completes ? 0x2000u : 0u);
            EXPECT_EQ(Port.Peek(0x1E, 2), Logs && !Completes ? NO_COMPLETER : 0u);
            if (Port.HasRootPortExtensions()) {
                EXPECT_EQ(Port.Peek(0x180, 4), Logs && !Completes ? 1u : 0u)
                    << "UR completion of a configuration request";
            }
            if (Completes) {
                EXPECT_EQ(Port.Peek(0x118, 4) & 0x1F, 20u) << "first error";
                EXPECT_EQ(Port.Peek(0x11C, 4), 0x04000001u) << "a configuration read";
                EXPECT_EQ(Port.Peek(0x124, 4), Case.Bus << 24 | Case.Device << 19 | Case.Function << 16);
            }
        }
    }
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
