// Cost of a corrected memory error in production mode: counters read, the rank's bucket, its page, its row. What
// grows with a DIMM's past is measured against it: the rows in its history, the pages in the array.
#include <benchmark/benchmark.h>

#include <chrono>

#include "Library/RasLib/Memory.h"
#include "Library/VornElogPolicyLib/Memory/RowHistory.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Services.h"
#include "Simulator/Simulation.h"

namespace {

using Simulator::AccessStatistics;
using Simulator::Configuration;
using Simulator::MemoryError;
using Simulator::Simulation;

constexpr unsigned FailingRow = 0x1000;
constexpr UINT64 FailingPage = UINT64{FailingRow} << 19 >> 12;  // of bank 0

Configuration QuietMachine() {
    Configuration Settings;
    Settings.Dram.DimmThreshold = 32;  // every error asks for its SMI
    Settings.TraceLevels = 0;
    Settings.CheckPool = false;
    return Settings;
}

// A booted machine whose first DIMM errs in one row again and again; the rank's count never gets anywhere.
class FailingDimm {
 public:
    FailingDimm() : Machine(QuietMachine()) {
        Machine.Events().SetRecording(false);
        IsReady = !EFI_ERROR(Machine.Boot());
        Error.Where.Row = FailingRow;
        Error.Symbol = 0;
        Error.Transient = true;
        RunSmi();  // the row and its page take their places
    }
    // Seconds that the SMI of one error takes.
    double RunSmi() {
        mPrivateDataVornElogPolicyLib.DimmData[0][0][0].Rank[0].CeccPfaCurrentErrorCount = 0;
        Machine.InjectMemoryError(Error, 1);
        const auto Start = std::chrono::steady_clock::now();
        Machine.RaiseSmi("machine-check");
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count();
    }
    void Measure(benchmark::State& State) {
        if (!IsReady) {
            State.SkipWithError("the driver did not start");
        }
        for (auto _ : State) {
            State.SetIterationTime(RunSmi());
        }
    }
    // The history holds so many rows, the failing one behind all others.
    void FillRows(std::int64_t Rows) {
        LIST_ENTRY* const History = mPrivateDataVornElogPolicyLib.DimmData[0][0][0].pUniqueRowIdentifierList;
        UNIQUE_ROW_INSTANCE_NODE* const Failing = RowInstance(History->ForwardLink);
        RemoveEntryList(&Failing->Link);
        for (std::int64_t Row = 1; Row < Rows; Row++) {
            UNIQUE_ROW_INSTANCE_NODE* Node = nullptr;
            if (EFI_ERROR(AllocateRuntimeData(sizeof(*Node), &Node))) {
                IsReady = false;
                break;
            }
            Node->Signature = UNIQUE_ROW_INSTANCE_SIGNATURE;
            Node->ChipSelect = Failing->ChipSelect;
            Node->RankMul = Failing->RankMul;
            Node->DeviceStart = Failing->DeviceStart;
            Node->DeviceEnd = Failing->DeviceEnd;
            Node->Bank = static_cast<UINT8>(1 + Row % 31);  // the row itself does not tell all of them apart
            Node->Row = Row % 4 == 0 ? FailingRow : static_cast<UINT32>(Row);
            Node->NumberCecc = static_cast<UINT32>(Row % 97);
            InsertTailList(History, &Node->Link);
        }
        InsertTailList(History, &Failing->Link);
    }
    // All entries of the page array are taken, the failing page's is the last, or there is none.
    static void FillPages(bool IsTracked) {
        ESXI_PAGE_RETIRE_ENTRY* const Entries = mPrivateDataVornElogPolicyLib.pOsEsxiPageRetireInfo;
        for (UINT32 At = 0; At < ESXI_PAGE_RETIRE_ENTRIES; At++) {
            Entries[At].MemoryPageAddress = At + 1;
            Entries[At].CeccErrorCount = 1;
        }
        if (IsTracked) {
            Entries[ESXI_PAGE_RETIRE_ENTRIES - 1].MemoryPageAddress = FailingPage;
        }
    }

    Simulation Machine;
    MemoryError Error;
    bool IsReady = false;
};

void OneCorrectedMemoryError(benchmark::State& State) {
    FailingDimm Dimm;
    Dimm.Machine.ResetAccesses();
    const std::uint64_t Before = Dimm.Machine.Pool().LiveBytes;
    Dimm.RunSmi();
    const AccessStatistics Accesses = Dimm.Machine.Accesses();
    State.counters["msr_rd"] = static_cast<double>(Accesses.MsrReads);
    State.counters["io_rd"] = static_cast<double>(Accesses.IoReads);
    State.counters["io_wr"] = static_cast<double>(Accesses.IoWrites);
    State.counters["smn_rd"] = static_cast<double>(Accesses.SmnReads);
    State.counters["smn_wr"] = static_cast<double>(Accesses.SmnWrites);
    State.counters["pool_bytes"] = static_cast<double>(Dimm.Machine.Pool().PeakBytes - Before);
    Dimm.Measure(State);
}
BENCHMARK(OneCorrectedMemoryError)->UseManualTime()->Unit(benchmark::kMicrosecond);

void ErrorInTheLastOfRows(benchmark::State& State) {
    FailingDimm Dimm;
    Dimm.FillRows(State.range(0));
    Dimm.Measure(State);
    State.SetComplexityN(State.range(0));
}
BENCHMARK(ErrorInTheLastOfRows)
    ->Arg(10)
    ->Arg(1'000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Complexity(benchmark::oN);

// What the warning and the critical threshold ask of the history.
void MostAffectedOfRows(benchmark::State& State) {
    FailingDimm Dimm;
    Dimm.FillRows(State.range(0));
    CPER_RECORD* Cper = nullptr;
    KYR_CHIPSET_SUPPORT_DATA* ChipsetData = nullptr;
    for (auto _ : State) {
        VornElogSmmRetrieveMemoryCeccHashTableHighestRowCount(0, 0, 0, 0, &Cper, &ChipsetData);
        benchmark::DoNotOptimize(ChipsetData);
    }
    State.SetComplexityN(State.range(0));
}
BENCHMARK(MostAffectedOfRows)
    ->Arg(10)
    ->Arg(1'000)
    ->Arg(100'000)
    ->Unit(benchmark::kMicrosecond)
    ->Complexity(benchmark::oN);

void ErrorInTheLastOf400Pages(benchmark::State& State) {
    FailingDimm Dimm;
    FailingDimm::FillPages(true);
    Dimm.Measure(State);
}
BENCHMARK(ErrorInTheLastOf400Pages)->UseManualTime()->Unit(benchmark::kMicrosecond);

void ErrorInThe401stPage(benchmark::State& State) {
    FailingDimm Dimm;
    FailingDimm::FillPages(false);
    Dimm.Measure(State);
}
BENCHMARK(ErrorInThe401stPage)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
