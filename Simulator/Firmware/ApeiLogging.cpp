#include "Simulator/Firmware/ApeiLogging.h"

#include <cstring>

#include "Include/Cper.h"
#include "Platform/Constants.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Firmware/ServiceTables.h"

namespace Simulator {

namespace {

constexpr std::size_t STATUS_BLOCK_CAPACITY = 65536;
constexpr unsigned SCRATCH_3_REGISTER = 0x74;          // of segment 0, bus 0, device 0, function 0
constexpr std::uint32_t SCI_CAUSE_MASK = 0x70000000;   // its bits for the cause
constexpr std::uint32_t SCI_CONTAINMENT = 0x40000000;  // of them: ports are contained
constexpr std::uint64_t SOFTWARE_SCI_EVENT = 1 << 22;  // in both of the FCH's software SCI registers

}  // namespace

ApeiLogging::ApeiLogging(Machine& Machine) : Hardware(Machine), Block(STATUS_BLOCK_CAPACITY) {
    if (const auto& Shared = Hardware.Settings().SharedErrors) {
        RunningOs = std::make_unique<SharedErrorSource>(Shared->Memory, Shared->PhysicalAddress);
    }
}

bool ApeiLogging::OwnsBlock() {
    if (WithOs && RunningOs != nullptr && RunningOs->IsAcknowledged()) {
        WithOs = false;
        Block.Clear();
    }
    return !WithOs;
}

EFI_STATUS ApeiLogging::IsApeiOsLoaded(BOOLEAN* IsLoaded) const {
    if (IsLoaded == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    *IsLoaded = Hardware.Settings().ApeiOsLoaded ? TRUE : FALSE;
    return EFI_SUCCESS;
}

EFI_STATUS ApeiLogging::ClearGhes() {
    if (!OwnsBlock() || Block.IsEmpty()) {
        return EFI_NOT_READY;
    }
    Block.Clear();
    return EFI_SUCCESS;
}

EFI_STATUS ApeiLogging::LogCper(const void* Cper, UINT32 Severity) {
    if (Cper == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    if (!OwnsBlock()) {
        return EFI_ALREADY_STARTED;
    }
    CPER_RECORD_HEADER Header;
    std::memcpy(&Header, Cper, sizeof(Header));
    const auto* Bytes = static_cast<const std::uint8_t*>(Cper);
    switch (Block.Add({Bytes, Header.RecordLength}, Severity)) {
        case ErrorStatusBlock::AddResult::NotARecord:
            return EFI_INVALID_PARAMETER;
        case ErrorStatusBlock::AddResult::Full:
            return EFI_OUT_OF_RESOURCES;
        case ErrorStatusBlock::AddResult::Added:
            break;
    }
    Logged.emplace_back(Bytes, Bytes + Header.RecordLength);
    return EFI_SUCCESS;
}

EFI_STATUS ApeiLogging::LogPageRetire(const void* CperTimestamp, const CHAR8* FruText, UINT64 PhysicalAddress,
                                      UINT32 PageRetireThreshold) {
    if (CperTimestamp == nullptr || FruText == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    Hardware.Note("page-retire", [&] {
        return nlohmann::ordered_json{{"address", Hex(PhysicalAddress)},
                                      {"threshold", Hex(PageRetireThreshold)},
                                      {"fru", std::string(FruText, strnlen(FruText, CPER_FRU_STRING_SIZE))}};
    });
    return EFI_SUCCESS;
}

// The cause goes to the scratch register for the ACPI code to read; the FCH's event bit raises the interrupt.
EFI_STATUS ApeiLogging::SignalSci(UINT32 Cause) {
    Hardware.Note("sci", [&] { return nlohmann::ordered_json{{"cause", Hex(Cause)}}; });
    if (PciFunction* Host = Hardware.Pci().Find({0, 0, 0, 0})) {
        Host->Poke(SCRATCH_3_REGISTER, 4, Host->Peek(SCRATCH_3_REGISTER, 4) | (Cause & SCI_CAUSE_MASK));
    }
    MmioSpace& Mmio = Hardware.Mmio();
    Mmio.Write(FCH_SMI_SOFTWARE_SCI_DATA, 4, *Mmio.Read(FCH_SMI_SOFTWARE_SCI_DATA, 4) | SOFTWARE_SCI_EVENT);
    Signalled = Signalled || SciIsRouted();
    return EFI_SUCCESS;
}

EFI_STATUS ApeiLogging::SignalNmi() {
    Hardware.Note("nmi", [] { return nlohmann::ordered_json::object(); });
    Signalled = true;
    return EFI_SUCCESS;
}

bool ApeiLogging::SciIsRouted() const {
    return (*Hardware.Mmio().Read(FCH_SMI_SOFTWARE_SCI_EN, 4) & SOFTWARE_SCI_EVENT) != 0;
}

void ApeiLogging::OperatingSystemRuns() {
    if (!Signalled || !Hardware.Settings().ApeiOsLoaded) {
        return;
    }
    Signalled = false;
    if (PciFunction* Host = Hardware.Pci().Find({0, 0, 0, 0})) {
        const std::uint32_t Scratch = Host->Peek(SCRATCH_3_REGISTER, 4);
        ContainmentTold = ContainmentTold || (Scratch & SCI_CONTAINMENT) != 0;
        Host->Poke(SCRATCH_3_REGISTER, 4, Scratch & ~SCI_CAUSE_MASK);
    }
    MmioSpace& Mmio = Hardware.Mmio();
    Mmio.Write(FCH_SMI_SOFTWARE_SCI_DATA, 4, *Mmio.Read(FCH_SMI_SOFTWARE_SCI_DATA, 4) & ~SOFTWARE_SCI_EVENT);
    if (!OwnsBlock() || Block.IsEmpty()) {
        return;
    }
    LastRead = Block.Contents();
    if (RunningOs != nullptr) {
        RunningOs->Publish(LastRead);
        WithOs = !RunningOs->WaitForAcknowledge(Hardware.Settings().SharedErrors->PatienceSeconds);
    } else {
        WithOs = !Hardware.Settings().ApeiOsAcknowledges;
    }
    if (!WithOs) {
        Block.Clear();
    }
}

namespace {

ApeiLogging& Apei() {
    return Firmware::Current().Apei;
}

EFI_STATUS ServeClear() {
    const EFI_STATUS Status = Serve(Member::ElogClearGhes, [] { return Apei().ClearGhes(); });
    Firmware::Current().Hardware.Note("ghes-clear", [&] {
        return nlohmann::ordered_json{{"status", StatusName(Status)}};
    });
    return Status;
}

EFI_STATUS ServeLog(const void* Cper, UINT32 Severity) {
    const EFI_STATUS Status = Serve(Member::ElogLogCper, [&] { return Apei().LogCper(Cper, Severity); });
    Firmware::Current().Hardware.Note("ghes-log", [&] {
        nlohmann::ordered_json Fields = nlohmann::ordered_json::object();
        if (Status == EFI_SUCCESS) {
            Fields["file"] = RecordFileName(Apei().LoggedRecords().size() - 1);
        }
        Fields["severity"] = Hex(Severity);
        Fields["status"] = StatusName(Status);
        return Fields;
    });
    return Status;
}

}  // namespace

VORN_APEI_LOGGING_SMM_PROTOCOL* ApeiLoggingTable() {
    using PROTOCOL = VORN_APEI_LOGGING_SMM_PROTOCOL;
    static PROTOCOL Table{
        [](BOOLEAN* IsLoaded) {
            return Serve(Member::ElogIsApeiOsLoaded, [&] { return Apei().IsApeiOsLoaded(IsLoaded); });
        },
        nullptr,
        [](const PROTOCOL*) { return ServeClear(); },
        [](const PROTOCOL*, const void* Cper, UINT32 Severity) { return ServeLog(Cper, Severity); },
        [](const PROTOCOL*, const void* Timestamp, const CHAR8* FruText, UINT64 Address, UINT32 Threshold) {
            return Serve(Member::ElogLogPageRetire,
                         [&] { return Apei().LogPageRetire(Timestamp, FruText, Address, Threshold); });
        },
        [](const PROTOCOL*, UINT32 Cause) {
            return Serve(Member::ElogSignalSci, [&] { return Apei().SignalSci(Cause); });
        },
        [](const PROTOCOL*) { return Serve(Member::ElogSignalNmi, [] { return Apei().SignalNmi(); }); },
    };
    return &Table;
}

}  // namespace Simulator
