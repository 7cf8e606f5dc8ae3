// SMBIOS data of the memory, and its hand-over to a machine as the boot firmware does it.
#pragma once

#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Include/SmbiosMemoryData.h"
#include "Simulator/Simulation.h"

struct SmbiosDevice {
    UINT16 Handle;
    UINT16 MemoryArrayHandle;
    std::string DeviceLocator;
};

inline const char* const SmbiosType16Handler = "gVornSmbiosType16HandleToSmramGuid";
inline const char* const SmbiosType17Handler = "gVornSmbiosType17HandleToSmramGuid";

template <class Payload>
std::vector<std::uint8_t> BytesOfPayload(const Payload& Data) {
    const auto* const First = reinterpret_cast<const std::uint8_t*>(&Data);
    return {First, First + sizeof(Data)};
}

// Count: the number of handles that the payload claims. Records are filled up with 0xEE.
inline std::vector<std::uint8_t> SmbiosType16Payload(const std::vector<UINT16>& Handles, UINT16 Count,
                                                     UINT8 Valid = 1) {
    ELOG_SMBIOS_TYPE16_PAYLOAD Data;
    std::memset(&Data, 0xEE, sizeof(Data));
    Data.Type16DataValid = Valid;
    Data.Type16NumHandles = Count;
    for (std::size_t At = 0; At < Handles.size(); At++) {
        Data.Type16Records[At].Handle = Handles[At];
    }
    return BytesOfPayload(Data);
}

inline std::vector<std::uint8_t> SmbiosType17Payload(const std::vector<SmbiosDevice>& Devices, UINT16 Count,
                                                     UINT8 Valid = 1) {
    const auto Data = std::make_unique<ELOG_SMBIOS_TYPE17_PAYLOAD>();
    std::memset(Data.get(), 0xEE, sizeof(*Data));
    Data->Type17DataValid = Valid;
    Data->Type17NumHandles = Count;
    for (std::size_t At = 0; At < Devices.size(); At++) {
        ELOG_SMBIOS_TYPE17_RECORD& Record = Data->Type17Records[At];
        Record.Handle = Devices[At].Handle;
        Record.MemoryArrayHandle = Devices[At].MemoryArrayHandle;
        // Locators may fill the field; the NUL is left out then.
        std::memcpy(Record.DeviceLocator, Devices[At].DeviceLocator.c_str(),
                    std::min(Devices[At].DeviceLocator.size() + 1, sizeof(Record.DeviceLocator)));
    }
    return BytesOfPayload(*Data);
}

inline EFI_STATUS HandOverSmbios(Simulator::Simulation& Machine, const char* Handler,
                                 std::vector<std::uint8_t> Data) {
    Simulator::Simulation::CommunicationCall Call;
    Call.Handler = Handler;
    Call.Data = std::move(Data);
    return Machine.CallCommunicationHandler(Call);
}
