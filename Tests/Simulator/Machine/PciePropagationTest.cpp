// What an error leaves in the registers of its function, of the ports above and of the IO hub; register states worked
// out by hand from figures 6-2 and 6-3 of the PCI Express Base specification.
#include <gtest/gtest.h>

#include "Tests/Support/PcieWorld.h"

namespace Simulator {
namespace {

constexpr TlpWords WRITE{0x40000001, 0x0100000F, 0xC0001000, 0};
constexpr TlpWords READ{0x00000001, 0x0100000F, 0xC0001000, 0};

// nic0 is 01:00.0 below 00:01.0; its registers with everything enabled and nothing masked.
TEST(PciePropagation, ErrorsOfAnEndpointLogAndSignalBySeverityMaskAndRole) {
    struct Registers {
        std::uint32_t Offset = 0, Value = 0;
    };
    const struct {
        const char* What;
        const char* Error;
        std::optional<TlpWords> Header;
        Registers Before[2];  // doublewords of nic0
        std::uint32_t DeviceStatus, Uncorrectable, Correctable;
        unsigned First;            // 0xFF: no pointer
        std::uint32_t RootStatus;  // of the port
        std::uint32_t Source;
        bool Smi;
    } Cases[] = {
        {"fatal", "malformed-tlp", WRITE, {}, 0x4, 0x40000, 0, 18, 0x54, 0x01000000, true},
        {"non-fatal", "completion-timeout", READ, {}, 0x2, 0x4000, 0, 14, 0x24, 0x01000000, true},
        {"correctable raises nothing until the hub is told so",
         "bad-tlp",
         {},
         {},
         0x1,
         0,
         0x40,
         0xFF,
         0x01,
         0x0100,
         false},
        {"a posted request that is not supported",
         "unsupported-request",
         WRITE,
         {},
         0xA,
         0x100000,
         0,
         20,
         0x24,
         0x01000000,
         true},
        {"a non-posted one is advisory",
         "unsupported-request",
         READ,
         {{0x114, 0}},
         0x9,
         0x100000,
         0x2000,
         20,
         0x01,
         0x0100,
         false},
        {"fatal by software's choice, so not advisory",
         "unsupported-request",
         READ,
         {{0x10C, 0x00562030}},
         0xC,
         0x100000,
         0,
         20,
         0x54,
         0x01000000,
         true},
        {"completer abort of a read is advisory",
         "completer-abort",
         READ,
         {{0x114, 0}},
         0x1,
         0x8000,
         0x2000,
         15,
         0x01,
         0x0100,
         false},
        {"unexpected completions always are",
         "unexpected-completion",
         WRITE,
         {{0x114, 0}},
         0x1,
         0x10000,
         0x2000,
         16,
         0x01,
         0x0100,
         false},
        {"advisory and masked: the uncorrectable status is not touched",
         "unsupported-request",
         READ,
         {{0x114, 0x2000}},
         0x9,
         0,
         0x2000,
         0xFF,
         0,
         0,
         false},
        {"uncorrectable and masked: status, but no pointer, no header, no message",
         "completion-timeout",
         READ,
         {{0x108, 0x4000}},
         0x2,
         0x4000,
         0,
         0xFF,
         0,
         0,
         false},
        {"correctable and masked", "bad-tlp", {}, {{0x114, 0x40}}, 0x1, 0, 0x40, 0xFF, 0, 0, false},
        {"unsupported requests unreported",
         "unsupported-request",
         WRITE,
         {{0x50, 0x2837}},
         0xA,
         0x100000,
         0,
         20,
         0,
         0,
         false},
        {"unreported, but SERR# is enabled",
         "unsupported-request",
         WRITE,
         {{0x50, 0x2830}, {0x04, 0x00100106}},
         0xA,
         0x100000,
         0,
         20,
         0x24,
         0x01000000,
         true},
        {"fatal errors unreported", "malformed-tlp", WRITE, {{0x50, 0x283B}}, 0x4, 0x40000, 0, 18, 0, 0, false},
        {"correctable errors unreported", "receiver", {}, {{0x50, 0x283E}}, 0x1, 0, 0x1, 0xFF, 0, 0, false},
        {"PCI Express 1.0a knows no advisory errors",
         "unsupported-request",
         READ,
         {{0x4C, 0x10000002}},
         0xA,
         0x100000,
         0,
         20,
         0x24,
         0x01000000,
         true},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        PcieWorld World;
        PcieFunction& Function = World["nic0"];
        PcieFunction& Port = World["port0"];
        for (const Registers& One : Case.Before) {
            if (One.Offset != 0) {
                Function.Poke(One.Offset, 4, One.Value);
            }
        }
        World.Fail("nic0", Case.Error, Case.Header);
        EXPECT_EQ(World.Read(Function, 0x52, 2), Case.DeviceStatus);
        EXPECT_EQ(World.Read(Function, 0x104), Case.Uncorrectable);
        EXPECT_EQ(World.Read(Function, 0x110), Case.Correctable);
        EXPECT_EQ(World.Read(Function, 0x118) & 0x1F, Case.First == 0xFF ? 0 : Case.First);
        EXPECT_EQ(World.Read(Function, 0x124), Case.First == 0xFF ? 0 : 0xC0001000u);
        EXPECT_EQ(World.Read(Port, 0x130), Case.RootStatus);
        EXPECT_EQ(World.Read(Port, 0x134), Case.Source);
        EXPECT_EQ(World.Fabric.HasSmiPending(), Case.Smi);
        EXPECT_EQ(World.Fabric.Hub(0).GlobalStatusHi(), Case.Smi ? 1u : 0u);
    }
}

TEST(PciePropagation, PciStatusTellsOfPoisonAndAborts) {
    PcieWorld World;
    World.Fail("nic0", "poisoned-tlp", WRITE);
    EXPECT_EQ(World.Read(World["nic0"], 0x06, 2), 0x8010u);
    World.Fail("nic1", "completer-abort", READ);
    EXPECT_EQ(World.Read(World["nic1"], 0x06, 2), 0x0810u);
    World.Write(World["nvme0"], 0x04, 0x0106, 2);
    World.Fail("nvme0", "malformed-tlp", WRITE);
    EXPECT_EQ(World.Read(World["nvme0"], 0x06, 2), 0x4010u) << "signaled system error";
    EXPECT_EQ(World.Read(World["bay0"], 0x1E, 2), 0x4000u) << "received system error";
    EXPECT_EQ(World.Read(World["port1"], 0x1E, 2), 0x4000u);
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

TEST(PciePropagation, RootErrorCommandInterruptsTheOs) {
    PcieWorld World;
    World.Write(World["port0"], 0x12C, 0x4);
    World.Fail("nic0", "bad-tlp");
    EXPECT_TRUE(World.Interrupts.empty());
    World.Fail("nic0", "malformed-tlp", WRITE);
    EXPECT_EQ(World.Interrupts, std::vector<std::string>{"port0 aer"});
}

TEST(PciePropagation, OsFirstMachinesSignalNothingToTheFirmware) {
    PcieWorld World({}, false);
    World.Fail("nic0", "malformed-tlp", WRITE);
    EXPECT_EQ(World.Read(World["port0"], 0x130), 0x54u);
    EXPECT_FALSE(World.Fabric.HasSmiPending());
}

TEST(PciePropagation, MessagesDoNotCrossALinkThatIsDown) {
    PcieWorld World;
    World.Fabric.SetLink(World["port0"], false);
    World.Write(World["port0"], 0x130, 0x7F);
    World.Fail("nic0", "malformed-tlp", WRITE);
    EXPECT_EQ(World["port0"].Peek(0x130, 4), 0u);
}

// Event collectors hear integrated endpoints of their bus; without one nobody does.
TEST(PciePropagation, IntegratedEndpointsReportToTheirCollector) {
    for (const bool HasCollector : {true, false}) {
        PcieSettings Settings = OnePort(Described("device", PcieKind::IntegratedEndpoint));
        if (HasCollector) {
            Settings.Ports.push_back({0, 4, false, 0, Described("collector", PcieKind::EventCollector)});
        }
        PcieWorld World(Settings);
        World.Fail("device", "uncorrectable-internal");
        EXPECT_EQ(World.Fabric.Hub(0).GlobalStatusHi(), HasCollector ? 0x10u : 0u);
        EXPECT_EQ(World.Fabric.RootPorts().size(), HasCollector ? 1u : 0u);
        if (HasCollector) {
            EXPECT_EQ(World.Read(World["collector"], 0x130), 0x54u);
            EXPECT_EQ(World.Read(World["collector"], 0x134), 0x00080000u);
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

TEST(PciePropagation, FunctionsWithoutAerSignalByTheStandardsSeverities) {
    PcieFunctionSetting Plain = Described("card", PcieKind::Endpoint);
    Plain.Aer = false;
    const struct {
        const char* Error;
        TlpWords Header;
        std::uint32_t DeviceStatus, RootStatus;
    } Cases[] = {
        {"malformed-tlp", WRITE, 0x4, 0x54},       {"poisoned-tlp", WRITE, 0x2, 0x24},
        {"unsupported-request", WRITE, 0xA, 0x24}, {"unsupported-request", READ, 0x9, 0x01},
        {"replay-num-rollover", WRITE, 0x1, 0x01},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.Error);
        PcieWorld World(OnePort(Described("port", PcieKind::RootPort, {Plain})));
        World.Fail("card", Case.Error, Case.Header);
        EXPECT_EQ(World.Read(World["card"], 0x52, 2), Case.DeviceStatus);
        EXPECT_EQ(World.Read(World["port"], 0x130), Case.RootStatus);
    }
}

TEST(PciePropagation, TlpHeadersAreThoseOfTheStandard) {
    EXPECT_EQ(MemoryRequest(true, 0x12345678, 0x0100), (TlpWords{0x40000001, 0x0100000F, 0x12345678, 0}));
    EXPECT_EQ(MemoryRequest(false, 0x1122334455, 0x0100, 4),
              (TlpWords{0x20000004, 0x010000FF, 0x00000011, 0x22334454}));
    EXPECT_EQ(ConfigurationRequest(false, 0x0108, 0x104), (TlpWords{0x04000001, 0x0000000F, 0x01080104, 0}));
    EXPECT_EQ(Message(0x7F, 0x0100, 0x1AB4, true), (TlpWords{0x70000001, 0x0100007F, 0x00001AB4, 0}));
    EXPECT_TRUE(IsNonPosted({0x04000001, 0, 0, 0}));
    EXPECT_TRUE(IsNonPosted({0x42000001, 0, 0, 0})) << "IO write";
    EXPECT_FALSE(IsNonPosted({0x60000001, 0, 0, 0}));
    EXPECT_FALSE(IsNonPosted({0x34000000, 0, 0, 0})) << "message";
}

}  // namespace
}  // namespace Simulator
