// Cost of reading a CXL memory device's events: one log with 1, 100 and 10,000 of them in one SMI. Mailbox commands
// are counted, and the time that the processors would spend in SMM waiting for them, beside the software's own. From
// the tenth event on each one that the PCI buffer takes (it holds 256) is part of a storm and has the log's interrupt
// switched off: two commands more.
#include <benchmark/benchmark.h>

#include <chrono>

#include "Simulator/Machine/CxlFabric.h"
#include "Simulator/Machine/Machine.h"
#include "Simulator/Simulation.h"

namespace {

using Simulator::Configuration;
using Simulator::Simulation;

Configuration OneMemoryDevice(unsigned Events, unsigned PayloadExponent) {
    Configuration Settings;
    Settings.TraceLevels = 0;
    Settings.CheckPool = false;
    Simulator::PciePortSetting Port;
    Port.CxlCapable = true;
    Port.CxlMode = 2;
    Port.Function.Kind = Simulator::PcieKind::RootPort;
    Simulator::PcieFunctionSetting& Device = Port.Function.Below.emplace_back();
    Device.Name = "memory";
    Device.Cxl.emplace();
    Device.Cxl->IsMemoryDevice = true;
    Device.Cxl->PayloadExponent = PayloadExponent;
    Device.Cxl->EventLogCapacity = Events;
    Settings.Pcie.IsDefault = false;
    Settings.Pcie.Ports = {Port};
    return Settings;
}

void PendingEvents(benchmark::State& State) {
    const auto Events = static_cast<unsigned>(State.range(0));
    const auto PayloadExponent = static_cast<unsigned>(State.range(1));
    CXL_EVENT_RECORD Record{};
    Record.Uuid = Simulator::CxlEventKinds().front().Uuid;
    double Commands = 0, Waited = 0, Seconds = 0, Runs = 0;
    for (auto _ : State) {
        Simulation Machine(OneMemoryDevice(Events, PayloadExponent));
        Machine.Events().SetRecording(false);
        if (EFI_ERROR(Machine.Boot())) {
            State.SkipWithError("the driver did not start");
            break;
        }
        Simulator::PcieFunction& Device = *Machine.Machine().Pcie().Find("memory");
        for (unsigned Index = 0; Index < Events; Index++) {
            Machine.Machine().Cxl().AddEvent(Device, Record);
        }
        Simulator::CxlMemoryDevice& Registers = *Machine.Machine().Cxl().Find(Device)->Device;
        const std::uint64_t Before = Machine.Now();
        const auto Start = std::chrono::steady_clock::now();
        Machine.RaiseSmi("root-complex");
        const double Took = std::chrono::duration<double>(std::chrono::steady_clock::now() - Start).count();
        State.SetIterationTime(Took);
        if (Registers.Logs().Status() != 0) {
            State.SkipWithError("events were left behind");
            break;
        }
        Commands += static_cast<double>(Registers.Secondary()->Commands());
        Waited += static_cast<double>(Machine.Now() - Before);
        Seconds += Took;
        Runs++;
    }
    if (Runs > 0) {
        State.counters["commands"] = Commands / Runs;
        State.counters["commands_per_event"] = Commands / Runs / Events;
        State.counters["wait_us_per_event"] = Waited / Runs / Events;
        State.counters["us_per_event"] = Seconds / Runs / Events * 1e6;
    }
}
// Payloads of 2 KiB (15 records) and of 1 MiB.
BENCHMARK(PendingEvents)
    ->Args({1, 11})
    ->Args({100, 11})
    ->Args({10000, 11})
    ->Args({10000, 20})
    ->UseManualTime()
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

}  // namespace
