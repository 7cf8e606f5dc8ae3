// Any registers in any bank of any processor, memory errors anywhere, and services that fail in between.
#include "Fuzz/Steps/MachineCheckSteps.h"
#include "Fuzz/TwiceTheSame.h"

namespace {

constexpr unsigned STEPS = 12;

void Run(Simulator::Simulation& Machine, FuzzInput& Input) {
    RunSteps(Machine, Input, STEPS, MachineCheckStep);
    Machine.RaiseSmi("machine-check");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Data, std::size_t Size) {
    RunTwiceTheSame(Data, Size, AnyMachineCheckMachine, Run);
    return 0;
}
