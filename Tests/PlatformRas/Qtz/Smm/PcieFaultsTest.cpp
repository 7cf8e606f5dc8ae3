// Services, allocations, functions and hubs that fail while PCIe errors are handled: the SMI ends, nothing is left
// but what is kept on purpose, and errors of other functions are reported all the same.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "Include/Cper.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Guids.h"
#include "PlatformRas/Qtz/Smm/PcieErrorSmi.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Machine/Machine.h"
#include "Tests/Support/BootedSimulation.h"

namespace {

using testing::IsSupersetOf;
using Functions = std::set<std::string>;
using Source = Simulator::PcieError::Source;

// What fails, below two root complexes: everything at once.
constexpr struct {
    const char* Function;
    Source From;
    unsigned Bit;
    const char* RootPort;
} STORY[] = {
    {"nic0", Source::Uncorrectable, 18, "port0"},         // malformed TLP: fatal
    {"nic1", Source::Correctable, 6, "port0"},            // bad TLP
    {"bay1", Source::Uncorrectable, 17, "port1"},         // receiver overflow: fatal
    {"nvme0", Source::Uncorrectable, 14, "port1"},        // completion timeout: non-fatal
    {"accelerator", Source::Uncorrectable, 20, "port3"},  // unsupported request: a write to its own memory
    {"bridge", Source::Uncorrectable, 12, "port4"},       // poisoned TLP: non-fatal
    {"card", Source::PciStatus, 14, "port4"},             // system error of a conventional function
    {"port4", Source::Uncorrectable, 13, "port4"},        // flow control protocol: fatal, at the root port itself
};

// The default machine, and a PCIe-to-PCI bridge below the second root complex.
Simulator::Configuration StoryMachine() {
    Simulator::Configuration Settings = DiagnosticConfiguration();
    Simulator::PcieFunctionSetting Card, Bridge;
    Card.Name = "card";
    Card.Kind = Simulator::PcieKind::Pci;
    Bridge.Name = "bridge";
    Bridge.Kind = Simulator::PcieKind::PcieToPciBridge;
    Bridge.Below = {Card};
    Simulator::PciePortSetting Port;
    Port.RootComplex = 1;
    Port.Function.Name = "port4";
    Port.Function.Kind = Simulator::PcieKind::RootPort;
    Port.Function.Below = {Bridge};
    Settings.Pcie.IsDefault = false;
    Settings.Pcie.Ports = Simulator::DefaultPciePorts();
    Settings.Pcie.Ports.push_back(Port);
    return Settings;
}

Simulator::PcieFunction& FunctionOf(BootedSimulation& Sim, std::string_view Name) {
    return *Sim->Machine().Pcie().Find(Name);
}

void InjectStory(BootedSimulation& Sim) {
    for (const auto& Error : STORY) {
        Sim->Machine().Pcie().Inject(FunctionOf(Sim, Error.Function), {Error.From, Error.Bit});
    }
}

Functions AllOfStory() {
    Functions All;
    for (const auto& Error : STORY) {
        All.insert(Error.Function);
    }
    return All;
}

// The functions of the story whose records the OS got.
Functions Reported(BootedSimulation& Sim) {
    Functions Named;
    for (const std::vector<std::uint8_t>& Record : Sim->LoggedRecords()) {
        CPER_RECORD Front;
        CPER_PCIE_SECTION Section;
        std::memcpy(&Front, Record.data(), sizeof(Front));
        EXPECT_EQ(std::memcmp(&Front.Descriptor.SectionType, &gCperSectionPcieGuid, sizeof(EFI_GUID)), 0);
        std::memcpy(&Section, Record.data() + sizeof(Front), sizeof(Section));
        const CPER_PCIE_DEVICE_ID& Id = Section.DeviceId;
        for (const auto& Error : STORY) {
            if (FunctionOf(Sim, Error.Function).Where() ==
                Simulator::PciAddress{Id.Segment, Id.Bus, Id.Device, Id.Function}) {
                Named.insert(Error.Function);
            }
        }
    }
    return Named;
}

// What is kept beyond the SMI: an entry and its node for each record that storms are counted by, and a counter for
// each port that was contained, or died so that its containment reads all ones.
std::int64_t BlocksKept() {
    const QUEUE* const Storm = mPrivateDataVornElogPolicyLib.SmiStormQueue;
    std::int64_t Kept = Storm == nullptr ? 0 : 2 * static_cast<std::int64_t>(Storm->NumElements);
    const LIST_ENTRY* const Counters = mPrivateDataVornElogPolicyLib.pPcieUceCounterList;
    for (const LIST_ENTRY* One = Counters; Counters != nullptr && One->ForwardLink != Counters;
         One = One->ForwardLink) {
        Kept++;
    }
    return Kept;
}

// After the SMI the driver stands as before it, and has given its blocks back.
void ExpectEnded(BootedSimulation& Sim, std::int64_t Lost = 0) {
    EXPECT_EQ(NumPcieRbCallbacksProcessed, 0u);
    EXPECT_EQ(PciErrorsDetected, 0);
    EXPECT_EQ(Sim.Count("breakpoint"), 0u);
    const QUEUE* const Captured = mPrivateDataVornElogPolicyLib.pQueuePciDeviceData;
    EXPECT_EQ(Captured == nullptr ? 0u : Captured->NumElements, 0u);
    EXPECT_EQ(static_cast<std::int64_t>(Sim->Pool().LiveBlocks - Sim->BlocksAtBoot()), BlocksKept() + Lost);
}

// What the OS and the BMC got of the story.
struct PcieOutcome {
    std::size_t Records = 0;  // that entered the policy engine
    std::size_t Logged = 0;   // in GHES
    std::size_t Sel = 0;
    std::size_t Sent = 0;  // bodies that reached the BMC
    std::size_t Sci = 0;
    std::size_t Nmi = 0;

    bool operator==(const PcieOutcome&) const = default;
};
void PrintTo(const PcieOutcome& One, std::ostream* Out) {
    *Out << "records " << One.Records << " logged " << One.Logged << " sel " << One.Sel << " sent " << One.Sent
         << " sci " << One.Sci << " nmi " << One.Nmi;
}

PcieOutcome OutcomeOf(BootedSimulation& Sim) {
    const std::map<std::string, std::string> Success{{"status", "EFI_SUCCESS"}};
    PcieOutcome Came{Sim.Count("record"), Sim.Count("ghes-log", Success), Sim.Count("sel"), 0, Sim.Count("sci"),
                     Sim.Count("nmi")};
    for (const Simulator::Event& Send : Sim.Events("sel-send", Success)) {
        Came.Sent += std::stoul(Send.Fields.at("count").get<std::string>(), nullptr, 16);
    }
    return Came;
}

// Each function's event, its slot's for three of them, vendor and device ID in 3 but for a root port, the root port's
// record in 3 once, and the registers that tell something.
constexpr PcieOutcome WHOLE_STORY{8, 8, 59, 59, 0, 1};

struct FailingMember {
    const char* Member;
    PcieOutcome Came;
    const char* Trace = "ERROR Device Error";  // what the log says
    EFI_STATUS Status = EFI_DEVICE_ERROR;
    bool IsStillAsking = false;  // the SMI comes again
};

// In the order of PcieOutcome: records, logged, sel, sent, sci, nmi.
const FailingMember MEMBERS[] = {
    {"SmmAllocatePool", {}, "allocating PCIe Device State memory for RP", EFI_OUT_OF_RESOURCES, true},
    {"GetProcessorInfo", WHOLE_STORY, ""},
    {"WhoAmI", WHOLE_STORY, ""},
    {"GetSlotNumberData", {8, 8, 56, 56, 0, 1}, "ERROR Device Error from VornElogSmmGetPcieSlotData"},
    {"SmmLocateProtocol", {8, 7, 0, 0, 0, 1}, "System still in POST", EFI_NOT_FOUND},
    {"LogBmcData", {8, 8, 0, 0, 0, 1}},
    {"GetSelRecords", {8, 8, 59, 0, 0, 1}},
    {"DisplaySelRecords", WHOLE_STORY},
    {"SendConsolidatedOemCommand", {8, 8, 59, 0, 0, 1}},
    {"ClearSelRecords", WHOLE_STORY},
    {"ElogIsApeiOsLoaded", {8, 0, 59, 59, 0, 1}},
    {"ElogClearGhes", {8, 0, 59, 59, 0, 1}},
    {"ElogLogCper", {8, 0, 59, 59, 0, 1}},
    {"ElogSignalNmi", {8, 8, 59, 59, 0, 0}},
};

TEST(PcieFaults, AServiceThatFailsCostsNoMoreThanItsOwnWork) {
    for (const FailingMember& Case : MEMBERS) {
        SCOPED_TRACE(Case.Member);
        BootedSimulation Sim(StoryMachine());
        InjectStory(Sim);
        Sim->SetFailure(Case.Member, Simulator::Failure{Case.Status});
        Sim->RaiseSmi("root-complex");
        EXPECT_EQ(OutcomeOf(Sim), Case.Came);
        EXPECT_TRUE(Sim.Traced(Case.Trace)) << Case.Trace;
        ExpectEnded(Sim);
        EXPECT_EQ(Sim->IsRootComplexSmiPending(), Case.IsStillAsking);
    }
}

// The table holds every member that the story calls.
TEST(PcieFaults, TheWholeStoryIsReportedAndCallsNoOtherService) {
    BootedSimulation Sim(StoryMachine());
    std::map<std::string_view, std::uint64_t> Before;
    const auto Calls = [&Sim](std::string_view Name) {
        return Sim->Firmware().Faults.CallsOf(*Simulator::FindMember(Name));
    };
    for (const std::string_view Name : Simulator::MemberNames()) {
        Before[Name] = Calls(Name);
    }
    InjectStory(Sim);
    Sim->RaiseSmi("root-complex");
    EXPECT_EQ(OutcomeOf(Sim), WHOLE_STORY);
    EXPECT_EQ(Reported(Sim), AllOfStory());
    ExpectEnded(Sim);
    for (const std::string_view Name : Simulator::MemberNames()) {
        const bool IsInTable = std::ranges::any_of(MEMBERS, [&](const auto& Case) { return Name == Case.Member; });
        EXPECT_TRUE(Calls(Name) == Before[Name] || IsInTable || Name == "SmmFreePool") << Name;
    }
    // What was reported is cleared: nothing comes twice.
    Sim.Forget();
    Sim->RaiseSmi("root-complex");
    EXPECT_EQ(OutcomeOf(Sim), PcieOutcome{});
}

// A pool that takes nothing back: every block is reported, everything is done all the same.
TEST(PcieFaults, APoolThatTakesNothingBackChangesNothingElse) {
    BootedSimulation Sim(StoryMachine());
    InjectStory(Sim);
    Sim->SetFailure("SmmFreePool", Simulator::Failure{});
    Sim->RaiseSmi("root-complex");
    EXPECT_EQ(OutcomeOf(Sim), WHOLE_STORY);
    EXPECT_EQ(Reported(Sim), AllOfStory());
    for (const char* Text : {"VornPcieErrorScan: ERROR Device Error freeing PCIe Device State memory for DS device",
                             "VornElogSmmHandlePciError: ERROR Device Error from SmmFreePool",
                             "ERROR Device Error from SmmFreePool for Element 0 CPER\n",
                             "ERROR Device Error from QueueClear for "
                             "mPrivateDataVornElogPolicyLib.pQueuePciDeviceData\n"}) {
        EXPECT_TRUE(Sim.Traced(Text)) << Text;
    }
}

// Each allocation of the SMI fails in a run of its own.
TEST(PcieFaults, AnAllocationThatFailsCostsOneFunctionOrRootPort) {
    std::uint64_t OfBoot = 0, Needed = 0;
    {
        BootedSimulation Sim(StoryMachine());
        OfBoot = Sim->Pool().Allocations;
        InjectStory(Sim);
        Sim->RaiseSmi("root-complex");
        Needed = Sim->Pool().Allocations;
    }
    // For each record the record itself and its chipset data, the copies of both, and storm control's entry, copy and
    // node.
    EXPECT_GT(Needed, OfBoot + std::size(STORY) * 7);
    for (std::uint64_t Number = OfBoot + 1; Number <= Needed; Number++) {
        SCOPED_TRACE("allocation " + std::to_string(Number - OfBoot));
        Simulator::Configuration Settings = StoryMachine();
        Settings.FailAllocation = Number;
        BootedSimulation Sim(Settings);
        InjectStory(Sim);
        Sim->RaiseSmi("root-complex");
        EXPECT_EQ(Sim.Count("alloc-fail"), 1u);
        const Functions Came = Reported(Sim);
        Functions Missing, Ports;
        for (const auto& Error : STORY) {
            if (!Came.contains(Error.Function)) {
                Missing.insert(Error.Function);
                Ports.insert(Error.RootPort);
            }
        }
        EXPECT_LE(Ports.size(), 1u) << testing::PrintToString(Missing);
        EXPECT_TRUE(Missing.size() <= 1 || Sim.Traced("allocating PCIe Device State memory for RP"))
            << testing::PrintToString(Missing);
        // An entry that was copied but got no node stays.
        const bool HasNoNode = Sim.Traced("EfiRuntimeServicesData memory for next entry, aborting...") ||
                               Sim.Traced("EfiRuntimeServicesData memory for queue node (empty queue), aborting...");
        ExpectEnded(Sim, HasNoNode ? 1 : 0);
    }
}

// Whether nobody finds the function without Dying: it lies below it, or is of the same device, whose function 0 says
// that there are others.
bool DependsOn(const Simulator::PcieFunction& Function, const Simulator::PcieFunction& Dying) {
    if (Dying.Function == 0 && Function.Above == Dying.Above && Function.Device == Dying.Device &&
        Function.RootBus == Dying.RootBus) {
        return true;
    }
    const Simulator::PcieFunction* At = &Function;
    while (At != nullptr && At != &Dying) {
        At = At->Above;
    }
    return At != nullptr;
}

// The function answers so many reads of the SMI, and all ones from then on.
struct Death {
    const char* Function;
    unsigned Step;  // every n-th read
};
void PrintTo(const Death& One, std::ostream* Out) {
    *Out << One.Function;
}

class DyingFunction : public testing::TestWithParam<Death> {};

TEST_P(DyingFunction, TakesNoOtherFunctionWithIt) {
    const Death& Case = GetParam();
    Simulator::Configuration Settings = StoryMachine();
    Settings.TraceLevels = 0x80000000;
    bool Survives = false;
    for (unsigned Reads = 0; !Survives; Reads += Case.Step) {
        SCOPED_TRACE("after " + std::to_string(Reads) + " reads");
        ASSERT_LT(Reads, 2000u) << "it is read without end";
        BootedSimulation Sim(Settings);
        Simulator::PcieFunction& Dying = FunctionOf(Sim, Case.Function);
        Functions Others;
        for (const auto& Error : STORY) {
            if (!DependsOn(FunctionOf(Sim, Error.Function), Dying)) {
                Others.insert(Error.Function);
            }
        }
        InjectStory(Sim);
        Dying.DieAfter(Reads);
        EXPECT_NO_THROW(Sim->RaiseSmi("root-complex"));
        Survives = !Dying.IsDead();
        EXPECT_THAT(Reported(Sim), IsSupersetOf(Survives ? AllOfStory() : Others));
        ExpectEnded(Sim);
        // Nobody clears a root port that is dead.
        EXPECT_TRUE(!Sim->IsRootComplexSmiPending() || (Dying.IsRootPort() && Dying.IsDead()));
        // Nor does the next SMI stumble over it.
        EXPECT_NO_THROW(Sim->RaiseSmi("root-complex"));
        ExpectEnded(Sim);
    }
}

// An endpoint, a switch port and a root port at each of their reads, the others here and there.
INSTANTIATE_TEST_SUITE_P(Each, DyingFunction,
                         testing::Values(Death{"nic0", 1}, Death{"bay1", 1}, Death{"port0", 1}, Death{"nic1", 5},
                                         Death{"switch", 5}, Death{"nvme0", 7}, Death{"port1", 5}, Death{"port4", 3},
                                         Death{"bridge", 3}, Death{"card", 1}, Death{"accelerator", 7}),
                         [](const auto& Case) { return std::string(Case.param.Function); });

}  // namespace
