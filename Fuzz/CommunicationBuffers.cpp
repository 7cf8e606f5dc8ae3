// Any bytes, of any size and at any place, for every handler that takes a communication buffer.
#include <stdexcept>

#include "Fuzz/TwiceTheSame.h"

namespace {

Simulator::Configuration Settings(FuzzInput& Input) {
    Simulator::Configuration Machine;
    Machine.Sockets = 1;
    Machine.CoresPerSocket = 1;
    Machine.ChannelsPerSocket = 2;
    if (Input.Below(2) != 0) {
        Machine.Attributes["SmmSecurityMitigation"] = "Enabled";
    }
    return Machine;
}

void Run(Simulator::Simulation& Machine, FuzzInput& Input) {
    using Call = Simulator::Simulation::CommunicationCall;
    constexpr const char* Handlers[] = {"gElogLogPOSTErrorToBMCGuid", "gVornSmbiosType16HandleToSmramGuid",
                                        "gVornSmbiosType17HandleToSmramGuid",
                                        "gVornRasDxeSmiStormScalingDataHoistToSmram"};
    for (unsigned Step = 0; Step < 4 && !Input.IsEmpty(); Step++) {
        Call One;
        One.Handler = Handlers[Input.Below(std::size(Handlers))];
        One.Where = static_cast<Call::Place>(Input.Below(5));
        const unsigned Choice = Input.Byte();
        One.NullSize = (Choice & 1) != 0;
        if ((Choice & 2) != 0) {
            One.Size = Input.Take<std::uint64_t>();
        }
        One.Data = Input.Bytes(Input.Take<std::uint16_t>());
        try {
            if ((Choice & 4) != 0) {
                Machine.HandOverPostErrors(Input.Byte(), Input.Bytes(Input.Byte()));
            }
            Machine.CallCommunicationHandler(One);
        } catch (const std::invalid_argument&) {
            // The handler has taken its registration back, or is not there.
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Data, std::size_t Size) {
    RunTwiceTheSame(Data, Size, Settings, Run);
    return 0;
}
