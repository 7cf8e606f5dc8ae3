// What an error leaves in the registers of its function, of the ports above and of the IO hub; register states worked
// out by hand from figures 6-2 and 6-3 of the PCI Express Base specification.
#include <gtest/gtest.h>

#include "Tests/Support/PcieWorld.h"

namespace Simulator {
namespace {

constexpr TlpWords WRITE{0x40000001, 0x0100000F, 0xC0001000, 0};
constexpr TlpWords READ{0x00000001, 0x0100000F, 0xC0001000, 0};

// What an error of nic0, 01:00.0 below 00:01.0, leaves where everything is enabled and nothing masked.
struct Left {
    std::uint32_t DeviceStatus, Uncorrectable, Correctable;
    unsigned First;                    // 0xFF: no pointer, no header
    std::uint32_t RootStatus, Source;  // of the port
};
constexpr bool IsSmi(std::uint32_t RootStatus) {
    return RootStatus > 1;  // correctable ones raise nothing until the hub is told so
}

TEST(PciePropagation, ErrorsOfAnEndpointLogAndSignalBySeverityMaskAndRole) {
    constexpr const char *UR = "unsupported-request", *ABORT = "completer-abort", *TIMEOUT = "completion-timeout";
    struct Register {
        std::uint32_t Offset = 0, Value = 0;
    };
    const Register Unmasked{0x114, 0}, NoReports{0x50, 0x2830}, Serr{0x04, 0x00100106};
    constexpr std::uint32_t ID = 0x01000000;
    const struct {
        const char* What;
        const char* Error;
        std::optional<TlpWords> Header;
        std::vector<Register> Before;  // doublewords of nic0
        Left Expected;
    } Cases[] = {
        {"fatal", "malformed-tlp", WRITE, {}, {4, 0x40000, 0, 18, 0x54, ID}},
        {"non-fatal", TIMEOUT, READ, {}, {2, 0x4000, 0, 14, 0x24, ID}},
        {"correctable", "bad-tlp", {}, {}, {1, 0, 0x40, 0xFF, 0x01, 0x0100}},
        {"a posted request that is not supported", UR, WRITE, {}, {0xA, 0x100000, 0, 20, 0x24, ID}},
        {"a non-posted one is advisory", UR, READ, {Unmasked}, {9, 0x100000, 0x2000, 20, 0x01, 0x0100}},
        {"fatal by software's choice", UR, READ, {{0x10C, 0x00562030}}, {0xC, 0x100000, 0, 20, 0x54, ID}},
        {"completer abort of a read", ABORT, READ, {Unmasked}, {1, 0x8000, 0x2000, 15, 0x01, 0x0100}},
        {"advisory whatever the request",
         "unexpected-completion",
         WRITE,
         {Unmasked},
         {1, 1 << 16, 0x2000, 16, 1, 256}},
        {"advisory and masked", UR, READ, {{0x114, 0x2000}}, {9, 0, 0x2000, 0xFF, 0, 0}},
        {"uncorrectable and masked", TIMEOUT, READ, {{0x108, 0x4000}}, {2, 0x4000, 0, 0xFF, 0, 0}},
        {"correctable and masked", "bad-tlp", {}, {{0x114, 0x40}}, {1, 0, 0x40, 0xFF, 0, 0}},
        {"unsupported requests unreported", UR, WRITE, {{0x50, 0x2837}}, {0xA, 0x100000, 0, 20, 0, 0}},
        {"unreported, but SERR# is enabled", UR, WRITE, {NoReports, Serr}, {0xA, 0x100000, 0, 20, 0x24, ID}},
        {"fatal errors unreported", "malformed-tlp", WRITE, {{0x50, 0x283B}}, {4, 0x40000, 0, 18, 0, 0}},
        {"correctable errors unreported", "receiver", {}, {{0x50, 0x283E}}, {1, 0, 1, 0xFF, 0, 0}},
        {"PCI Express 1.0a has no advisory ones", UR, READ, {{0x4C, 1 << 28 | 2}}, {0xA, 0x100000, 0, 20, 0x24, ID}},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        PcieWorld World;
        PcieFunction& Function = World["nic0"];
        PcieFunction& Port = World["port0"];
        for (const Register& One : Case.Before) {
            Function.Poke(One.Offset, 4, One.Value);
        }
        World.Fail("nic0", Case.Error, Case.Header);
        const Left& Wanted = Case.Expected;
        EXPECT_EQ(World.Read(Function, 0x52, 2), Wanted.DeviceStatus);
        EXPECT_EQ(World.Read(Function, 0x104), Wanted.Uncorrectable);
        EXPECT_EQ(World.Read(Function, 0x110), Wanted.Correctable);
        EXPECT_EQ(World.Read(Function, 0x118) & 0x1F, Wanted.First == 0xFF ? 0 : Wanted.First);
        EXPECT_EQ(World.Read(Function, 0x124), Wanted.First == 0xFF ? 0 : 0xC0001000u);
        EXPECT_EQ(World.Read(Port, 0x130), Wanted.RootStatus);
        EXPECT_EQ(World.Read(Port, 0x134), Wanted.Source);
        EXPECT_EQ(World.Fabric.HasSmiPending(), IsSmi(Wanted.RootStatus));
        EXPECT_EQ(World.Fabric.Hub(0).GlobalStatusHi(), IsSmi(Wanted.RootStatus) ? 1u : 0u);
    }
}

TEST(PciePropagation, FirstErrorKeepsItsHeaderUntilItsStatusIsCleared) {
    PcieWorld World;
    PcieFunction& Function = World["nic0"];
    World.Fail("nic0", "completion-timeout", TlpWords{1, 1, 1, 1});
    World.Fail("nic0", "poisoned-tlp", TlpWords{2, 2, 2, 2});
    World.Fail("nic0", "completion-timeout", TlpWords{3, 3, 3, 3});
    EXPECT_EQ(World.Read(Function, 0x104), 0x5000u);
    EXPECT_EQ(World.Read(Function, 0x118) & 0x1F, 14u);
    EXPECT_EQ(World.Read(Function, 0x11C), 1u);
    World.Write(Function, 0x104, 0x4000);
    World.Fail("nic0", "ecrc", TlpWords{4, 4, 4, 4});
    EXPECT_EQ(World.Read(Function, 0x118) & 0x1F, 19u);
    EXPECT_EQ(World.Read(Function, 0x128), 4u);
}

TEST(PciePropagation, RootStatusTellsFirstAndFurtherErrors) {
    const struct {
        const char* What;
        std::vector<std::pair<const char*, const char*>> Errors;
        std::uint32_t Status, Source;
    } Cases[] = {
        {"two correctable", {{"nic0", "bad-tlp"}, {"nic1", "receiver"}}, 0x03, 0x00000100},
        {"fatal, then non-fatal", {{"nic1", "malformed-tlp"}, {"nic0", "poisoned-tlp"}}, 0x7C, 0x01010000},
        {"non-fatal, then fatal: the first was none",
         {{"nic0", "poisoned-tlp"}, {"nic0", "malformed-tlp"}},
         0x6C,
         0x01000000},
        {"one of each", {{"nic0", "bad-dllp"}, {"nic1", "poisoned-tlp"}}, 0x25, 0x01010100},
        {"the port's own", {{"port0", "uncorrectable-internal"}, {"port0", "corrected-internal"}}, 0x55, 0x00080008},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        PcieWorld World;
        for (const auto& [At, Error] : Case.Errors) {
            World.Fail(At, Error, WRITE);
        }
        EXPECT_EQ(World.Read(World["port0"], 0x130), Case.Status);
        EXPECT_EQ(World.Read(World["port0"], 0x134), Case.Source);
    }
}

// A message from nvme0 passes bay0, the switch's upstream port and port1.
TEST(PciePropagation, PortsForwardWhatTheyAreEnabledTo) {
    const struct {
        const char* What;
        const char* Port;
        unsigned Offset;
        std::uint32_t Value;  // 16 bits
        bool Fatal, Correctable;
    } Cases[] = {
        {"as it is", "bay0", 0x3E, 0x0003, true, true},
        {"bridge control SERR# at the first port", "bay0", 0x3E, 0x0001, false, false},
        {"at the upstream port", "switch", 0x3E, 0x0001, false, false},
        {"at the root port", "port1", 0x3E, 0x0001, false, false},
        {"fatal reporting off at the upstream port", "switch", 0x50, 0x283B, false, true},
        {"correctable reporting off at the root port", "port1", 0x50, 0x283E, true, false},
        {"non-fatal reporting stops neither", "bay0", 0x50, 0x283D, true, true},
        {"system errors off at the root", "port1", 0x64, 0x0000, true, true},
    };
    for (const auto& Case : Cases) {
        for (const bool IsFatal : {true, false}) {
            SCOPED_TRACE(testing::Message() << Case.What << (IsFatal ? ", fatal" : ", correctable"));
            PcieWorld World;
            World.Write(World[Case.Port], Case.Offset, Case.Value, 2);
            World.Fail("nvme0", IsFatal ? "malformed-tlp" : "bad-tlp", WRITE);
            const bool Arrives = IsFatal ? Case.Fatal : Case.Correctable;
            EXPECT_EQ(World.Read(World["port1"], 0x130), !Arrives ? 0 : IsFatal ? 0x54u : 0x01u);
            const bool HasSystemErrors = Case.Offset != 0x64;
            EXPECT_EQ(World.Fabric.HasSmiPending(), Arrives && IsFatal && HasSystemErrors);
        }
    }
}

// A conventional card behind a PCIe-to-PCI bridge, and one that stands on a link.
TEST(PciePropagation, ConventionalErrorsBecomeMessages) {
    const struct {
        const char* What;
        const char* Error;
        std::uint32_t Command;        // of the card
        std::uint32_t SecondaryMask;  // of the bridge
        std::uint32_t CardStatus, SecondaryStatus, SecondaryUncorrectable, RootStatus;
    } Cases[] = {
        {"system error", "pci-system-error", 0x0146, 0x17A8, 0x4010, 0x4000, 0x1000, 0x54},
        {"SERR# not enabled", "pci-system-error", 0x0046, 0x17A8, 0x0010, 0, 0, 0},
        {"parity, answered: the bridge sees PERR#", "pci-parity", 0x0146, 0x17A8, 0x8010, 0, 0x0800, 0x24},
        {"parity, answered, and masked there", "pci-parity", 0x0146, 0x1FA8, 0x8010, 0, 0x0800, 0},
        {"parity, not answered", "pci-parity", 0x0106, 0x17A8, 0x8010, 0, 0, 0},
        {"as a master", "pci-master-data-parity", 0x0146, 0x17A8, 0x0110, 0, 0, 0},
        {"as a master that does not answer", "pci-master-data-parity", 0x0106, 0x17A8, 0x0010, 0, 0, 0},
        {"aborts are only noted", "pci-received-master-abort", 0x0146, 0x17A8, 0x2010, 0, 0, 0},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        PcieWorld World(
            OnePort(Described("port", PcieKind::RootPort,
                              {Described("bridge", PcieKind::PcieToPciBridge, {Described("card", PcieKind::Pci)})})));
        World.Write(World["card"], 0x04, Case.Command, 2);
        World.Write(World["bridge"], 0x130, Case.SecondaryMask);
        World.Fail("card", Case.Error);
        EXPECT_EQ(World.Read(World["card"], 0x06, 2), Case.CardStatus);
        EXPECT_EQ(World.Read(World["bridge"], 0x1E, 2), Case.SecondaryStatus);
        EXPECT_EQ(World.Read(World["bridge"], 0x12C), Case.SecondaryUncorrectable);
        EXPECT_EQ(World.Read(World["port"], 0x130), Case.RootStatus);
    }
    PcieWorld World(OnePort(Described("port", PcieKind::RootPort, {Described("card", PcieKind::Pci)})));
    World.Fail("card", "pci-system-error");
    EXPECT_EQ(World.Read(World["port"], 0x130), 0x54u);
    EXPECT_EQ(World.Read(World["port"], 0x1E, 2), 0x4000u);
}

}  // namespace
}  // namespace Simulator
