// The platform vendor's smaller services: setup attributes, manufacturing mode, DIMM slots, PCI slots.
#include <cstring>
#include <string>

#include "Include/Cper.h"
#include "Include/PciDeviceState.h"
#include "Platform/Guids.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Firmware/ServiceTables.h"

namespace Simulator {

namespace {

// The value with its terminating NUL, as the attribute store keeps it.
EFI_STATUS GetAttribute(const EFI_GUID* VendorGuid, const CHAR16* Name, UINTN* DataSize, void* Data) {
    if (VendorGuid == nullptr || Name == nullptr || DataSize == nullptr || (*DataSize != 0 && Data == nullptr)) {
        return EFI_INVALID_PARAMETER;
    }
    if (!IsGuidEqual(*VendorGuid, gVornAttributeVendorGuid)) {
        return EFI_NOT_FOUND;
    }
    const std::u16string_view Wanted = Name;
    for (const auto& [Key, Value] : Firmware::Current().Settings.Attributes) {
        if (std::u16string(Key.begin(), Key.end()) != Wanted) {
            continue;
        }
        const std::u16string Text(Value.begin(), Value.end());
        const UINTN Needed = (Text.size() + 1) * sizeof(CHAR16);
        const bool Fits = *DataSize >= Needed;
        *DataSize = Needed;
        if (!Fits) {
            return EFI_BUFFER_TOO_SMALL;
        }
        std::memcpy(Data, Text.c_str(), Needed);
        return EFI_SUCCESS;
    }
    return EFI_NOT_FOUND;
}

// The slot that a function, a port of the slot among them, belongs to.
EFI_STATUS FillSlotNumber(const PciAddress& Where, PCI_SLOT_NUMBER_DATA* Data) {
    if (Data == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    PcieFabric& Fabric = Firmware::Current().Hardware.Pcie();
    const PcieFunction* Function = Fabric.Find(Where);
    const PcieSlotSetting* Slot = Function == nullptr ? nullptr : Fabric.SlotOf(*Function);
    if (Slot == nullptr) {
        return EFI_NOT_FOUND;
    }
    *Data = {};
    Data->Valid = 1;
    if (Slot->IsNvmeBay) {
        Data->DeviceType = PciSlotDeviceNvmeDrive;
        Data->Drive = {static_cast<UINT8>(Slot->Bay), static_cast<UINT8>(Slot->BaySlot)};
    } else {
        Data->DeviceType = PciSlotDeviceOther;
        Data->SlotNumber = Slot->Number;
    }
    return EFI_SUCCESS;
}

}  // namespace

VORN_ATTRIBUTE_SMM_PROTOCOL* AttributeTable() {
    static VORN_ATTRIBUTE_SMM_PROTOCOL Table{
        nullptr,
        [](const VORN_ATTRIBUTE_SMM_PROTOCOL*, const EFI_GUID* VendorGuid, const CHAR16* Name, UINT32* Attributes,
           UINTN* DataSize, void* Data) {
            return Serve(Member::GetAttributeValue, [&] {
                if (Attributes != nullptr) {
                    *Attributes = 0;
                }
                return GetAttribute(VendorGuid, Name, DataSize, Data);
            });
        },
    };
    return &Table;
}

VORN_MANUFACTURING_MODE_PROTOCOL* ManufacturingModeTable() {
    static VORN_MANUFACTURING_MODE_PROTOCOL Table{
        nullptr,
        nullptr,
        [](const VORN_MANUFACTURING_MODE_PROTOCOL*) -> UINT32 {
            Firmware& Here = Firmware::Current();
            return Here.Faults.OnCall(Member::GetMfgModeType) ? 0 : Here.Settings.ManufacturingMode;
        },
    };
    return &Table;
}

VORN_MEMORY_INTERFACE_SMM_PROTOCOL* MemoryInterfaceTable() {
    static VORN_MEMORY_INTERFACE_SMM_PROTOCOL Table{
        nullptr,
        [](VORN_MEMORY_ARRAY** MemoryArray) {
            return Serve(Member::GetMemoryArrayPtr, [&] {
                if (MemoryArray == nullptr) {
                    return EFI_INVALID_PARAMETER;
                }
                *MemoryArray = &Firmware::Current().Data.MemoryArray;
                return EFI_SUCCESS;
            });
        },
        [](UINT8 DimmIndex, VORN_MEMORY_SLOT_INFO** SlotInfo) {
            return Serve(Member::GetSlotInfoPtr, [&] {
                auto& Slots = Firmware::Current().Data.SlotInfo;
                if (SlotInfo == nullptr || DimmIndex >= Slots.size()) {
                    return EFI_INVALID_PARAMETER;
                }
                *SlotInfo = &Slots[DimmIndex];
                return EFI_SUCCESS;
            });
        },
    };
    return &Table;
}

VORN_PCI_SLOT_DATA_SMM_PROTOCOL* PciSlotDataTable() {
    static VORN_PCI_SLOT_DATA_SMM_PROTOCOL Table{
        [](UINT8 Segment, UINT8 Bus, UINT8 Device, UINT8 Function, PCI_SLOT_NUMBER_DATA* Data) {
            return Serve(Member::GetSlotNumberData, [&] {
                return FillSlotNumber({Segment, Bus, Device, Function}, Data);
            });
        },
    };
    return &Table;
}

}  // namespace Simulator
