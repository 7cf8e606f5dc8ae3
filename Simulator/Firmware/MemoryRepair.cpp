#include "Simulator/Firmware/MemoryRepair.h"

#include <algorithm>

#include "Simulator/Firmware/MemoryService.h"

namespace Simulator {

namespace {

// A row is known where the error was translated.
bool HasRow(const KYR_CHIPSET_SUPPORT_DATA& Data) {
    return Data.MachineCheck.ValidRasMcaErrorInfo != 0 && Data.MachineCheck.ValidNormalizedAddressInfoPsp != 0 &&
           DimmInfoValid::AddressTranslationData::Get(Data.MachineCheck.DimmInfo.ValidBits) != 0;
}

RUNTIME_PPR_CHECK_ENTRY CheckEntryOf(const RepairEntry& Entry) {
    RUNTIME_PPR_CHECK_ENTRY Check{};
    Check.CpuInfo = Entry.Cpu;
    Check.McaBankNumber = Entry.McaBank;
    Check.SystemAddress = Entry.SystemAddress;
    Check.NormalizedAddress = Entry.NormalizedAddress;
    Check.Socket = static_cast<UINT8>(Entry.Row.Socket);
    Check.UmcChannel = static_cast<UINT8>(Entry.Row.Channel);
    Check.EntryType = Entry.EntryType;
    Check.ChipSelect = static_cast<UINT8>(Entry.Row.ChipSelect);
    Check.Bank = static_cast<UINT8>(Entry.Row.Bank);
    Check.RankMul = static_cast<UINT8>(Entry.Row.RankMul);
    Check.SubChannel = static_cast<UINT8>(Entry.Row.SubChannel);
    Check.DramDevice = static_cast<UINT8>(Entry.Devices.First);
    Check.Row = Entry.Row.Row;
    Check.Column = static_cast<UINT16>(Entry.Row.Column);
    return Check;
}

}  // namespace

MemoryRepair::Spare MemoryRepair::SpareOf(const DramLocation& Row, unsigned Device) {
    return {Row.Socket, Row.Channel, Row.SubChannel, Row.ChipSelect, Row.RankMul, BankGroupOf(Row.Bank), Device};
}

RepairEntry MemoryRepair::Describe(const KYR_CHIPSET_SUPPORT_DATA& Data, UINT16 Type) const {
    const MACHINE_CHECK_SUPPORT_DATA& Check = Data.MachineCheck;
    const MCA_BANK_ERROR_INFO& Bank = RecordBank(Data);
    const DIMM_INFO& Info = Check.DimmInfo;
    RepairEntry Entry;
    Entry.Type = Type;
    Entry.Row = {Check.NormalizedAddressInfo.Socket,
                 Check.NormalizedAddressInfo.UmcChannel,
                 Info.SubChannel,
                 Info.ChipSelect,
                 Info.RankMul,
                 Info.Bank,
                 Info.Row,
                 Info.Column};
    Entry.Cpu = Check.RasMcaErrorInfo.CpuInfo;
    Entry.McaBank = Bank.McaBankNumber;
    Entry.EntryType = static_cast<std::uint8_t>(McaStatus::ErrorCodeExt::Get(Bank.McaStatus));
    Entry.NormalizedAddress = Check.NormalizedAddressInfo.NormalizedAddress;
    MemorySystem& Dram = Hardware.Dram();
    Entry.SystemAddress =
        Dram.Map().ToSystem({Entry.Row.Socket, Entry.Row.Channel, Entry.NormalizedAddress}).value_or(0);
    // Where ECC could not tell the device, all take a spare row.
    const std::optional<unsigned> Symbol = SymbolOf(Bank);
    const std::optional<unsigned> Device = Symbol ? Dram.DeviceOfSymbol(*Symbol) : std::nullopt;
    Entry.Devices = Device ? DeviceRange{*Device, *Device} : DeviceRange{0, Dram.DeviceCount() - 1};
    return Entry;
}

const RepairEntry* MemoryRepair::Find(const DramLocation& Row, DeviceRange Devices) const {
    const auto Found = std::ranges::find_if(Requested, [&](const RepairEntry& One) {
        return IsSameRow(One.Row, Row) && One.Devices.First <= Devices.First && One.Devices.Last >= Devices.Last;
    });
    return Found == Requested.end() ? nullptr : &*Found;
}

void MemoryRepair::Note(const char* Kind, const char* Phase, const RepairEntry& Entry) {
    Hardware.Note(Kind, [&] {
        return nlohmann::ordered_json{{"phase", Phase},
                                      {"type", Hex(Entry.Type)},
                                      {"socket", Hex(Entry.Row.Socket)},
                                      {"channel", Hex(Entry.Row.Channel)},
                                      {"sub-channel", Hex(Entry.Row.SubChannel)},
                                      {"chip-select", Hex(Entry.Row.ChipSelect)},
                                      {"bank", Hex(Entry.Row.Bank)},
                                      {"row", Hex(Entry.Row.Row)},
                                      {"first-device", Hex(Entry.Devices.First)},
                                      {"last-device", Hex(Entry.Devices.Last)}};
    });
}

EFI_STATUS MemoryRepair::IsSupported(const KYR_CHIPSET_SUPPORT_DATA* Data, BOOLEAN* Supported) const {
    if (Data == nullptr || Supported == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    *Supported = FALSE;
    if (!HasRow(*Data)) {
        return EFI_SUCCESS;
    }
    const RepairEntry Wanted = Describe(*Data, 0);
    bool HasSpares = Hardware.Dram().Map().IsPlace(Wanted.Row);
    for (unsigned Device = Wanted.Devices.First; Device <= Wanted.Devices.Last; Device++) {
        HasSpares = HasSpares && !UsedSpares.contains(SpareOf(Wanted.Row, Device));
    }
    *Supported = HasSpares || Find(Wanted.Row, Wanted.Devices) != nullptr ? TRUE : FALSE;
    return EFI_SUCCESS;
}

EFI_STATUS MemoryRepair::CreateEntry(const KYR_CHIPSET_SUPPORT_DATA* Data, UINT16 Type, BOOLEAN* AtLeastOne) {
    if (Data == nullptr || AtLeastOne == nullptr || Type == 0) {
        return EFI_INVALID_PARAMETER;
    }
    *AtLeastOne = FALSE;
    BOOLEAN Supported = FALSE;
    IsSupported(Data, &Supported);
    if (Supported == FALSE) {
        return EFI_UNSUPPORTED;
    }
    const RepairEntry New = Describe(*Data, Type);
    if (Find(New.Row, New.Devices) != nullptr) {
        return EFI_SUCCESS;
    }
    for (unsigned Device = New.Devices.First; Device <= New.Devices.Last; Device++) {
        UsedSpares.insert(SpareOf(New.Row, Device));
    }
    Requested.push_back(New);
    *AtLeastOne = TRUE;
    Note("ppr", "created", New);
    return EFI_SUCCESS;
}

EFI_STATUS MemoryRepair::StoreEntries() {
    for (RepairEntry& One : Requested) {
        if (!One.Stored) {
            One.Stored = true;
            Note("ppr", "stored", One);
        }
    }
    return EFI_SUCCESS;
}

EFI_STATUS MemoryRepair::StartRuntime(const RuntimeRequest& Request) {
    if (Request.Data == nullptr || Request.Ready == nullptr || Request.Served == nullptr ||
        Request.Block == nullptr || Request.CommandWord == nullptr || Request.QueueFront == nullptr ||
        Request.QueueFull == nullptr || Request.CheckTable == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    if (Request.Enabled == FALSE || !HasRow(*Request.Data)) {
        return EFI_UNSUPPORTED;
    }
    const RepairEntry New = Describe(*Request.Data, Request.Type);
    const bool IsBusy = *Request.Ready == FALSE;
    if (IsBusy && Waiting.size() == QUEUE_ENTRIES) {
        return EFI_OUT_OF_RESOURCES;
    }
    Waiting.push_back(New);
    if (IsBusy) {
        *Request.QueueFront = static_cast<UINT8>(Waiting.size() - 1);
        *Request.QueueFull = Waiting.size() == QUEUE_ENTRIES ? 1 : 0;
        Note("runtime-ppr", "queued", New);
        return EFI_NOT_READY;
    }
    Served = std::exchange(Waiting, {});
    static_assert(QUEUE_ENTRIES + 1 <= RUNTIME_PPR_CHECK_ENTRIES);
    for (std::size_t At = 0; At < Served.size(); At++) {
        Request.CheckTable[At] = CheckEntryOf(Served[At]);
        Note("runtime-ppr", "started", Served[At]);
    }
    *Request.Served = static_cast<UINT32>(Served.size());
    *Request.QueueFront = 0;
    *Request.QueueFull = 0;
    CommandWord = Request.CommandWord;
    return EFI_SUCCESS;
}

void MemoryRepair::MarkDone(const RepairEntry& Repaired) {
    for (RepairEntry& One : Requested) {
        One.Done = One.Done || (IsSameRow(One.Row, Repaired.Row) && One.Devices.First == Repaired.Devices.First);
    }
}

MemoryRepair::Stored MemoryRepair::TakeStored() {
    Stored Kept;
    for (const RepairEntry& One : Requested) {
        if (One.Stored) {
            Kept.Entries.push_back(One);
        }
        // A request that neither was carried out nor will be has taken nothing.
        for (unsigned Device = One.Devices.First; !One.Stored && !One.Done && Device <= One.Devices.Last; Device++) {
            UsedSpares.erase(SpareOf(One.Row, Device));
        }
    }
    Requested.clear();
    Kept.UsedSpares = std::move(UsedSpares);
    return Kept;
}

void MemoryRepair::CarryOut(Stored From) {
    UsedSpares = std::move(From.UsedSpares);
    for (const RepairEntry& One : From.Entries) {
        Hardware.Dram().RepairRow(One.Row, One.Devices);
        Note("ppr", "applied", One);
    }
}

bool MemoryRepair::FinishRuntime(const RepairOutcome& Outcome) {
    if (CommandWord == nullptr) {
        return false;
    }
    for (const RepairEntry& One : Served) {
        if (Outcome.Repairs) {
            Hardware.Dram().RepairRow(One.Row, One.Devices);
            MarkDone(One);
        }
    }
    *CommandWord =
        PspCommandWord::Completed::Of(1) | PspCommandWord::CompletionSignalled::Of(Outcome.Signals ? 1 : 0);
    CommandWord = nullptr;
    Served.clear();
    Hardware.Note("runtime-ppr", [&] {
        return nlohmann::ordered_json{
            {"phase", "finished"}, {"status", Hex(Outcome.Status)}, {"signalled", Hex(Outcome.Signals ? 1 : 0)}};
    });
    return true;
}

}  // namespace Simulator
