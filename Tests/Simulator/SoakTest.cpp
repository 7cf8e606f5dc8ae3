// Thousands of SMIs of errors of every domain on random machines whose services and allocations fail: nothing breaks,
// no block is left but what is kept on purpose, the same seed leaves the same journal.
//
//     RAS_SOAK_SEED=7 RAS_SOAK_SMIS=1000000 ras-tests --gtest_filter=Soak.*
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <random>

#include "Fuzz/Steps/CxlSteps.h"
#include "Fuzz/Steps/MachineCheckSteps.h"
#include "Fuzz/Steps/PcieSteps.h"
#include "Fuzz/Steps/ServiceFaults.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Machine/Machine.h"

namespace {

constexpr std::uint64_t SMIS_OF_A_MACHINE = 500;
constexpr std::uint64_t SMIS_OF_A_BOOT = 125;
// Every so many machines one is run twice.
constexpr std::uint64_t MACHINES_TO_COMPARE = 5;

std::uint64_t FromEnvironment(const char* Name, std::uint64_t Default) {
    const char* const Text = std::getenv(Name);
    return Text == nullptr ? Default : std::strtoull(Text, nullptr, 0);
}

// Bytes without end, as the steps take them.
class RandomInput {
 public:
    explicit RandomInput(std::uint64_t Seed) : Engine(Seed) {}

    // Valid until the next call.
    FuzzInput Next() {
        std::ranges::generate(Words, std::ref(Engine));
        return {reinterpret_cast<const std::uint8_t*>(Words.data()), sizeof(Words)};
    }

 private:
    std::mt19937_64 Engine;
    std::array<std::uint64_t, 256> Words{};
};

// Some are no machines: too many buses, capabilities that do not fit.
std::unique_ptr<Simulator::Simulation> AnyMachine(RandomInput& Random) {
    for (;;) {
        FuzzInput Input = Random.Next();
        Simulator::Configuration Settings = AnyMachineCheckMachine(Input);
        Settings.FailAllocation = 0;  // allocations fail by steps, not at boot
        Settings.TraceLevels = DEBUG_ERROR;
        Settings.RootComplexesPerSocket = 2;
        const unsigned RootComplexes = Settings.Sockets * Settings.RootComplexesPerSocket;
        Settings.Pcie = AnyHierarchy(Input, RootComplexes);
        const Simulator::PcieSettings Cxl = AnyCxlHierarchy(Input, RootComplexes);
        if (Settings.Pcie.IsDefault) {
            Settings.Pcie.Ports = Simulator::DefaultPciePorts();
            Settings.Pcie.IsDefault = false;
        }
        Settings.Pcie.Ports.insert(Settings.Pcie.Ports.end(), Cxl.Ports.begin(), Cxl.Ports.end());
        try {
            auto Machine = std::make_unique<Simulator::Simulation>(Settings);
            if (DoAllListsEnd(*Machine)) {
                return Machine;
            }
        } catch (const std::invalid_argument&) {
        }
    }
}

void OneStep(Simulator::Simulation& Machine, FuzzInput& Input) {
    const unsigned Choice = Input.Below(16);
    try {
        if (Choice == 0) {
            FailAMember(Machine, Input);
        } else if (Choice == 1) {
            Machine.SetFailure("SmmAllocatePool",
                               Simulator::Failure{EFI_OUT_OF_RESOURCES, 1 + Input.Below(4), Input.Byte()});
        } else if (Choice < 8) {
            MachineCheckStep(Machine, Input);
        } else if (Choice < 12) {
            PcieStep(Machine, Input);
        } else {
            CxlStep(Machine, Input);
        }
    } catch (const std::invalid_argument&) {
        // The machine does not have such a place.
    }
    // What a pool does not take back is no leak of the driver's.
    Machine.SetFailure("SmmFreePool", std::nullopt);
}

std::size_t LengthOf(const LIST_ENTRY* List) {
    std::size_t Length = 0;
    for (const LIST_ENTRY* One = List; List != nullptr && One->ForwardLink != List; One = One->ForwardLink) {
        Length++;
    }
    return Length;
}

// Blocks that the driver may hold beyond those of its boot.
class KeptBlocks {
 public:
    // At the end of a boot.
    explicit KeptBlocks(Simulator::Simulation& Machine)
        : Run(Machine),
          SeenEvents(Machine.Events().Events().size()),
          SeenTrace(Machine.Machine().SerialOutput().size()) {}

    // After some SMI.
    std::int64_t Count() {
        CountDeferred();
        CountUnfiled();
        const VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
        // An entry and its node.
        std::size_t Kept = 2 * (Data.SmiStormQueue == nullptr ? 0 : Data.SmiStormQueue->NumElements);
        Kept += LengthOf(Data.pPcieUceCounterList);
        for (const auto& Socket : Data.DimmData) {
            for (const auto& Channel : Socket) {
                for (const DIMM_DATA& Dimm : Channel) {
                    Kept += LengthOf(Dimm.pUniqueRowIdentifierList);
                }
            }
        }
        return static_cast<std::int64_t>(Kept + 2 * Copies + QueueEntriesWithoutNode);
    }

 private:
    // The ring lives as long as the driver, and what it drops stays allocated.
    void CountDeferred() {
        const CIRCULAR_BUFFER* const Ring = mPrivateDataVornElogPolicyLib.pMcaDeferredCircularBuffer;
        if (Ring != nullptr) {
            Copies += (Ring->Tail + Ring->MaxElements - RingTail) % Ring->MaxElements;
            RingTail = Ring->Tail;
        }
    }
    // Copies that no buffer refers to: of corrected machine checks in production mode, which feed the storm check
    // alone, and of records that found their buffer full; entries of a queue that got no node.
    void CountUnfiled() {
        const auto& Events = Run.Events().Events();
        for (; SeenEvents < Events.size(); SeenEvents++) {
            const Simulator::Event& One = Events[SeenEvents];
            if (One.Kind == "record" && One.Fields.at("section") == "processor-specific" &&
                One.Fields.at("header-severity") == "0x2" &&
                mPrivateDataVornElogPolicyLib.RasErrorLoggingMode == RasProductionMode) {
                Copies++;
            }
        }
        const std::string& Trace = Run.Machine().SerialOutput();
        Copies += CountIn(Trace, "ERROR adding e");
        QueueEntriesWithoutNode += CountIn(Trace, "EfiRuntimeServicesData memory for next entry");
        QueueEntriesWithoutNode += CountIn(Trace, "EfiRuntimeServicesData memory for queue node");
        SeenTrace = Trace.size();
    }
    std::size_t CountIn(const std::string& Trace, std::string_view Text) const {
        std::size_t Times = 0;
        for (std::size_t At = Trace.find(Text, SeenTrace); At != Trace.npos; At = Trace.find(Text, At + 1)) {
            Times++;
        }
        return Times;
    }

    Simulator::Simulation& Run;
    std::size_t SeenEvents, SeenTrace;
    UINT64 RingTail = 0;
    std::size_t Copies = 0;
    std::size_t QueueEntriesWithoutNode = 0;
};

struct Outcome {
    std::uint64_t Smis = 0;
    std::string Journal;
};

// Until the machine has entered SMM often enough since it was switched on.
void RunABoot(Simulator::Simulation& Machine, RandomInput& Random, std::uint64_t Smis) {
    KeptBlocks Kept(Machine);
    std::uint64_t Checked = Machine.Firmware().SmiCount();
    const std::uint64_t End = Checked + Smis;
    for (std::uint64_t Steps = 0; Machine.Firmware().SmiCount() < End && Steps < 100 * Smis; Steps++) {
        FuzzInput Input = Random.Next();
        ASSERT_NO_THROW(OneStep(Machine, Input));
        if (Machine.Firmware().SmiCount() == Checked) {
            continue;
        }
        Checked = Machine.Firmware().SmiCount();
        const std::int64_t Allowed = Kept.Count();
        ASSERT_LE(static_cast<std::int64_t>(Machine.Pool().LiveBlocks - Machine.BlocksAtBoot()), Allowed)
            << "after SMI " << Checked;
    }
}

Outcome RunAMachine(std::uint64_t Seed, std::uint64_t Smis) {
    RandomInput Random(Seed);
    const std::unique_ptr<Simulator::Simulation> Machine = AnyMachine(Random);
    Outcome Came;
    EXPECT_EQ(Machine->Boot(), EFI_SUCCESS);
    while (Came.Smis < Smis && !testing::Test::HasFatalFailure()) {
        const std::uint64_t Before = Machine->Firmware().SmiCount();
        RunABoot(*Machine, Random, std::min(SMIS_OF_A_BOOT, Smis - Came.Smis));
        Came.Smis += Machine->Firmware().SmiCount() - Before;
        for (const std::string_view Name : Simulator::MemberNames()) {
            Machine->SetFailure(std::string(Name), std::nullopt);
        }
        EXPECT_EQ(Machine->Reboot(), EFI_SUCCESS);
    }
    Came.Journal = Machine->Events().ToJsonLines();
    return Came;
}

TEST(Soak, NothingBreaksNothingLeaksAndTheSameSeedLeavesTheSameJournal) {
    const std::uint64_t Smis = FromEnvironment("RAS_SOAK_SMIS", 10'000);
    std::uint64_t Seed = FromEnvironment("RAS_SOAK_SEED", 1);
    for (std::uint64_t Done = 0, Number = 0; Done < Smis; Number++, Seed++) {
        SCOPED_TRACE("RAS_SOAK_SEED=" + std::to_string(Seed));
        const std::uint64_t Wanted = std::min(SMIS_OF_A_MACHINE, Smis - Done);
        const Outcome Came = RunAMachine(Seed, Wanted);
        Done += Came.Smis;
        ASSERT_FALSE(HasFailure());
        ASSERT_GE(Came.Smis, Wanted);
        if (Number % MACHINES_TO_COMPARE == 0) {
            ASSERT_TRUE(RunAMachine(Seed, Wanted).Journal == Came.Journal) << "another journal";
        }
    }
}

}  // namespace
