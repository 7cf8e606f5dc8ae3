#include "Simulator/Firmware/DpcOperatingSystem.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "Include/PciRegisters.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Machine/Machine.h"

namespace Simulator {

namespace {

UINT16 BdfOf(const PciAddress& Port) {
    return PackDpcPortBdf(static_cast<UINT8>(Port.Bus), static_cast<UINT8>(Port.Device),
                          static_cast<UINT8>(Port.Function));
}

DPC_AWARE_OS_ENTRY AwareEntry(const PciAddress& Port) {
    return {BdfOf(Port), static_cast<UINT8>(Port.Segment)};
}

PciAddress PortOf(const DPC_TRIGGER_ENTRY& Entry) {
    return {Entry.DpcPortSegment, DpcPortBdf::Bus::Get(Entry.DpcPortBdf), DpcPortBdf::Device::Get(Entry.DpcPortBdf),
            DpcPortBdf::Function::Get(Entry.DpcPortBdf)};
}

}  // namespace

DpcOperatingSystem::DpcOperatingSystem(Simulation& Run) : Run(Run), Area(*Run.Firmware().Data.Apei.RasAcpiSmmData) {}

EFI_STATUS DpcOperatingSystem::RaiseSmi(std::uint8_t Value) {
    Simulator::Firmware& Here = Run.Firmware();
    const EFI_STATUS Status =
        Here.RunSmi(fmt::format("software-0x{:02X}", Value), [&] { return Here.Dispatch.Software(Value); });
    Run.Machine().ThrowPendingFault();
    return Status;
}

EFI_STATUS DpcOperatingSystem::RequestPort(const PciAddress& Port) {
    const DPC_AWARE_OS_ENTRY Wanted = AwareEntry(Port);
    for (DPC_AWARE_OS_ENTRY& One : Area.DpcAwareOs) {
        const bool IsFree = One.Bdf == 0 && One.Segment == 0;
        if (IsFree) {
            One = Wanted;
        }
        if (One.Bdf == Wanted.Bdf && One.Segment == Wanted.Segment) {
            break;
        }
    }
    Area.DPC_EnIioSmiGen = Wanted;
    return RaiseSmi(REQUEST_SMI);
}

std::vector<PciAddress> DpcOperatingSystem::ServeInterrupt(Clears What) {
    std::vector<PciAddress> Notified;
    if (!Run.Firmware().Apei.TakeContainmentInterrupt()) {
        return Notified;
    }
    for (DPC_TRIGGER_ENTRY& One : Area.DPC_Triggered) {
        if (One.Flag == 1 && EdrStatus::EdrSent::Get(One.EDRStatus) == 0 && IsRequested(PortOf(One))) {
            One.EDRStatus = EdrStatus::EdrSent::Set(One.EDRStatus, 1);
            Notified.push_back(PortOf(One));
        }
    }
    for (const PciAddress& Port : Notified) {
        Recover(Port, What);
    }
    return Notified;
}

// Errors first: what is left would contain the port again at the next message.
void DpcOperatingSystem::Recover(const PciAddress& Port, Clears What) {
    PcieFunction* const Function = Run.Machine().Pcie().Find(Port);
    if (Function == nullptr || Function->Has().Dpc == 0 || What == Clears::Nothing) {
        return;
    }
    PciSpace& Space = Run.Machine().Pci();
    const auto ClearAll = [&](unsigned Register) { Space.Write(Port, Register, 4, Space.Read(Port, Register, 4)); };
    const unsigned Dpc = Function->Has().Dpc;
    if (What == Clears::Everything) {
        if (const unsigned Aer = Function->Has().Aer; Aer != 0) {
            ClearAll(Aer + AER_UNCORRECTABLE_STATUS);
            ClearAll(Aer + AER_CORRECTABLE_STATUS);
        }
        if (Function->HasRootPortExtensions()) {
            ClearAll(Dpc + DPC_RP_PIO_STATUS);
        }
        Space.Write(Port, Function->Has().Pcie + PCIE_DEVICE_STATUS, 2, PcieDeviceStatus::ErrorBits);
    }
    Space.Write(Port, Dpc + DPC_STATUS, 2, DpcStatus::TriggerStatus::Of(1) | DpcStatus::InterruptStatus::Of(1));
}

bool DpcOperatingSystem::ReportOutcome(const PciAddress& Port, std::uint8_t Status) {
    DPC_TRIGGER_ENTRY* const Entry = Find(Port);
    if (Entry == nullptr) {
        return false;
    }
    Entry->OstStatus = Status;
    RaiseSmi(OUTCOME_SMI);
    if (Entry->OstStatus == OST_SUCCESS && !IsContained(Port)) {
        *Entry = {};
    }
    return true;
}

bool DpcOperatingSystem::IsRequested(const PciAddress& Port) const {
    const DPC_AWARE_OS_ENTRY Wanted = AwareEntry(Port);
    return std::ranges::any_of(Area.DpcAwareOs, [&](const DPC_AWARE_OS_ENTRY& One) {
        return One.Bdf == Wanted.Bdf && One.Segment == Wanted.Segment;
    });
}

DPC_TRIGGER_ENTRY* DpcOperatingSystem::Find(const PciAddress& Port) {
    const std::span<DPC_TRIGGER_ENTRY> All(Area.DPC_Triggered);
    const auto Found =
        std::ranges::find_if(All, [&](const DPC_TRIGGER_ENTRY& One) { return One.Flag == 1 && PortOf(One) == Port; });
    return Found == All.end() ? nullptr : &*Found;
}

// A port that does not answer reads all ones: it is not taken for recovered.
bool DpcOperatingSystem::IsContained(const PciAddress& Port) {
    const PcieFunction* const Function = Run.Machine().Pcie().Find(Port);
    if (Function == nullptr || Function->Has().Dpc == 0) {
        return false;
    }
    const std::uint32_t Status = Run.Machine().Pci().Read(Port, Function->Has().Dpc + DPC_STATUS, 2);
    return DpcStatus::TriggerStatus::Get(static_cast<UINT16>(Status)) != 0;
}

}  // namespace Simulator
