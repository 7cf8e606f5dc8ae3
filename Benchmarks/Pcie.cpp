// Cost of a PCIe error SMI: time, accesses by kind and pool bytes, all per SMI. The storm check remembers records
// beyond the SMI, so every measured SMI runs on a fresh boot.
#include <benchmark/benchmark.h>

#include <chrono>

#include "Simulator/Machine/Machine.h"
#include "Simulator/Simulation.h"

namespace {

using Simulator::AccessStatistics;
using Simulator::Configuration;
using Simulator::PcieError;
using Simulator::PcieFunction;
using Simulator::PcieFunctionSetting;
using Simulator::PcieKind;
using Simulator::PciePortSetting;
using Simulator::Simulation;

constexpr unsigned MALFORMED_TLP = 18;  // bit of the uncorrectable error status
constexpr unsigned FUNCTIONS_PER_DEVICE = 8;

// Root ports, each with so many endpoints' functions on its bus.
struct Hierarchy {
    unsigned RootComplexes = 8;
    unsigned Ports = 1;      // of each root complex
    unsigned Functions = 1;  // below each port
};

Configuration QuietMachine(const Hierarchy& Shape) {
    Configuration Settings;
    Settings.TraceLevels = 0;
    Settings.CheckPool = false;
    Settings.Pcie.IsDefault = false;
    for (unsigned Complex = 0; Complex < Shape.RootComplexes; Complex++) {
        for (unsigned Number = 0; Number < Shape.Ports; Number++) {
            PciePortSetting Port;
            Port.RootComplex = Complex;
            Port.Function.Kind = PcieKind::RootPort;
            for (unsigned Index = 0; Index < Shape.Functions; Index++) {
                PcieFunctionSetting Endpoint;
                Endpoint.Device = Index / FUNCTIONS_PER_DEVICE;
                Endpoint.Function = Index % FUNCTIONS_PER_DEVICE;
                Port.Function.Below.push_back(Endpoint);
            }
            Settings.Pcie.Ports.push_back(Port);
        }
    }
    return Settings;
}

// The first Failing endpoints' functions receive a malformed TLP; then the root complexes' handlers run.
void RunSmi(benchmark::State& State, const Hierarchy& Shape, unsigned Failing) {
    AccessStatistics Accesses;
    std::uint64_t PeakBytes = 0, KeptBytes = 0;
    for (auto _ : State) {
        Simulation Machine(QuietMachine(Shape));
        Machine.Events().SetRecording(false);
        if (EFI_ERROR(Machine.Boot())) {
            State.SkipWithError("the driver did not start");
            break;
        }
        Simulator::PcieFabric& Fabric = Machine.Machine().Pcie();
        unsigned Left = Failing;
        Fabric.ForEach([&](PcieFunction& One) {
            if (!One.IsBridge() && Left != 0) {
                Fabric.Inject(One, {PcieError::Source::Uncorrectable, MALFORMED_TLP});
                Left--;
            }
        });
        Machine.ResetAccesses();
        const std::uint64_t Before = Machine.Pool().LiveBytes;
        const auto Start = std::chrono::steady_clock::now();
        Machine.RaiseSmi("root-complex");
        State.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count());
        Accesses = Machine.Accesses();
        PeakBytes = Machine.Pool().PeakBytes - Before;
        KeptBytes = Machine.Pool().LiveBytes - Before;
        if (Machine.IsRootComplexSmiPending()) {
            State.SkipWithError("the SMI would come again");
            break;
        }
    }
    State.counters["errors"] = Failing;
    State.counters["pci_rd"] = static_cast<double>(Accesses.PciReads);
    State.counters["pci_wr"] = static_cast<double>(Accesses.PciWrites);
    State.counters["smn_rd"] = static_cast<double>(Accesses.SmnReads);
    State.counters["smn_wr"] = static_cast<double>(Accesses.SmnWrites);
    State.counters["pool_bytes"] = static_cast<double>(PeakBytes);
    State.counters["kept_bytes"] = static_cast<double>(KeptBytes);
}

// Nothing is wrong: each root complex is asked, and that is all.
void QuietSmi(benchmark::State& State) {
    RunSmi(State, {8, 16, 32}, 0);
}
BENCHMARK(QuietSmi)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(20);

void OneFailingEndpoint(benchmark::State& State) {
    RunSmi(State, {}, 1);
}
BENCHMARK(OneFailingEndpoint)->UseManualTime()->Unit(benchmark::kMicrosecond);

// The scan's cost grows with the functions that are there: up to 8 root complexes of 16 ports of 32 functions.
void FailingFunctions(benchmark::State& State) {
    const Hierarchy Shape{8, static_cast<unsigned>(State.range(0)), 32};
    const unsigned Functions = Shape.RootComplexes * Shape.Ports * Shape.Functions;
    RunSmi(State, Shape, Functions);
    State.SetComplexityN(Functions);
}
BENCHMARK(FailingFunctions)
    ->RangeMultiplier(2)
    ->Range(1, 16)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

// The same machine with one function that fails: what a scan costs when there is nearly nothing to find.
void OneFailingFunctionOfMany(benchmark::State& State) {
    RunSmi(State, {8, 16, 32}, 1);
}
BENCHMARK(OneFailingFunctionOfMany)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

}  // namespace
