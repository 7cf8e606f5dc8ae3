// Any register blocks, mailbox payloads and event records of CXL functions, errors and events in them, _OSC, and
// services and allocations that fail in between.
#include "Fuzz/Steps/CxlSteps.h"
#include "Fuzz/Steps/PcieSteps.h"
#include "Fuzz/Steps/ServiceFaults.h"
#include "Fuzz/TwiceTheSame.h"

namespace {

constexpr unsigned STEPS = 24;

Simulator::Configuration Settings(FuzzInput& Input) {
    Simulator::Configuration Machine;
    Machine.Sockets = 1;
    Machine.CoresPerSocket = 1;
    Machine.ThreadsPerCore = 1;
    Machine.ChannelsPerSocket = 2;
    Machine.RootComplexesPerSocket = 2;
    const unsigned Choice = Input.Byte();
    if ((Choice & 1) != 0) {
        Machine.Attributes["CorErrLoggingThreshold"] = "Disabled";
    }
    Machine.ApeiOsLoaded = (Choice & 2) == 0;
    Machine.ApeiOsAcknowledges = (Choice & 4) == 0;
    Machine.FailAllocation = (Choice & 8) != 0 ? Input.Take<std::uint16_t>() : 0;
    Machine.Pcie = AnyCxlHierarchy(Input, Machine.RootComplexesPerSocket);
    return Machine;
}

void OneStep(Simulator::Simulation& Machine, FuzzInput& Input) {
    if (Input.Below(16) == 15) {
        FailAMember(Machine, Input);
    } else {
        CxlStep(Machine, Input);
    }
}

void Run(Simulator::Simulation& Machine, FuzzInput& Input) {
    RunSteps(Machine, Input, STEPS, OneStep);
    Machine.RaiseSmi("root-complex");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Data, std::size_t Size) {
    RunTwiceTheSame(Data, Size, Settings, Run, DoAllListsEnd);
    return 0;
}
