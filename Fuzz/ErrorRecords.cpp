// Any bytes as a record, with any chipset data, handed to the policy engine; then the end of the SMI.
#include <memory>

#include "Fuzz/TwiceTheSame.h"
#include "Include/Cper.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/Notification/Cleanup.h"
#include "Library/VornElogPolicyLib/ProcessErrorRecord.h"
#include "Simulator/Firmware/Firmware.h"

namespace {

constexpr std::size_t LONGEST_RECORD = 4096;

Simulator::Configuration Settings(FuzzInput& Input) {
    Simulator::Configuration Machine;
    Machine.Sockets = 1;
    Machine.CoresPerSocket = 1;
    Machine.ChannelsPerSocket = 2;
    if (Input.Below(2) != 0) {
        Machine.Attributes["CorErrLoggingThreshold"] = "Disabled";
    }
    return Machine;
}

// The header and descriptor say what the bytes hold often enough for the fuzzer to get behind them.
std::vector<std::uint8_t> AnyRecord(FuzzInput& Input) {
    constexpr EFI_GUID Sections[] = {gCperSectionProcessorSpecificGuid, gCperSectionPlatformMemoryGuid,
                                     gCperSectionPcieGuid, gCperSectionCxlProtocolGuid};
    const std::uint8_t Choice = Input.Byte();
    std::vector<std::uint8_t> Bytes = Input.Bytes(Input.Take<std::uint16_t>() % LONGEST_RECORD);
    Bytes.resize(std::max(Bytes.size(), sizeof(CPER_RECORD)));
    CPER_RECORD Record;
    std::memcpy(&Record, Bytes.data(), sizeof(Record));
    Record.Header.RecordLength =
        static_cast<std::uint32_t>(Bytes.size() - (Choice & 4 ? Record.Header.RecordLength % 300 : 0) % Bytes.size());
    Record.Header.SectionCount %= 5;  // each is one pass over the first section: more cost time only
    if ((Choice & 8) == 0) {
        Record.Descriptor.SectionType = Sections[Choice & 3];
        Record.Descriptor.SectionOffset = sizeof(CPER_RECORD);
        Record.Descriptor.SectionLength = static_cast<std::uint32_t>(Bytes.size() - sizeof(CPER_RECORD));
        Record.Descriptor.Severity &= 3;
    }
    std::memcpy(Bytes.data(), &Record, sizeof(Record));
    return Bytes;
}

void Run(Simulator::Simulation&, FuzzInput& Input) {
    for (unsigned Step = 0; Step < 4 && !Input.IsEmpty(); Step++) {
        const std::vector<std::uint8_t> Bytes = AnyRecord(Input);
        const std::unique_ptr<std::uint8_t[]> Exact(new std::uint8_t[Bytes.size()]);
        std::memcpy(Exact.get(), Bytes.data(), Bytes.size());
        auto Chipset = std::make_unique<KYR_CHIPSET_SUPPORT_DATA>();
        const std::vector<std::uint8_t> Front = Input.Bytes(256);
        std::copy(Front.begin(), Front.end(), reinterpret_cast<std::uint8_t*>(Chipset.get()));
        Chipset->MachineCheck.McaBankIndex = 0;  // the driver's own: below the number of banks of the block
        VornElogSmmProcessErrorRecord(reinterpret_cast<const CPER_RECORD*>(Exact.get()), Chipset.get());
    }
    VornElogSmmClearErrorRecordBuffersMca();
    VornElogSmmClearErrorRecordBuffersPci();
    VornElogSmmPostProcessCleanup();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* Data, std::size_t Size) {
    RunTwiceTheSame(Data, Size, Settings, Run);
    return 0;
}
