#include "Fuzz/Steps/MachineCheckSteps.h"

#include "Fuzz/Steps/ServiceFaults.h"
#include "Simulator/Firmware/MemoryService.h"

namespace {

Simulator::MachineCheck AnyMachineCheck(FuzzInput& Input) {
    Simulator::MachineCheck Error;
    Error.Processor = Input.Byte();
    Error.Bank = Input.Byte();
    Error.Status = Input.Take<std::uint64_t>() | 0x8000000000000000;  // valid
    const unsigned Given = Input.Byte();
    std::optional<std::uint64_t>* const Registers[] = {&Error.Addr, &Error.Misc0, &Error.Misc1,  &Error.Config,
                                                       &Error.Ipid, &Error.Synd,  &Error.DeStat, &Error.DeAddr};
    for (unsigned Index = 0; Index < 8; Index++) {
        if ((Given >> Index & 1) != 0) {
            *Registers[Index] = Input.Take<std::uint64_t>();
        }
    }
    return Error;
}

Simulator::MemoryError AnyMemoryError(FuzzInput& Input) {
    Simulator::MemoryError Error;
    Error.Where.Socket = Input.Below(3);
    Error.Where.Channel = Input.Below(4);
    Error.Where.ChipSelect = Input.Below(5);
    Error.Where.Bank = Input.Byte();
    Error.Where.Row = Input.Take<std::uint32_t>();
    Error.Where.Column = Input.Take<std::uint16_t>();
    Error.Kind = static_cast<Simulator::MemoryErrorKind>(Input.Below(3));
    if (Input.Below(2) != 0) {
        Error.Symbol = Input.Byte();
    }
    Error.Syndrome = Input.Take<std::uint32_t>();
    return Error;
}

}  // namespace

Simulator::Configuration AnyMachineCheckMachine(FuzzInput& Input) {
    Simulator::Configuration Machine;
    Machine.Sockets = 1 + Input.Below(2);
    Machine.CoresPerSocket = 2;
    Machine.ChannelsPerSocket = 2;
    const unsigned Choice = Input.Byte();
    if ((Choice & 1) != 0) {
        Machine.Attributes["CorErrLoggingThreshold"] = "Disabled";
    }
    if ((Choice & 2) != 0) {
        Machine.Attributes["CECriticalSEL"] = "Disabled";
    }
    if ((Choice & 4) != 0) {
        Machine.Apei["RuntimePprEnable"] = 1;
    }
    Machine.Dram.DimmThreshold = 1 + Input.Below(40);
    Machine.Dram.PatrolScrubber = (Choice & 8) != 0;
    Machine.ApeiOsAcknowledges = (Choice & 16) == 0;
    Machine.FailAllocation = (Choice & 32) != 0 ? Input.Take<std::uint16_t>() : 0;
    return Machine;
}

void MachineCheckStep(Simulator::Simulation& Machine, FuzzInput& Input) {
    switch (Input.Below(8)) {
        case 0:
            Machine.InjectMachineCheck(AnyMachineCheck(Input));
            break;
        case 1:
        case 2:
            Machine.RaiseSmi("machine-check");
            break;
        case 3:
            Machine.Wait(std::uint64_t{Input.Take<std::uint32_t>()} & 0xFFFFFFF);
            break;
        case 4: {
            const unsigned Processor = Input.Below(4);
            const std::uint32_t Register = 0xC0002000 + Input.Take<std::uint16_t>() % 0x200;
            Machine.OsWriteMsr(Processor, Register, Input.Take<std::uint64_t>());
            break;
        }
        case 5: {
            const Simulator::MemoryError Error = AnyMemoryError(Input);
            Machine.InjectMemoryError(Error, 1 + Input.Byte());
            break;
        }
        case 6:
            FailAMember(Machine, Input);
            break;
        default:
            Machine.FinishRuntimeRepair({});
    }
}
