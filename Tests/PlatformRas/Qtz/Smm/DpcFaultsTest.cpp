// Allocations, services and ports that fail while ports are contained and recovered: every SMI ends, nothing is left
// but what is kept on purpose, and the other ports are served all the same.
#include <gtest/gtest.h>

#include "Include/PcieUceCounter.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Simulator/Firmware/DpcOperatingSystem.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Machine/Machine.h"
#include "Tests/Support/BootedSimulation.h"

namespace {

using namespace Simulator;

constexpr unsigned MALFORMED_TLP = 18;

PcieFunctionSetting Port(const char* Name, PcieKind Kind, const char* Card) {
    PcieFunctionSetting Below;
    Below.Name = Card;
    PcieFunctionSetting Made;
    Made.Name = Name;
    Made.Kind = Kind;
    Made.Dpc = DpcSetting{};
    Made.Below = {Below};
    return Made;
}

// The OS asks for "root" and "bay"; "other" is the firmware's own.
Configuration ThreePorts() {
    PcieFunctionSetting Switch;
    Switch.Kind = PcieKind::SwitchUpstreamPort;
    Switch.Below = {Port("bay", PcieKind::SwitchDownstreamPort, "drive")};
    PciePortSetting Ports[3];
    Ports[0].Function = Port("root", PcieKind::RootPort, "card");
    Ports[1].Function.Name = "above";
    Ports[1].Function.Kind = PcieKind::RootPort;
    Ports[1].Function.Below = {Switch};
    Ports[2].RootComplex = 1;
    Ports[2].Function = Port("other", PcieKind::RootPort, "nic");
    Configuration Settings;
    Settings.Pcie.IsDefault = false;
    Settings.Pcie.Ports.assign(std::begin(Ports), std::end(Ports));
    return Settings;
}

struct Story {
    BootedSimulation Sim;
    DpcOperatingSystem Os{*Sim};

    explicit Story(const Configuration& Settings = ThreePorts()) : Sim(Settings) {
        Os.RequestPort(Function("root").Where());
        Os.RequestPort(Function("bay").Where());
    }
    PcieFunction& Function(std::string_view Name) {
        return *Sim->Machine().Pcie().Find(Name);
    }
    bool IsReleased(std::string_view Name) {
        return Sim->Machine().Pcie().IsLinkUp(Function(Name));
    }
    void Fail(const char* Name) {
        Sim->Machine().Pcie().Inject(Function(Name), {PcieError::Source::Uncorrectable, MALFORMED_TLP});
    }
    // Two SMIs: the NMI for the firmware's own port would take the place of the OS's interrupt.
    void Contain() {
        Fail("nic");
        Sim->RaiseSmi("root-complex");
        Fail("card");
        Fail("drive");
        Sim->RaiseSmi("root-complex");
    }
    void Recover() {
        Os.ServeInterrupt(DpcOperatingSystem::Clears::Everything);
        Os.ReportOutcome(Function("root").Where(), OST_SUCCESS);
        Os.ReportOutcome(Function("bay").Where(), OST_SUCCESS);
    }
    bool HasEntry(std::string_view Name) {
        const PcieFunction& Port = Function(Name);
        for (const DPC_TRIGGER_ENTRY& One : Os.Shared().DPC_Triggered) {
            if (One.Flag == 1 && DpcPortBdf::Device::Get(One.DpcPortBdf) == Port.Device &&
                DpcPortBdf::Bus::Get(One.DpcPortBdf) ==
                    (Port.Above == nullptr ? Port.RootBus : Port.Above->SecondaryBus())) {
                return true;
            }
        }
        return false;
    }
    // Error counters of ports, and entries of the storm check with their nodes.
    void ExpectEnded(std::int64_t More = 0) {
        EXPECT_EQ(Sim.Count("breakpoint"), 0u);
        std::int64_t Kept = More;
        const LIST_ENTRY* const pCounters = mPrivateDataVornElogPolicyLib.pPcieUceCounterList;
        for (const LIST_ENTRY* pLink = pCounters->ForwardLink; pLink != pCounters; pLink = pLink->ForwardLink) {
            Kept++;
        }
        if (const QUEUE* const Storm = mPrivateDataVornElogPolicyLib.SmiStormQueue) {
            Kept += 2 * static_cast<std::int64_t>(Storm->NumElements);
        }
        EXPECT_EQ(static_cast<std::int64_t>(Sim->Pool().LiveBlocks - Sim->BlocksAtBoot()), Kept);
    }
};

TEST(DpcFaults, WithoutOnePortsAreRecovered) {
    Story Run;
    Run.Contain();
    EXPECT_TRUE(Run.IsReleased("other"));
    EXPECT_TRUE(Run.HasEntry("root") && Run.HasEntry("bay") && Run.HasEntry("other"));
    Run.Recover();
    EXPECT_TRUE(Run.IsReleased("root") && Run.IsReleased("bay"));
    EXPECT_TRUE(!Run.HasEntry("root") && !Run.HasEntry("bay") && Run.HasEntry("other"));
    for (const char* Name : {"card", "drive", "nic"}) {
        EXPECT_EQ(Run.Function(Name).Aer(4), 0u) << Name;
    }
    Run.ExpectEnded();
}

TEST(DpcFaults, AnAllocationThatFailsCostsNoMoreThanOnePort) {
    std::uint64_t First = 0, Last = 0;
    {
        Story Run;
        First = Run.Sim->Pool().Allocations + 1;
        Run.Contain();
        Run.Recover();
        Last = Run.Sim->Pool().Allocations;
    }
    for (std::uint64_t Number = First; Number <= Last; Number++) {
        SCOPED_TRACE("allocation " + std::to_string(Number - First));
        Configuration Settings = ThreePorts();
        Settings.FailAllocation = Number;
        Story Run(Settings);
        Run.Contain();
        Run.Recover();
        EXPECT_EQ(Run.Sim.Count("alloc-fail"), 1u);
        const bool HasNoNode = Run.Sim.Traced("EfiRuntimeServicesData memory for next entry, aborting...") ||
                               Run.Sim.Traced("EfiRuntimeServicesData memory for queue node (empty queue), aborting");
        Run.ExpectEnded(HasNoNode ? 1 : 0);
        EXPECT_GE(Run.IsReleased("root") + Run.IsReleased("bay") + Run.IsReleased("other"), 2);
        // The first three take the port's registers down; a port that could not be looked at stays contained.
        EXPECT_TRUE(Run.IsReleased("other") || Number < First + 3);
    }
}

struct Death {
    const char* Function;
    bool AtRecovery;
    unsigned Step;  // every n-th read
};

class DyingDpcPort : public testing::TestWithParam<Death> {};

// The port answers so many reads of the event, or of the check after the recovery, and all ones from then on.
TEST_P(DyingDpcPort, TakesNoOtherPortWithIt) {
    const Death& Case = GetParam();
    Configuration Settings = ThreePorts();
    Settings.TraceLevels = 0x80000000;
    bool Survives = false;
    for (unsigned Reads = 0; !Survives; Reads += Case.Step) {
        SCOPED_TRACE("after " + std::to_string(Reads) + " reads");
        ASSERT_LT(Reads, 3000u) << "it is read without end";
        Story Run(Settings);
        PcieFunction& Dying = Run.Function(Case.Function);
        if (Case.AtRecovery) {
            Run.Contain();
            Dying.DieAfter(Reads);
        } else {
            Dying.DieAfter(Reads);
            EXPECT_NO_THROW(Run.Contain());
        }
        EXPECT_NO_THROW(Run.Recover());
        Survives = !Dying.IsDead();
        const std::string_view Name = Case.Function;
        // What is left of a dying function's registers may look like an error of its own: then an NMI comes instead
        // of the interrupt, and the OS does not hear of its ports.
        const bool IsTold = Run.Sim.Count("sci", {{"cause", "0x40000000"}}) == 1;
        EXPECT_TRUE(IsTold || Run.Sim.Count("nmi") == 2);
        EXPECT_TRUE(Name == "root" || (IsTold ? Run.IsReleased("root") : Run.HasEntry("root")));
        EXPECT_TRUE(Name == "bay" || Name == "above" || (IsTold ? Run.IsReleased("bay") : Run.HasEntry("bay")));
        EXPECT_TRUE(Name == "other" || Run.IsReleased("other"));
        Run.ExpectEnded();
        EXPECT_NO_THROW(Run.Sim->RaiseSmi("root-complex"));
        Run.ExpectEnded();
    }
}

INSTANTIATE_TEST_SUITE_P(Each, DyingDpcPort,
                         testing::Values(Death{"root", false, 3}, Death{"bay", false, 3}, Death{"above", false, 7},
                                         Death{"other", false, 3}, Death{"root", true, 1}, Death{"bay", true, 1},
                                         Death{"above", true, 3}, Death{"card", true, 3}),
                         [](const auto& Case) {
                             return std::string(Case.param.Function) +
                                    (Case.param.AtRecovery ? "AtRecovery" : "AtEvent");
                         });

}  // namespace
