// Cost of a machine-check SMI: time, hardware accesses by kind and pool bytes, all per SMI. The rules keep memory of
// corrected errors in production mode and of deferred ones, so every measured SMI runs on a fresh boot.
#include <benchmark/benchmark.h>

#include <chrono>

#include "Simulator/Simulation.h"

namespace {

using Simulator::AccessStatistics;
using Simulator::Configuration;
using Simulator::MachineCheck;
using Simulator::Simulation;

constexpr std::uint64_t CorrectedStatus = 0x9C204000000D0175;
constexpr std::uint64_t UncorrectedStatus = 0xBEA0000000000108;

Configuration QuietMachine(unsigned Processors) {
    Configuration Settings;
    if (Processors > 16) {
        Settings.CoresPerSocket = 32;
    }
    Settings.BanksPerProcessor = 64;
    Settings.TraceLevels = 0;
    Settings.CheckPool = false;
    Settings.Apei["McaErrThreshCount"] = 0xFFE;  // each corrected error raises its SMI
    return Settings;
}

MachineCheck Error(unsigned Processor, unsigned Bank, std::uint64_t Status) {
    MachineCheck Check;
    Check.Processor = Processor;
    Check.Bank = Bank;
    Check.Status = Status;
    Check.Addr = 0x185D960D07;
    Check.Ipid = 0x000000B000000000;
    return Check;
}

void Report(benchmark::State& State, const AccessStatistics& Accesses, std::uint64_t PoolBytes,
            std::uint64_t Errors) {
    State.counters["errors"] = static_cast<double>(Errors);
    State.counters["msr_rd"] = static_cast<double>(Accesses.MsrReads);
    State.counters["msr_wr"] = static_cast<double>(Accesses.MsrWrites);
    State.counters["io_rd"] = static_cast<double>(Accesses.IoReads);
    State.counters["io_wr"] = static_cast<double>(Accesses.IoWrites);
    State.counters["mmio"] = static_cast<double>(Accesses.MmioReads + Accesses.MmioWrites);
    State.counters["pci"] = static_cast<double>(Accesses.PciReads + Accesses.PciWrites);
    State.counters["pool_bytes"] = static_cast<double>(PoolBytes);
}

// Banks banks on each of Processors processors hold the same error.
void RunSmi(benchmark::State& State, unsigned Processors, unsigned Banks, std::uint64_t Status) {
    AccessStatistics Accesses;
    std::uint64_t PoolBytes = 0;
    for (auto _ : State) {
        Simulation Machine(QuietMachine(Processors));
        Machine.Events().SetRecording(false);
        if (EFI_ERROR(Machine.Boot())) {
            State.SkipWithError("the driver did not start");
            break;
        }
        for (unsigned Processor = 0; Processor < Processors; Processor++) {
            for (unsigned Bank = 0; Bank < Banks; Bank++) {
                Machine.InjectMachineCheck(Error(Processor, Bank, Status));
            }
        }
        Machine.ResetAccesses();
        const std::uint64_t Before = Machine.Pool().LiveBytes;
        const auto Start = std::chrono::steady_clock::now();
        Machine.RaiseSmi("machine-check");
        State.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count());
        Accesses = Machine.Accesses();
        PoolBytes = Machine.Pool().PeakBytes - Before;
    }
    Report(State, Accesses, PoolBytes, std::uint64_t{Processors} * Banks);
}

void OneCorrectedBank(benchmark::State& State) {
    RunSmi(State, 1, 1, CorrectedStatus);
}
BENCHMARK(OneCorrectedBank)->UseManualTime()->Unit(benchmark::kMicrosecond);

void OneUncorrectedBank(benchmark::State& State) {
    RunSmi(State, 1, 1, UncorrectedStatus);
}
BENCHMARK(OneUncorrectedBank)->UseManualTime()->Unit(benchmark::kMicrosecond);

// The scan's own cost grows linearly with the failing banks: up to 64 banks on each of 128 processors.
void FailingBanks(benchmark::State& State) {
    const auto Processors = static_cast<unsigned>(State.range(0));
    RunSmi(State, Processors, 64, CorrectedStatus);
    State.SetComplexityN(State.range(0) * 64);
}
BENCHMARK(FailingBanks)
    ->RangeMultiplier(2)
    ->Range(8, 128)
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

}  // namespace
