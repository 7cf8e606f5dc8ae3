#include "Fuzz/Steps/ServiceFaults.h"

#include "Simulator/Firmware/ServiceMembers.h"

void FailAMember(Simulator::Simulation& Machine, FuzzInput& Input) {
    const auto Names = Simulator::MemberNames();
    const std::string Name(Names[Input.Byte() % Names.size()]);
    constexpr EFI_STATUS Statuses[] = {EFI_DEVICE_ERROR, EFI_NOT_FOUND, EFI_OUT_OF_RESOURCES, EFI_UNSUPPORTED};
    Machine.SetFailure(Name, Simulator::Failure{Statuses[Input.Below(4)], Input.Byte(), Input.Byte()});
}
