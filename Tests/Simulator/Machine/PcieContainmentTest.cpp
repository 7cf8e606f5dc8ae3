// Containment, links and slots: what triggers, what is logged, what answers, and what brings a link back.
#include <gtest/gtest.h>

#include "Tests/Support/PcieWorld.h"

namespace Simulator {
namespace {

constexpr TlpWords WRITE{0x40000001, 0x0100000F, 0xC0001000, 0};
constexpr unsigned DPC = 0x174;  // of a port with AER and secondary PCI Express

// One DPC-capable root port (00:01.0) with a slot and a card (01:00.0), as the test wants them.
PcieSettings Contained(unsigned Trigger, bool ErrCor = true, bool Interrupt = false) {
    PcieFunctionSetting Port = Described("port", PcieKind::RootPort, {Described("card", PcieKind::Endpoint)});
    Port.Dpc = DpcSetting{true, 5, Trigger, ErrCor, Interrupt};
    Port.Slot = PcieSlotSetting{};
    return OnePort(Port);
}

TEST(PcieContainment, TriggersByWhatItIsEnabledFor) {
    const struct {
        const char* What;
        unsigned Trigger;
        const char* At;
        const char* Error;
        std::uint32_t Status;  // of DPC
        std::uint32_t Source;
    } Cases[] = {
        {"fatal message", 1, "card", "malformed-tlp", 0x0005, 0x0100},
        {"non-fatal message, fatal wanted", 1, "card", "poisoned-tlp", 0x0000, 0},
        {"non-fatal message", 2, "card", "poisoned-tlp", 0x0003, 0x0100},
        {"correctable message", 2, "card", "bad-tlp", 0x0000, 0},
        {"the port's own fatal error", 1, "port", "uncorrectable-internal", 0x0001, 0},
        {"the port's own non-fatal error, fatal wanted", 1, "port", "poisoned-tlp", 0x0000, 0},
        {"the port's own non-fatal error", 2, "port", "poisoned-tlp", 0x0001, 0},
        {"disabled", 0, "card", "malformed-tlp", 0x0000, 0},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        PcieWorld World(Contained(Case.Trigger));
        PcieFunction& Port = World["port"];
        World.Fail(Case.At, Case.Error, WRITE);
        EXPECT_EQ(World.Read(Port, DPC + 0x08, 2), Case.Status);
        EXPECT_EQ(World.Read(Port, DPC + 0x0A, 2), Case.Source);
        const bool IsContained = Case.Status != 0;
        EXPECT_EQ(World.Fabric.IsLinkUp(Port), !IsContained);
        EXPECT_EQ(World.Space.Read({0, 1, 0, 0}, 0, 2), IsContained ? 0xFFFFu : 0x1D9Bu);
        EXPECT_EQ(World.Read(Port, 0x5A, 2) & 0x2000, IsContained ? 0u : 0x2000u) << "link active";
        if (IsContained) {
            // The message is not forwarded; ERR_COR tells the firmware instead.
            EXPECT_EQ(World.Read(Port, 0x130), 0x01u);
            EXPECT_EQ(World.Read(Port, 0x134), 0x0008u);
            EXPECT_TRUE(World.Fabric.HasSmiPending());
        }
    }
}

TEST(PcieContainment, SignalsAsItsControlSays) {
    const struct {
        bool ErrCor, Interrupt;
        std::uint32_t DeviceControl;
        bool Smi;
        std::uint32_t Status;
    } Cases[] = {
        {true, false, 0x283F, true, 0x5},  {false, false, 0x283F, false, 0x5}, {true, false, 0x283E, false, 0x5},
        {false, true, 0x283F, false, 0xD}, {true, true, 0x283F, true, 0xD},
    };
    for (const auto& Case : Cases) {
        PcieWorld World(Contained(2, Case.ErrCor, Case.Interrupt));
        World.Write(World["port"], 0x50, Case.DeviceControl, 2);
        World.Fail("card", "malformed-tlp", WRITE);
        EXPECT_EQ(World.Fabric.HasSmiPending(), Case.Smi);
        EXPECT_EQ(World.Read(World["port"], DPC + 0x08, 2), Case.Status);
        EXPECT_EQ(World.Interrupts.size(), Case.Interrupt ? 1u : 0u);
    }
}

TEST(PcieContainment, ProgrammedIoErrorsLogAndSignalBySeverity) {
    const struct {
        const char* What;
        std::uint32_t Mask, Severity, SysError;
        std::uint32_t Dpc;
        std::uint32_t Log;  // first doubleword of the header
        bool Smi, Link;
    } Cases[] = {
        {"masked", 0x00070707, 0x00070707, 0x00070707, 0x0000, 0, false, true},
        {"advisory", 0, 0, 0, 0x1000, 0x40000001, true, true},
        {"advisory and a system error", 0, 0, 0x00010000, 0x1000, 0x40000001, true, true},
        {"severe", 0, 0x00010000, 0, 0x1007, 0x40000001, true, false},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        PcieWorld World(Contained(2));
        PcieFunction& Port = World["port"];
        World.Write(Port, DPC + 0x10, Case.Mask);
        World.Write(Port, DPC + 0x14, Case.Severity);
        World.Write(Port, DPC + 0x18, Case.SysError);
        World.Fail("port", "rp-pio-memory-ur", WRITE);
        EXPECT_EQ(World.Read(Port, DPC + 0x0C), 0x00010000u);
        EXPECT_EQ(World.Read(Port, DPC + 0x08, 2), Case.Dpc);
        EXPECT_EQ(World.Read(Port, DPC + 0x20), Case.Log);
        EXPECT_EQ(World.Fabric.HasSmiPending(), Case.Smi);
        EXPECT_EQ(World.Fabric.IsLinkUp(Port), Case.Link);
    }
    PcieWorld World(Contained(0, false));
    World.Write(World["port"], DPC + 0x18, 0x00040000);
    World.Fail("port", "rp-pio-memory-timeout");
    EXPECT_TRUE(World.Fabric.HasSmiPending()) << "a system error needs no containment";
}

// bay0 is a switch's port with a slot: hot-plug capable, no power controller.
TEST(PcieSlot, RemovalAndInsertionShowInItsRegisters) {
    PcieWorld World;
    PcieFunction& Bay = World["bay0"];
    EXPECT_EQ(World.Read(Bay, 0x62, 2), 0x0040u);
    World.Fabric.Remove(Bay, true);
    EXPECT_EQ(World.Read(Bay, 0x62, 2), 0x0108u) << "presence and link state changed, nothing is there";
    EXPECT_EQ(World.Read(Bay, 0x5A, 2) & 0x2000, 0u);
    EXPECT_EQ(World.Space.Read({0, 4, 0, 0}, 0, 4), 0xFFFFFFFFu);
    World.Write(Bay, 0x62, 0x0108, 2);
    World.Fabric.Insert(Bay);
    EXPECT_EQ(World.Read(Bay, 0x62, 2), 0x0148u);
    EXPECT_EQ(World.Space.Read({0, 4, 0, 0}, 0, 2), 0x1D9Bu);
    // An empty slot.
    EXPECT_EQ(World.Read(World["port2"], 0x62, 2), 0u);
    EXPECT_FALSE(World.Fabric.IsLinkUp(World["port2"]));
}

}  // namespace
}  // namespace Simulator
