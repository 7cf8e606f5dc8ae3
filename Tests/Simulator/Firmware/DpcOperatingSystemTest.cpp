// The operating system that recovers contained ports and its ACPI code, by the bytes of the memory that they share.
#include "Simulator/Firmware/DpcOperatingSystem.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Machine/Machine.h"
#include "Tests/Support/BootedSimulation.h"

namespace {

using namespace Simulator;
using Clears = DpcOperatingSystem::Clears;

constexpr std::size_t AWARE = 33, TRIGGERED = 0x4D1, REQUESTED = 0x71D;

// One port, 20:04.0, with a card.
Configuration OnePortMachine() {
    Configuration Settings;
    PciePortSetting Port;
    Port.RootComplex = 1;
    Port.Port = 3;
    Port.Function.Name = "port";
    Port.Function.Kind = PcieKind::RootPort;
    Port.Function.Dpc = DpcSetting{};
    Port.Function.Below.resize(1);
    Settings.Pcie.IsDefault = false;
    Settings.Pcie.Ports = {Port};
    return Settings;
}
constexpr PciAddress PORT{0, 0x20, 4, 0};

struct World {
    BootedSimulation Sim{OnePortMachine()};
    DpcOperatingSystem Os{*Sim};

    std::vector<std::uint8_t> Bytes(std::size_t Offset, std::size_t Size) {
        const auto* Base = reinterpret_cast<const std::uint8_t*>(&Os.Shared());
        return {Base + Offset, Base + Offset + Size};
    }
    void SetEntry(std::size_t Index, std::initializer_list<std::uint8_t> Entry) {
        std::memcpy(reinterpret_cast<std::uint8_t*>(&Os.Shared()) + TRIGGERED + 9 * Index, Entry.begin(),
                    Entry.size());
    }
    void Interrupt(UINT32 Cause) {
        Sim->Firmware().Apei.SignalSci(Cause);
        Sim->Firmware().Apei.OperatingSystemRuns();
    }
    PcieFunction& Port() {
        return *Sim->Machine().Pcie().Find("port");
    }
};

TEST(DpcOperatingSystem, ARequestEntersThePortOnceAndNamesItToTheFirmware) {
    World Here;
    EXPECT_EQ(Here.Os.RequestPort(PORT), EFI_SUCCESS);
    EXPECT_EQ(Here.Os.RequestPort(PORT), EFI_SUCCESS);
    EXPECT_TRUE(BytesAre(Here.Bytes(AWARE, 6), "20 20 00 00 00 00"));
    EXPECT_TRUE(BytesAre(Here.Bytes(REQUESTED, 3), "20 20 00"));
    EXPECT_EQ(Here.Sim.Count("smi-enter", {{"kind", "software-0xD8"}}), 2u);
}

TEST(DpcOperatingSystem, NotifiesWhatItAskedForAndHasNotHeardOf) {
    const struct {
        const char* What;
        UINT32 Cause;
        std::initializer_list<std::uint8_t> Entry;
        bool Requested, Notified;
        const char* Left;
    } Cases[] = {
        {"contained", 0x40000000, {1, 0x20, 0x20, 0, 0x20, 0x20, 0, 0, 0x02}, true, true, "03"},
        {"another interrupt", 0x20000000, {1, 0x20, 0x20, 0, 0x20, 0x20, 0, 0, 0x02}, true, false, "02"},
        {"notified", 0x40000000, {1, 0x20, 0x20, 0, 0x20, 0x20, 0, 0, 0x03}, true, false, "03"},
        {"not in use", 0x40000000, {0, 0x20, 0x20, 0, 0x20, 0x20, 0, 0, 0x02}, true, false, "02"},
        {"another segment", 0x40000000, {1, 0x20, 0x20, 1, 0x20, 0x20, 1, 0, 0x02}, true, false, "02"},
        {"the firmware's own", 0x40000000, {1, 0x20, 0x20, 0, 0x20, 0x20, 0, 0, 0x82}, false, false, "82"},
        {"set by software", 0x40000000, {1, 0x20, 0x20, 0, 0x20, 0x20, 0, 0, 0x82}, true, true, "83"},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        World Here;
        if (Case.Requested) {
            Here.Os.RequestPort(PORT);
        }
        Here.SetEntry(31, Case.Entry);
        Here.Interrupt(Case.Cause);
        const std::vector<PciAddress> Wanted = Case.Notified ? std::vector{PORT} : std::vector<PciAddress>{};
        EXPECT_EQ(Here.Os.ServeInterrupt(Clears::Nothing), Wanted);
        EXPECT_TRUE(BytesAre(Here.Bytes(TRIGGERED + 31 * 9 + 8, 1), Case.Left));
        EXPECT_TRUE(Here.Os.ServeInterrupt(Clears::Nothing).empty()) << "one interrupt is served once";
    }
}

// EdrCount is 0: the firmware has nothing to look at, what changes is the ACPI code's doing.
TEST(DpcOperatingSystem, AnOutcomeIsStoredAndARecoveredPortLeavesTheBuffer) {
    const struct {
        const char* What;
        std::uint8_t Bus, Status;
        bool Contained, Known;
        const char* Left;
    } Cases[] = {
        {"recovered", 0x20, 0x80, false, true, "00 00 00 00 00 00 00 00 00"},
        {"still contained", 0x20, 0x80, true, true, "01 20 20 00 20 20 00 80 01"},
        {"failed", 0x20, 0x81, false, true, "01 20 20 00 20 20 00 81 01"},
        {"reserved", 0x20, 0x85, false, true, "01 20 20 00 20 20 00 85 01"},
        {"unknown", 0x21, 0x80, false, false, "01 20 21 00 20 21 00 00 01"},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        World Here;
        Here.SetEntry(0, {1, 0x20, Case.Bus, 0, 0x20, Case.Bus, 0, 0, 0x01});
        if (Case.Contained) {
            Here.Sim->Machine().Pcie().Inject(Here.Port(), {PcieError::Source::Uncorrectable, 13});
        }
        EXPECT_EQ(Here.Os.ReportOutcome(PORT, Case.Status), Case.Known);
        EXPECT_TRUE(BytesAre(Here.Bytes(TRIGGERED, 9), Case.Left));
        EXPECT_EQ(Here.Sim.Count("smi-enter", {{"kind", "software-0xD5"}}), Case.Known ? 1u : 0u);
    }
}

}  // namespace
