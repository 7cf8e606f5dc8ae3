// Cost of the storm check: one corrected error against 10, 1,000 and 100,000 live entries. The walk reads of an entry
// what its rules ask for, so errors of other processors cost less than those of the same bank.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <memory>

#include "Library/RasLib/Globals.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/Storm/SmiStorm.h"
#include "Library/VornElogPolicyLib/Storm/StormQueue.h"
#include "Simulator/Simulation.h"

namespace {

// The simulator's pool keeps an account of every block and is smaller than the longest queue: the measured code gets
// its blocks from the C library.
class PlainPool {
 public:
    PlainPool() : Before(gSmst), Table(*gSmst) {
        Table.SmmAllocatePool = [](EFI_MEMORY_TYPE, UINTN Size, void** Buffer) {
            *Buffer = std::malloc(Size);
            return *Buffer == nullptr ? EFI_OUT_OF_RESOURCES : EFI_SUCCESS;
        };
        Table.SmmFreePool = [](void* Buffer) {
            std::free(Buffer);
            return EFI_SUCCESS;
        };
        gSmst = &Table;
    }
    ~PlainPool() {
        gSmst = Before;
    }
    PlainPool(const PlainPool&) = delete;
    PlainPool& operator=(const PlainPool&) = delete;

 private:
    EFI_SMM_SYSTEM_TABLE2* Before;
    EFI_SMM_SYSTEM_TABLE2 Table;
};

std::unique_ptr<SMI_STORM_QUEUE_ENTRY> CorrectedError(UINT32 ApicId) {
    auto Entry = std::make_unique<SMI_STORM_QUEUE_ENTRY>();
    auto* Record = reinterpret_cast<CPER_RECORD*>(Entry->Cper);
    Record->Header.RecordLength = SMI_STORM_CPER_SIZE;
    Record->Header.TimeStamp = {0, 0, 12, 1, 24, 11, 26, 20};
    Record->Descriptor.SectionType = gCperSectionProcessorSpecificGuid;
    Record->Descriptor.Severity = CperSeverityCorrected;
    MACHINE_CHECK_SUPPORT_DATA& Data = Entry->KyrChipsetSupportData.MachineCheck;
    Data.ValidRasMcaErrorInfo = TRUE;
    Data.RasMcaErrorInfo.CpuInfo.LocalApicId = ApicId;
    Data.RasMcaErrorInfo.McaBankErrorInfo[0].McaBankNumber = 5;
    Data.RasMcaErrorInfo.McaBankErrorInfo[0].McaStatus = 0x9C204000000D0175;
    return Entry;
}

// Every check adds an entry; the oldest goes, so that the queue stays as long as it was. Step: from one error's
// processor to the next one's.
void CheckOneError(benchmark::State& State, UINT32 Step) {
    const auto Live = static_cast<std::uint64_t>(State.range(0));
    Simulator::Configuration Settings;
    Settings.TraceLevels = 0;
    Simulator::Simulation Machine(Settings);
    if (EFI_ERROR(Machine.Boot())) {
        State.SkipWithError("the driver did not start");
        return;
    }
    const PlainPool Pool;
    QUEUE* const Queue = mPrivateDataVornElogPolicyLib.SmiStormQueue;
    const auto Error = CorrectedError(0);
    UINT32& ApicId = Error->KyrChipsetSupportData.MachineCheck.RasMcaErrorInfo.CpuInfo.LocalApicId;
    for (std::uint64_t Number = 0; Number < Live; Number++, ApicId += Step) {
        QueueAdd(Queue, Error.get(), sizeof(*Error));
    }
    for (auto _ : State) {
        BOOLEAN Storm = FALSE;
        const auto Start = std::chrono::steady_clock::now();
        VornElogSmmCheckSmiStorm(EntryRecord(*Error), &Error->KyrChipsetSupportData, &Storm);
        State.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count());
        benchmark::DoNotOptimize(Storm);
        QueueRemove(Queue);
        ApicId += Step;
    }
    State.counters["live_bytes"] = static_cast<double>(Live * (sizeof(*Error) + sizeof(QUEUE_NODE)));
    State.SetComplexityN(State.range(0));
    QueueClear(Queue);
}

// Errors of one bank: every entry counts.
void StormCheckSameBank(benchmark::State& State) {
    CheckOneError(State, 0);
}
BENCHMARK(StormCheckSameBank)
    ->Arg(10)
    ->Arg(1'000)
    ->Arg(100'000)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Complexity(benchmark::oN);

// Errors of as many processors: no earlier entry counts.
void StormCheckOtherProcessors(benchmark::State& State) {
    CheckOneError(State, 1);
}
BENCHMARK(StormCheckOtherProcessors)
    ->Arg(10)
    ->Arg(1'000)
    ->Arg(100'000)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Complexity(benchmark::oN);

}  // namespace
