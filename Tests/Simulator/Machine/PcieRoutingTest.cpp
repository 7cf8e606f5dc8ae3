// Who answers a configuration request: bridges by their bus numbers, links, power states; and what a request that
// nobody answers leaves at the port above.
#include <gtest/gtest.h>

#include "Tests/Support/PcieWorld.h"

namespace Simulator {
namespace {

std::uint32_t Vendor(PcieWorld& World, unsigned Bus, unsigned Device, unsigned Function = 0) {
    return World.Space.Read({0, Bus, Device, Function}, 0, 2);
}

TEST(PcieRouting, DefaultHierarchyIsWhereItsBusNumbersSay) {
    PcieWorld World;
    const struct {
        const char* Name;
        PciAddress Where;
        std::uint32_t Buses;  // primary, secondary, subordinate
        unsigned HeaderType;
    } Cases[] = {
        {"port0", {0, 0, 1, 0}, 0x010100, 0x01},
        {"nic0", {0, 1, 0, 0}, 0, 0x80},
        {"nic1", {0, 1, 0, 1}, 0, 0x80},
        {"port1", {0, 0, 2, 0}, 0x050200, 0x01},
        {"switch", {0, 2, 0, 0}, 0x050302, 0x01},
        {"bay0", {0, 3, 0, 0}, 0x040403, 0x01},
        {"nvme0", {0, 4, 0, 0}, 0, 0x00},
        {"bay1", {0, 3, 1, 0}, 0x050503, 0x01},
        {"nvme1", {0, 5, 0, 0}, 0, 0x00},
        {"port2", {0, 0, 3, 0}, 0x060600, 0x01},
        {"port3", {0, 0x20, 1, 0}, 0x212120, 0x01},
        {"accelerator", {0, 0x21, 0, 0}, 0, 0x00},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.Name);
        EXPECT_EQ(World[Case.Name].Where(), Case.Where);
        EXPECT_EQ(World.Space.Find(Case.Where), &World[Case.Name]);
        EXPECT_EQ(World.Read(World[Case.Name], 0x0E, 1), Case.HeaderType);
        if (Case.Buses != 0) {
            EXPECT_EQ(World.Read(World[Case.Name], 0x18) & 0xFFFFFF, Case.Buses);
        }
    }
    EXPECT_EQ(Vendor(World, 1, 0, 2), 0xFFFFu);
    EXPECT_EQ(Vendor(World, 7, 0), 0xFFFFu) << "no bridge claims the bus";
    EXPECT_EQ(World.Space.Read({3, 0, 0, 0}, 0, 4), 0xFFFFFFFFu) << "no such segment";
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

TEST(PcieRouting, SleepingFunctionsAnswerAndSleepingBridgesForwardNothing) {
    PcieWorld World;
    World.Write(World["nvme0"], 0x44, 0x000B, 2);  // D3hot
    EXPECT_EQ(Vendor(World, 4, 0), 0x1D9Bu);
    EXPECT_TRUE(World["nvme0"].IsInD3Hot());
    World.Write(World["bay0"], 0x44, 0x000B, 2);
    EXPECT_EQ(Vendor(World, 3, 0), 0x1000u);
    EXPECT_EQ(Vendor(World, 4, 0), 0xFFFFu);
    World.Write(World["bay0"], 0x44, 0x0008, 2);
    EXPECT_EQ(Vendor(World, 4, 0), 0x1D9Bu);
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

TEST(PcieRouting, RegistersBehindBaseAddressesDecodeMemoryOnly) {
    struct Counter : MmioDevice {
        std::optional<std::uint64_t> Read(std::uint64_t Offset, unsigned) override {
            return Offset == 0x10 ? std::optional<std::uint64_t>(Value) : std::nullopt;
        }
        bool Write(std::uint64_t Offset, unsigned, std::uint64_t New) override {
            Value = New;
            return Offset == 0x10;
        }
        std::uint64_t Value = 7;
    } Device;
    PcieWorld World;
    PcieFunction& Card = World["accelerator"];
    World.Fabric.MapBar(Card, 0, 0x10000, Device);
    const std::uint64_t Base = Card.BarBase(0);
    EXPECT_EQ(World.Fabric.ReadMemory(Base + 0x10, 4), 7u);
    EXPECT_TRUE(World.Fabric.WriteMemory(Base + 0x10, 4, 9));
    EXPECT_EQ(World.Fabric.ReadMemory(Base + 0x14, 4), std::nullopt);
    EXPECT_EQ(World.Fabric.ReadMemory(Base + 0x100000, 4), std::nullopt) << "behind the port's window";
    World.Write(Card, 0x10, static_cast<std::uint32_t>(Base + 0x20000) | 4);
    EXPECT_EQ(World.Fabric.ReadMemory(Base + 0x10, 4), 0xFFFFFFFFu) << "in the port's window still";
    EXPECT_EQ(World.Fabric.ReadMemory(Base + 0x20010, 4), 9u);
    World.Write(Card, 0x04, 0x0004, 2);
    EXPECT_EQ(World.Fabric.ReadMemory(Base + 0x20010, 4), 0xFFFFFFFFu) << "memory space is off";
    EXPECT_TRUE(World.Fabric.WriteMemory(Base + 0x20010, 4, 1)) << "lost";
    World.Write(Card, 0x04, 0x0006, 2);
    World.Fabric.SetLink(World["port3"], false);
    EXPECT_EQ(World.Fabric.ReadMemory(Base + 0x20010, 4), 0xFFFFFFFFu) << "the link is down";
    EXPECT_EQ(Device.Value, 9u);
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
